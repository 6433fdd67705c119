// fileExists on Windows: files and folders exist; "not found", "path not
// found", invalid names and unreachable shares mean false.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "tests/support/TemporaryDirectory_windows.h"
#include "utils/filesystem/FileExists.h"

namespace korvane {
namespace {

using testing::TemporaryDirectory;
using testing::writeText;

TEST(FileExistsTest, FilesAndDirectoriesExist) {
  const TemporaryDirectory directory;
  writeText(directory.path() / "users.json", "{}");
  EXPECT_TRUE(utils::filesystem::fileExists(directory.path() / "users.json"));
  EXPECT_TRUE(utils::filesystem::fileExists(directory.path()));
}

TEST(FileExistsTest, NotFoundCodesMeanFalse) {
  const TemporaryDirectory directory;
  writeText(directory.path() / "file", "x");
  // 2: file not found.
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "missing.json"));
  // 3: path not found, also below a regular file.
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "no" / "such" / "users.json"));
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "file" / "users.json"));
  // 123: invalid name.
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "bad<name>.json"));
  EXPECT_FALSE(utils::filesystem::fileExists(directory.path() / "bad?name.json"));
  // A share that cannot be reached (53 on Windows; Wine answers 3).
  EXPECT_FALSE(utils::filesystem::fileExists(L"\\\\korvane-no-such-host\\share\\users.json"));
}

}  // namespace
}  // namespace korvane
