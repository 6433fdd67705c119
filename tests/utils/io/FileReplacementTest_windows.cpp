// replaceFile on Windows: replacing and creating the target, the "rename"
// error with both paths, and a folder in the target's place.
#include "utils/io/FileReplacement.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

#include "tests/support/TemporaryDirectory_windows.h"

namespace korvane {
namespace {

using testing::TemporaryDirectory;
using testing::readText;
using testing::writeText;

TEST(FileReplacementTest, ReplacesAnExistingFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path target = directory.path() / "passwords.json";
  const std::filesystem::path temporary = directory.path() / "passwords.json.tmp";
  writeText(target, "old");
  writeText(temporary, "new");
  utils::io::replaceFile(temporary, target);
  EXPECT_EQ(readText(target), "new");
  EXPECT_FALSE(std::filesystem::exists(temporary));
}

TEST(FileReplacementTest, CreatesAMissingTarget) {
  const TemporaryDirectory directory;
  const std::filesystem::path target = directory.path() / "passwords.json";
  writeText(directory.path() / "t", "new");
  utils::io::replaceFile(directory.path() / "t", target);
  EXPECT_EQ(readText(target), "new");
}

TEST(FileReplacementTest, FailureIsARenameErrorWithBothPaths) {
  const TemporaryDirectory directory;
  const std::filesystem::path from = directory.path() / "missing.tmp";
  const std::filesystem::path to = directory.path() / "passwords.json";
  writeText(to, "old");
  try {
    utils::io::replaceFile(from, to);
    ADD_FAILURE() << "no error";
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_NE(std::string(error.what()).find("rename"), std::string::npos) << error.what();
    EXPECT_EQ(error.path1(), from);
    EXPECT_EQ(error.path2(), to);
    EXPECT_EQ(error.code().value(), ERROR_FILE_NOT_FOUND);
    EXPECT_EQ(error.code().category(), std::system_category());
  }
  EXPECT_EQ(readText(to), "old");
}

TEST(FileReplacementTest, AFolderIsNotReplaced) {
  const TemporaryDirectory directory;
  const std::filesystem::path to = directory.path() / "passwords.json";
  std::filesystem::create_directory(to);
  writeText(directory.path() / "t", "new");
  EXPECT_THROW(utils::io::replaceFile(directory.path() / "t", to),
               std::filesystem::filesystem_error);
  EXPECT_TRUE(std::filesystem::is_directory(to));
  EXPECT_EQ(readText(directory.path() / "t"), "new");
}

}  // namespace
}  // namespace korvane
