#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "tests/support/ChildProcess.h"
#include "tests/support/Unprivileged.h"
#include "utils/filesystem/FileExists.h"

namespace korvane::utils::filesystem {
namespace {

using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

// fileExists(`path`) must throw filesystem_error for "exists" naming `path`,
// shown as `shown`, with `code`.
void expectExistsError(const std::filesystem::path& path, std::errc code,
                       const std::string& shown) {
  try {
    const bool exists = fileExists(path);
    ADD_FAILURE() << "no error, the answer was " << exists;
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_EQ(error.code(), code);
    EXPECT_TRUE(error.path1().empty());
    EXPECT_TRUE(error.path2().empty());
    const std::string what = error.what();
    EXPECT_EQ(what.find('\x1b'), std::string::npos) << what;
    EXPECT_NE(what.find("exists \"" + shown + "\": " + std::make_error_code(code).message()),
              std::string::npos)
        << what;
  }
}

void expectExistsError(const std::filesystem::path& path, std::errc code) {
  expectExistsError(path, code, path.string());
}

TEST(FileExistsTest, AnswersForFilesDirectoriesAndMissingPaths) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "file";
  writeFile(file, "x");
  EXPECT_TRUE(fileExists(file));
  EXPECT_TRUE(fileExists(directory.path()));
  EXPECT_FALSE(fileExists(directory.path() / "missing"));
  EXPECT_FALSE(fileExists(file / "below-a-file"));  // ENOTDIR
}

TEST(FileExistsTest, AMissingParentMeansFalse) {
  TemporaryDirectory directory;
  EXPECT_FALSE(fileExists(directory.path() / "missing" / "users.json"));
  EXPECT_FALSE(fileExists(directory.path() / "missing" / "deeper" / "users.json"));
  EXPECT_FALSE(fileExists(""));
}

TEST(FileExistsTest, AnEmptyFileAndAFifoExist) {
  TemporaryDirectory directory;
  const auto empty = directory.path() / "empty";
  const auto fifo = directory.path() / "fifo";
  writeFile(empty, "");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_TRUE(fileExists(empty));
  EXPECT_TRUE(fileExists(fifo));
}

TEST(FileExistsTest, FollowsSymbolicLinks) {
  TemporaryDirectory directory;
  const auto target = directory.path() / "target";
  std::filesystem::create_symlink(target, directory.path() / "link");
  EXPECT_FALSE(fileExists(directory.path() / "link"));
  writeFile(target, "x");
  EXPECT_TRUE(fileExists(directory.path() / "link"));
}

TEST(FileExistsTest, ALinkLoopIsAnError) {
  TemporaryDirectory directory;
  const auto first = directory.path() / "first";
  const auto second = directory.path() / "second";
  std::filesystem::create_symlink(second, first);
  std::filesystem::create_symlink(first, second);
  expectExistsError(first, std::errc::too_many_symbolic_link_levels);
}

TEST(FileExistsTest, TheErrorShowsControlCharactersAndNonUtf8BytesAsHex) {
  TemporaryDirectory directory;
  const auto first = directory.path() / "loop\x1b]0;owned\x07\xff";
  const auto second = directory.path() / "second";
  std::filesystem::create_symlink(second, first);
  std::filesystem::create_symlink(first, second);
  expectExistsError(first, std::errc::too_many_symbolic_link_levels,
                    (directory.path() / "loop\\x1b]0;owned\\x07\\xff").string());
}

TEST(FileExistsTest, AParentThatMayNotBeSearchedIsAnError) {
  TemporaryDirectory directory;
  const auto closed = directory.path() / "closed";
  std::filesystem::create_directory(closed);
  writeFile(closed / "users.json", "{}");
  ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
  korvane::testing::runUnprivileged(
      [&] {
        expectExistsError(closed / "users.json", std::errc::permission_denied);
        expectExistsError(closed / "missing.json", std::errc::permission_denied);
        // The folder itself can still be looked at.
        EXPECT_TRUE(fileExists(closed));
      },
      {directory.path()});
  ::chmod(closed.c_str(), 0700);
}

}  // namespace
}  // namespace korvane::utils::filesystem
