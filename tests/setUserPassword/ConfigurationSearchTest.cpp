#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "setUserPassword/ConfigurationSearch.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Unprivileged.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

// A tree with two -ConfigDir candidates and two standard bases.
class ConfigurationSearchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const auto* name : {"dirA", "dirB", "baseS/Korvane/Config", "baseT/Korvane/Config"}) {
      std::filesystem::create_directories(root_.path() / name);
    }
    const std::string bases =
        (root_.path() / "baseS").string() + ":" + (root_.path() / "baseT").string();
    if (const char* old = std::getenv("XDG_CONFIG_DIRS")) oldBases_ = old;
    ::setenv("XDG_CONFIG_DIRS", bases.c_str(), 1);
  }
  void TearDown() override {
    if (oldBases_) {
      ::setenv("XDG_CONFIG_DIRS", oldBases_->c_str(), 1);
    } else {
      ::unsetenv("XDG_CONFIG_DIRS");
    }
  }

  std::filesystem::path at(const char* relative) const { return root_.path() / relative; }

  CommandLine withDirectories(std::initializer_list<const char*> directories) const {
    CommandLine commandLine;
    commandLine.userName = "alice";
    for (const char* directory : directories)
      commandLine.configDirectories.push_back(at(directory));
    return commandLine;
  }

  TemporaryDirectory root_;
  std::optional<std::string> oldBases_;
};

TEST_F(ConfigurationSearchTest, ExplicitPathIsTakenUncheckedAndUnsearched) {
  writeFile(at("dirA/users.json"), "{}");
  CommandLine commandLine = withDirectories({"dirA"});
  commandLine.usersPath = at("missing/users.json");
  EXPECT_EQ(findConfigurationFile(commandLine, "users.json", selectUsersPath),
            at("missing/users.json"));
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(resolveUserConfigurationFile(commandLine), at("missing/users.json"));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Using user configuration file \"" + at("missing/users.json").string() + "\"\n");
}

TEST_F(ConfigurationSearchTest, FirstConfigDirThatHoldsTheFileWins) {
  writeFile(at("dirA/users.json"), "{}");
  writeFile(at("dirB/users.json"), "{}");
  writeFile(at("baseS/Korvane/Config/users.json"), "{}");
  EXPECT_EQ(findConfigurationFile(withDirectories({"dirA", "dirB"}), "users.json", selectUsersPath),
            at("dirA/users.json"));
  EXPECT_EQ(findConfigurationFile(withDirectories({"dirB", "dirA"}), "users.json", selectUsersPath),
            at("dirB/users.json"));
}

TEST_F(ConfigurationSearchTest, ConfigDirWinsOverStandardLocations) {
  writeFile(at("dirB/users.json"), "{}");
  writeFile(at("baseS/Korvane/Config/users.json"), "{}");
  EXPECT_EQ(findConfigurationFile(withDirectories({"dirA", "dirB"}), "users.json", selectUsersPath),
            at("dirB/users.json"));
}

TEST_F(ConfigurationSearchTest, StandardLocationsInOrder) {
  writeFile(at("baseT/Korvane/Config/users.json"), "{}");
  EXPECT_EQ(findConfigurationFile(withDirectories({"dirA"}), "users.json", selectUsersPath),
            at("baseT/Korvane/Config/users.json"));
  writeFile(at("baseS/Korvane/Config/users.json"), "{}");
  EXPECT_EQ(findConfigurationFile(withDirectories({"dirA"}), "users.json", selectUsersPath),
            at("baseS/Korvane/Config/users.json"));
}

TEST_F(ConfigurationSearchTest, ADirectoryCountsAsFound) {
  std::filesystem::create_directory(at("dirA/users.json"));
  EXPECT_EQ(findConfigurationFile(withDirectories({"dirA"}), "users.json", selectUsersPath),
            at("dirA/users.json"));
}

TEST_F(ConfigurationSearchTest, NothingFound) {
  EXPECT_EQ(findConfigurationFile(withDirectories({"dirA"}), "users.json", selectUsersPath),
            std::nullopt);
}

TEST_F(ConfigurationSearchTest, NotFoundMessageListsEveryCandidateInOrder) {
  try {
    (void)resolveUserConfigurationFile(withDirectories({"dirA", "dirB"}));
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "could not find user configuration file \"users.json\" in any of the following "
              "locations:\n- " +
                  at("dirA/users.json").string() + "\n- " + at("dirB/users.json").string() +
                  "\n- " + at("baseS/Korvane/Config/users.json").string() + "\n- " +
                  at("baseT/Korvane/Config/users.json").string());
  }
}

TEST_F(ConfigurationSearchTest, ExistingPasswordFileIsUsed) {
  writeFile(at("baseT/Korvane/Config/passwords.json"), "{}");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(resolvePasswordFile(withDirectories({})), at("baseT/Korvane/Config/passwords.json"));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Using password file \"" + at("baseT/Korvane/Config/passwords.json").string() + "\"\n");
}

TEST_F(ConfigurationSearchTest, NewPasswordFileGoesToFirstConfigDir) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(resolvePasswordFile(withDirectories({"dirB", "dirA"})), at("dirB/passwords.json"));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Will create new password file at \"" + at("dirB/passwords.json").string() + "\"\n");
}

TEST_F(ConfigurationSearchTest, NewPasswordFileGoesToFirstStandardLocationWithoutConfigDir) {
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(resolvePasswordFile(withDirectories({})), at("baseS/Korvane/Config/passwords.json"));
  (void)::testing::internal::GetCapturedStdout();
}

TEST_F(ConfigurationSearchTest, ExplicitMissingPasswordFileIsUsedNotCreatedElsewhere) {
  CommandLine commandLine = withDirectories({"dirA"});
  commandLine.passwordsPath = at("elsewhere/passwords.json");
  ::testing::internal::CaptureStdout();
  EXPECT_EQ(resolvePasswordFile(commandLine), at("elsewhere/passwords.json"));
  EXPECT_EQ(::testing::internal::GetCapturedStdout(),
            "Using password file \"" + at("elsewhere/passwords.json").string() + "\"\n");
}

TEST_F(ConfigurationSearchTest, FailingExistenceTestEndsTheSearch) {
  ::chmod(at("dirA").c_str(), 0);
  writeFile(at("dirB/users.json"), "{}");
  korvane::testing::runUnprivileged(
      [&] {
        EXPECT_THROW((void)findConfigurationFile(withDirectories({"dirA", "dirB"}), "users.json",
                                                 selectUsersPath),
                     std::filesystem::filesystem_error);
      },
      {root_.path(), at("dirA")});
  ::chmod(at("dirA").c_str(), 0700);
}

}  // namespace
}  // namespace korvane::setUserPassword
