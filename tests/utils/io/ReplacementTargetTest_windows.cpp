// ReplacementTarget on Windows: replacing and creating the target, the
// "rename" error with both paths, a folder at the name refused, and a file
// that another one took the place of between the read and the replace.
#include "utils/io/ReplacementTarget.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <system_error>

#include "tests/support/TemporaryDirectory_windows.h"

namespace korvane {
namespace {

using testing::readText;
using testing::TemporaryDirectory;
using testing::writeText;
using utils::io::File;
using utils::io::ReplacedFile;
using utils::io::ReplacementTarget;

// The file at `path` as the password file's reader sees it; closed at once.
std::optional<ReplacedFile> readAt(const ReplacementTarget& target) {
  ReplacedFile replaced;
  std::optional<File> file = target.open(&replaced);
  if (!file) return std::nullopt;
  return replaced;
}

std::filesystem::path writeTemporary(const ReplacementTarget& target,
                                     const std::optional<ReplacedFile>& replaced,
                                     std::string_view content) {
  File file = target.createTemporary("tmp", replaced);
  file.write(content);
  file.sync();
  file.close();
  return file.path();
}

TEST(ReplacementTargetTest, ReplacesAnExistingFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  writeText(path, "old");
  const ReplacementTarget target(path);
  const auto replaced = readAt(target);
  ASSERT_TRUE(replaced);
  const auto temporary = writeTemporary(target, replaced, "new");
  target.replace(temporary, replaced);
  EXPECT_EQ(readText(path), "new");
  EXPECT_FALSE(std::filesystem::exists(temporary));
}

TEST(ReplacementTargetTest, CreatesAMissingTarget) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  ASSERT_FALSE(readAt(target));
  target.replace(writeTemporary(target, std::nullopt, "new"), std::nullopt);
  EXPECT_EQ(readText(path), "new");
}

TEST(ReplacementTargetTest, FailureIsARenameErrorWithBothPaths) {
  const TemporaryDirectory directory;
  const std::filesystem::path to = directory.path() / "passwords.json";
  writeText(to, "old");
  const ReplacementTarget target(to);
  const auto replaced = readAt(target);
  const std::filesystem::path from = directory.path() / "missing.tmp";
  try {
    target.replace(from, replaced);
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

TEST(ReplacementTargetTest, AFolderAtTheNameIsRefused) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  std::filesystem::create_directory(path);
  EXPECT_THROW((void)readAt(ReplacementTarget(path)), std::runtime_error);
  EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST(ReplacementTargetTest, AFileReplacedAfterItWasReadIsNotReplaced) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  writeText(path, "read");
  const ReplacementTarget target(path);
  const auto replaced = readAt(target);
  ASSERT_TRUE(replaced);
  const auto temporary = writeTemporary(target, replaced, "new");
  writeText(directory.path() / "swapped", "swapped");
  std::filesystem::rename(directory.path() / "swapped", path);
  EXPECT_THROW(target.replace(temporary, replaced), std::runtime_error);
  EXPECT_EQ(readText(path), "swapped");
  EXPECT_EQ(readText(temporary), "new");
}

TEST(ReplacementTargetTest, AFileThatAppearsWhereNoneWasIsNotReplaced) {
  const TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  const auto temporary = writeTemporary(target, std::nullopt, "new");
  writeText(path, "appeared");
  EXPECT_THROW(target.replace(temporary, std::nullopt), std::runtime_error);
  EXPECT_EQ(readText(path), "appeared");
}

}  // namespace
}  // namespace korvane
