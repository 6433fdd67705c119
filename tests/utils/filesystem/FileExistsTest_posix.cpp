#include "utils/filesystem/FileExists.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/Unprivileged.h"

namespace korvane::utils::filesystem {
namespace {

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
