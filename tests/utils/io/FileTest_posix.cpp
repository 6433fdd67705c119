#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "tests/support/ChildProcess.h"
#include "utils/io/File.h"

namespace korvane::utils::io {
namespace {

using korvane::testing::readFile;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

bool isOpenDescriptor(File::NativeHandle handle) {
  return ::fcntl(static_cast<int>(handle), F_GETFD) != -1;
}

// Opening with createNew must fail on `path` with "file exists", naming it.
void expectFileExists(const std::filesystem::path& path) {
  try {
    File file(path, File::Access::createNew);
    FAIL() << "created over something that was there";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::file_exists);
    EXPECT_EQ(std::string(error.what()), "could not open \"" + path.string() + "\": File exists");
  }
}

TEST(FileTest, CreateNewMakesAFileWithTheGivenMode) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "new";
  const mode_t oldMask = ::umask(0);
  {
    File file(path, File::Access::createNew,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
    file.write(std::string_view("content"));
    file.close();
  }
  ::umask(oldMask);
  EXPECT_EQ(readFile(path), "content");
  struct stat status {};
  ASSERT_EQ(::lstat(path.c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST(FileTest, CreateNewRefusesAnExistingFileAndLeavesItAlone) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "taken";
  writeFile(path, "precious");
  expectFileExists(path);
  EXPECT_EQ(readFile(path), "precious");
}

TEST(FileTest, CreateNewNeverFollowsALink) {
  TemporaryDirectory directory;
  const auto victim = directory.path() / "victim";
  const auto link = directory.path() / "link";
  writeFile(victim, "precious");
  std::filesystem::create_symlink(victim, link);
  expectFileExists(link);
  EXPECT_EQ(readFile(victim), "precious");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST(FileTest, CreateNewNeverCreatesThroughADanglingLink) {
  TemporaryDirectory directory;
  const auto missing = directory.path() / "missing";
  const auto link = directory.path() / "link";
  std::filesystem::create_symlink(missing, link);
  expectFileExists(link);
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(missing)));
}

TEST(FileTest, CreateOrTruncateStillEmptiesAnExistingFile) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "file";
  writeFile(path, "old content");
  File file(path, File::Access::createOrTruncate);
  file.close();
  EXPECT_EQ(readFile(path), "");
}

TEST(FileTest, MoveConstructionTakesTheFileOver) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "file";
  File first(path, File::Access::createNew);
  const File::NativeHandle handle = first.nativeHandle();
  File second(std::move(first));
  EXPECT_FALSE(first.isOpen());  // NOLINT(bugprone-use-after-move): tested on purpose
  ASSERT_TRUE(second.isOpen());
  EXPECT_EQ(second.nativeHandle(), handle);
  EXPECT_EQ(second.path(), path);
  second.write(std::string_view("moved"));
  second.close();
  EXPECT_EQ(readFile(path), "moved");
}

TEST(FileTest, MoveAssignmentClosesTheFileItHeld) {
  TemporaryDirectory directory;
  File target(directory.path() / "a", File::Access::createNew);
  const File::NativeHandle replaced = target.nativeHandle();
  File source(directory.path() / "b", File::Access::createNew);
  const File::NativeHandle taken = source.nativeHandle();
  target = std::move(source);
  EXPECT_FALSE(isOpenDescriptor(replaced));
  EXPECT_EQ(target.nativeHandle(), taken);
  EXPECT_EQ(target.path(), directory.path() / "b");
  EXPECT_TRUE(isOpenDescriptor(taken));
}

TEST(FileTest, DestructorClosesOwnedFilesOnly) {
  TemporaryDirectory directory;
  File::NativeHandle handle = 0;
  {
    const File file(directory.path() / "file", File::Access::createNew);
    handle = file.nativeHandle();
    EXPECT_TRUE(isOpenDescriptor(handle));
  }
  EXPECT_FALSE(isOpenDescriptor(handle));
  {
    File standardError(File::PseudoFile::standardError);
    File moved(std::move(standardError));
  }
  EXPECT_TRUE(isOpenDescriptor(2));
}

TEST(FileTest, ARegularFileIsReadAgainAfterRewind) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "text";
  writeFile(path, "abcdef");
  File file(path, File::Access::read);
  EXPECT_TRUE(file.isRegularFile());
  char head[4] = {};
  ASSERT_EQ(file.read(head), 4u);
  file.rewind();
  char all[8] = {};
  ASSERT_EQ(file.read(all), 6u);
  EXPECT_EQ(std::string(all, 6), "abcdef");
}

TEST(FileTest, AFifoIsNoRegularFileAndCannotBeRewound) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "fifo";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  File file(path, File::Access::read);
  EXPECT_FALSE(file.isRegularFile());
  try {
    file.rewind();
    FAIL() << "rewound a FIFO";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::invalid_seek);
    EXPECT_TRUE(
        std::string(error.what()).starts_with("could not rewind \"" + path.string() + "\": "))
        << error.what();
  }
}

}  // namespace
}  // namespace korvane::utils::io
