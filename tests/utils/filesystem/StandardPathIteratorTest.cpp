#include "utils/filesystem/StandardPathIterator.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/Unprivileged.h"
#include "utils/filesystem/FileExists.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::filesystem {
namespace {

class ScopedEnvironment {
 public:
  ScopedEnvironment(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    if (value) {
      ::setenv(name, value->c_str(), 1);
    } else {
      ::unsetenv(name);
    }
  }
  ~ScopedEnvironment() {
    if (old_) {
      ::setenv(name_, old_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

std::vector<std::string> configurationBases() {
  std::vector<std::string> bases;
  for (StandardPathIterator it(StandardPath::configuration); it != std::default_sentinel; ++it) {
    bases.push_back(it->string());
  }
  return bases;
}

using Bases = std::vector<std::string>;

TEST(StandardPathIteratorTest, DefaultsToEtcXdg) {
  ScopedEnvironment unset("XDG_CONFIG_DIRS", std::nullopt);
  EXPECT_EQ(configurationBases(), Bases{"/etc/xdg"});
  ScopedEnvironment empty("XDG_CONFIG_DIRS", "");
  EXPECT_EQ(configurationBases(), Bases{"/etc/xdg"});
}

TEST(StandardPathIteratorTest, FollowsXdgConfigDirsInOrder) {
  ScopedEnvironment set("XDG_CONFIG_DIRS", "/opt/a:/etc/b::/c");
  EXPECT_EQ(configurationBases(), (Bases{"/opt/a", "/etc/b", "/c"}));
}

TEST(StandardPathIteratorTest, IgnoresRelativeEntries) {
  ScopedEnvironment set("XDG_CONFIG_DIRS", "relative:./x:/abs");
  EXPECT_EQ(configurationBases(), Bases{"/abs"});
  ScopedEnvironment onlyRelative("XDG_CONFIG_DIRS", "relative:.");
  EXPECT_EQ(configurationBases(), Bases{"/etc/xdg"});
}

TEST(StandardPathIteratorTest, NeverEmpty) {
  ScopedEnvironment set("XDG_CONFIG_DIRS", ":::");
  StandardPathIterator it(StandardPath::configuration);
  EXPECT_FALSE(it == std::default_sentinel);
  EXPECT_EQ(it->string(), "/etc/xdg");
}

TEST(PrintablePathTest, KeepsTheNativeForm) {
  EXPECT_EQ(toPrintable("/a/b\\c d/\xC3\xA9.json"), "/a/b\\c d/\xC3\xA9.json");
  EXPECT_EQ(toPrintable("relative/x"), "relative/x");
}

TEST(FileExistsTest, AnswersForFilesDirectoriesAndMissingPaths) {
  korvane::testing::TemporaryDirectory directory;
  const auto file = directory.path() / "file";
  korvane::testing::writeFile(file, "x");
  EXPECT_TRUE(fileExists(file));
  EXPECT_TRUE(fileExists(directory.path()));
  EXPECT_FALSE(fileExists(directory.path() / "missing"));
  EXPECT_FALSE(fileExists(file / "below-a-file"));  // ENOTDIR
}

TEST(FileExistsTest, FollowsSymbolicLinks) {
  korvane::testing::TemporaryDirectory directory;
  const auto target = directory.path() / "target";
  std::filesystem::create_symlink(target, directory.path() / "link");
  EXPECT_FALSE(fileExists(directory.path() / "link"));
  korvane::testing::writeFile(target, "x");
  EXPECT_TRUE(fileExists(directory.path() / "link"));
}

TEST(FileExistsTest, OtherFailuresAreThrown) {
  korvane::testing::TemporaryDirectory directory;
  const auto closed = directory.path() / "closed";
  std::filesystem::create_directory(closed);
  ::chmod(closed.c_str(), 0);
  korvane::testing::runUnprivileged(
      [&] {
        try {
          (void)fileExists(closed / "users.json");
          FAIL() << "no error";
        } catch (const std::filesystem::filesystem_error& error) {
          EXPECT_EQ(error.code(), std::errc::permission_denied);
          EXPECT_NE(std::string(error.what()).find("exists"), std::string::npos);
        }
      },
      {directory.path()});
  ::chmod(closed.c_str(), 0700);
}

}  // namespace
}  // namespace korvane::utils::filesystem
