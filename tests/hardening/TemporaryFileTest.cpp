// Files planted at the name of the temporary file that the program will
// create: the program's random source is made predictable, a file or a
// symbolic link is put at "passwords.json.<UUID>" first, and the run must
// fail with an error naming that file, without following or truncating
// what it found there and without touching the password file.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "tests/hardening/Installation.h"

namespace korvane::hardening {
namespace {

using testing::ChildProcess;
using testing::ChildResult;

// The UUID Uuid::create() makes from random bytes that are all 0x5a (the
// version and variant bits set).
constexpr std::string_view predictableUuid = "5a5a5a5a-5a5a-4a5a-9a5a-5a5a5a5a5a5a";

class TemporaryFileTest : public ::testing::Test {
 protected:
  TemporaryFileTest() : installation_(2) {
    installation_.writePasswords({0, 1}, 10);
    before_ = testing::readFile(installation_.passwordsPath());
  }

  std::filesystem::path temporaryPath() const {
    std::filesystem::path path = installation_.passwordsPath();
    path += "." + std::string(predictableUuid);
    return path;
  }

  ChildResult run() const {
    ChildProcess::Options options;
    options.arguments = installation_.arguments(1, false);
    options.environment = isolatedEnvironment();
    options.environment["LD_PRELOAD"] = KORVANE_FIXED_RANDOM_LIBRARY;
    const char* asanOptions = std::getenv("ASAN_OPTIONS");
    options.environment["ASAN_OPTIONS"] = std::string(asanOptions ? asanOptions : "") +
                                          (asanOptions ? ":" : "") + "verify_asan_link_order=0";
    ChildProcess child(programPath(), std::move(options));
    child.send(std::string(strongPassword) + "\n");
    child.closeInput();
    return child.wait();
  }

  // The run failed because the name was taken, and changed nothing.
  void expectRefused(const ChildResult& result) const {
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.err,
              "ERROR: could not open \"" + temporaryPath().string() + "\": File exists\n");
    EXPECT_EQ(result.out.find("\" was updated."), std::string::npos);
    EXPECT_EQ(testing::readFile(installation_.passwordsPath()), before_);
  }

  Installation installation_;
  testing::TemporaryDirectory elsewhere_;
  std::string before_;
};

TEST_F(TemporaryFileTest, WithoutAPlantedFileTheRunWorks) {
  const ChildResult result = run();
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_NE(testing::readFile(installation_.passwordsPath()), before_);
  EXPECT_FALSE(std::filesystem::exists(temporaryPath()));
}

TEST_F(TemporaryFileTest, PlantedFileIsNeitherTruncatedNorUsed) {
  testing::writeFile(temporaryPath(), "planted content");
  expectRefused(run());
  EXPECT_EQ(testing::readFile(temporaryPath()), "planted content");
}

TEST_F(TemporaryFileTest, PlantedLinkIsNotFollowed) {
  const std::filesystem::path victim = elsewhere_.path() / "victim";
  testing::writeFile(victim, "victim content");
  std::filesystem::create_symlink(victim, temporaryPath());
  expectRefused(run());
  EXPECT_EQ(testing::readFile(victim), "victim content");
  EXPECT_TRUE(std::filesystem::is_symlink(temporaryPath()));
  EXPECT_EQ(std::filesystem::read_symlink(temporaryPath()), victim);
}

TEST_F(TemporaryFileTest, PlantedDanglingLinkCreatesNothing) {
  const std::filesystem::path victim = elsewhere_.path() / "created-through-the-link";
  std::filesystem::create_symlink(victim, temporaryPath());
  expectRefused(run());
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(victim)));
  EXPECT_TRUE(std::filesystem::is_symlink(temporaryPath()));
}

}  // namespace
}  // namespace korvane::hardening
