#include "utils/io/FileReplacement.h"

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <system_error>

#include "tests/support/ChildProcess.h"
#include "tests/support/Unprivileged.h"
#include "utils/io/File.h"

namespace korvane::utils::io {
namespace {

using korvane::testing::readFile;
using korvane::testing::runUnprivileged;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

struct stat statusOf(const std::filesystem::path& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

mode_t modeOf(const std::filesystem::path& path) { return statusOf(path).st_mode & 07777; }

mode_t modeOf(const File& file) {
  struct stat status {};
  EXPECT_EQ(::fstat(static_cast<int>(file.nativeHandle()), &status), 0);
  return status.st_mode & 07777;
}

// A fresh directory on another file system than `near`, removed with its
// content when the object goes; empty when no such directory can be made.
class ForeignDirectory {
 public:
  explicit ForeignDirectory(const std::filesystem::path& near) {
    struct stat nearStatus {};
    if (::stat(near.c_str(), &nearStatus) != 0) return;
    for (const char* base : {"/dev/shm", "/run/shm", "/tmp", "/var/tmp"}) {
      struct stat baseStatus {};
      if (::stat(base, &baseStatus) != 0 || baseStatus.st_dev == nearStatus.st_dev ||
          ::access(base, W_OK) != 0) {
        continue;
      }
      std::string pattern = std::string(base) + "/korvane-test-XXXXXX";
      if (::mkdtemp(pattern.data()) != nullptr) {
        path_ = pattern;
        return;
      }
    }
  }
  ~ForeignDirectory() {
    if (path_.empty()) return;
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  ForeignDirectory(const ForeignDirectory&) = delete;
  ForeignDirectory& operator=(const ForeignDirectory&) = delete;

  bool available() const noexcept { return !path_.empty(); }
  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

constexpr const char* noForeignFileSystem =
    "no writable folder on another file system than the temporary one";

// A temporary file as the password file's writer makes it.
File createTemporary(const std::filesystem::path& path) {
  return File(path, File::Access::createNew);
}

// Content of `size` bytes that differs from position to position.
std::string patterned(std::size_t size) {
  std::string content(size, '\0');
  for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>('a' + i % 23);
  return content;
}

std::string quoted(const std::filesystem::path& path) { return "\"" + path.string() + "\""; }

// --- resolveReplacementTarget ---

TEST(FileReplacementTest, AFileAFolderOrAMissingPathIsItsOwnTarget) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "passwords.json";
  writeFile(file, "{}");
  EXPECT_EQ(resolveReplacementTarget(file), file);
  EXPECT_EQ(resolveReplacementTarget(directory.path()), directory.path());
  EXPECT_EQ(resolveReplacementTarget(directory.path() / "missing.json"),
            directory.path() / "missing.json");
  EXPECT_EQ(resolveReplacementTarget(file / "below-a-file"), file / "below-a-file");
}

TEST(FileReplacementTest, FollowsAnAbsoluteLink) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "data" / "passwords.json";
  const auto link = directory.path() / "passwords.json";
  std::filesystem::create_directory(directory.path() / "data");
  writeFile(file, "{}");
  std::filesystem::create_symlink(file, link);
  EXPECT_EQ(resolveReplacementTarget(link), file);
}

TEST(FileReplacementTest, FollowsARelativeLinkFromTheLinksOwnFolder) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "config");
  std::filesystem::create_directory(directory.path() / "data");
  writeFile(directory.path() / "data" / "passwords.json", "{}");
  const auto link = directory.path() / "config" / "passwords.json";
  std::filesystem::create_symlink("../data/passwords.json", link);
  // Not from the working directory, which is elsewhere.
  const auto target = resolveReplacementTarget(link);
  EXPECT_EQ(target, directory.path() / "config" / "../data/passwords.json");
  EXPECT_TRUE(std::filesystem::equivalent(target, directory.path() / "data" / "passwords.json"));
}

TEST(FileReplacementTest, FollowsAChainOfLinksToAMissingEnd) {
  TemporaryDirectory directory;
  const auto end = directory.path() / "missing.json";
  std::filesystem::create_symlink(end, directory.path() / "second");
  std::filesystem::create_symlink("second", directory.path() / "first");
  EXPECT_EQ(resolveReplacementTarget(directory.path() / "first"), end);
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(end)));
}

TEST(FileReplacementTest, FollowsAsManyLinksAsTheSystemDoes) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "passwords.json";
  writeFile(file, "{}");
  // link1 -> file, link2 -> link1, ... link41 -> link40.
  std::filesystem::path previous = file;
  for (int i = 1; i <= 41; ++i) {
    const auto link = directory.path() / ("link" + std::to_string(i));
    std::filesystem::create_symlink(previous.filename(), link);
    previous = link;
  }
  EXPECT_EQ(resolveReplacementTarget(directory.path() / "link40"), file);
  try {
    (void)resolveReplacementTarget(directory.path() / "link41");
    FAIL() << "41 links were followed";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_symbolic_link_levels);
  }
}

TEST(FileReplacementTest, ALinkLoopIsAnErrorNamingThePath) {
  TemporaryDirectory directory;
  const auto first = directory.path() / "first";
  std::filesystem::create_symlink("second", first);
  std::filesystem::create_symlink("first", directory.path() / "second");
  try {
    (void)resolveReplacementTarget(first);
    FAIL() << "no error";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_symbolic_link_levels);
    EXPECT_EQ(std::string(error.what()), "could not follow the links of " + quoted(first) +
                                             ": Too many levels of symbolic links");
  }
}

TEST(FileReplacementTest, AFolderThatMayNotBeSearchedIsAnErrorWhenResolving) {
  TemporaryDirectory directory;
  const auto closed = directory.path() / "closed";
  std::filesystem::create_directory(closed);
  ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
  runUnprivileged(
      [&] {
        try {
          (void)resolveReplacementTarget(closed / "passwords.json");
          FAIL() << "no error";
        } catch (const std::system_error& error) {
          EXPECT_EQ(error.code(), std::errc::permission_denied);
          EXPECT_EQ(std::string(error.what()), "could not read the attributes of " +
                                                   quoted(closed / "passwords.json") +
                                                   ": Permission denied");
        }
      },
      {directory.path()});
  ::chmod(closed.c_str(), 0700);
}

// --- copyAttributesForReplacement ---

TEST(FileReplacementTest, TheTemporaryFileTakesTheTargetsMode) {
  TemporaryDirectory directory;
  const auto target = directory.path() / "passwords.json";
  writeFile(target, "{}");
  for (const mode_t mode : std::array<mode_t, 5>{0640, 0604, 0400, 0755, 04750}) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(::chmod(target.c_str(), mode), 0);
    const auto temporary = directory.path() / "passwords.json.tmp";
    File file = createTemporary(temporary);
    copyAttributesForReplacement(file, target);
    EXPECT_EQ(modeOf(file), mode);
    EXPECT_EQ(modeOf(temporary), mode);
    file.close();
    std::filesystem::remove(temporary);
  }
}

TEST(FileReplacementTest, ANewPasswordFileIsReadableByItsOwnerOnly) {
  TemporaryDirectory directory;
  const mode_t oldMask = ::umask(0);
  File file = createTemporary(directory.path() / "passwords.json.tmp");
  ::umask(oldMask);
  ASSERT_EQ(modeOf(file), 0644u);
  copyAttributesForReplacement(file, directory.path() / "passwords.json");
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "passwords.json"));
}

TEST(FileReplacementTest, TheSuperuserGivesItTheTargetsOwnerAndGroupAndThenTheMode) {
  if (::geteuid() != 0) GTEST_SKIP() << "only the superuser can give a file to another user";
  TemporaryDirectory directory;
  const auto target = directory.path() / "passwords.json";
  writeFile(target, "{}");
  ASSERT_EQ(::chown(target.c_str(), 65534, 65534), 0);
  // Set-user-ID survives only when the mode is set after the owner.
  ASSERT_EQ(::chmod(target.c_str(), 04750), 0);
  File file = createTemporary(directory.path() / "passwords.json.tmp");
  copyAttributesForReplacement(file, target);
  const struct stat status = statusOf(directory.path() / "passwords.json.tmp");
  EXPECT_EQ(status.st_uid, 65534u);
  EXPECT_EQ(status.st_gid, 65534u);
  EXPECT_EQ(status.st_mode & 07777, 04750u);
}

TEST(FileReplacementTest, AnOrdinaryUserKeepsTheFileAndTakesOnlyTheMode) {
  TemporaryDirectory directory;
  const auto target = directory.path() / "passwords.json";
  writeFile(target, "{}");
  ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
  runUnprivileged(
      [&] {
        const auto temporary = directory.path() / "passwords.json.tmp";
        File file = createTemporary(temporary);
        copyAttributesForReplacement(file, target);
        const struct stat status = statusOf(temporary);
        EXPECT_EQ(status.st_uid, ::geteuid());
        EXPECT_EQ(status.st_gid, ::getegid());
        EXPECT_EQ(status.st_mode & 07777, 0640u);
      },
      {directory.path()});
}

TEST(FileReplacementTest, TargetAttributesThatCannotBeReadAreAnError) {
  TemporaryDirectory directory;
  const auto closed = directory.path() / "closed";
  std::filesystem::create_directory(closed);
  writeFile(closed / "passwords.json", "{}");
  ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
  runUnprivileged(
      [&] {
        File file = createTemporary(directory.path() / "passwords.json.tmp");
        const mode_t before = modeOf(file);
        try {
          copyAttributesForReplacement(file, closed / "passwords.json");
          FAIL() << "no error";
        } catch (const std::system_error& error) {
          EXPECT_EQ(error.code(), std::errc::permission_denied);
          EXPECT_EQ(std::string(error.what()), "could not read the attributes of " +
                                                   quoted(closed / "passwords.json") +
                                                   ": Permission denied");
        }
        EXPECT_EQ(modeOf(file), before);
      },
      {directory.path()});
  ::chmod(closed.c_str(), 0700);
}

// --- replaceFile ---

TEST(FileReplacementTest, RenamesTheNewFileOverTheTarget) {
  TemporaryDirectory directory;
  const auto from = directory.path() / "passwords.json.tmp";
  const auto to = directory.path() / "passwords.json";
  writeFile(from, "new");
  writeFile(to, "the old and longer content");
  const ino_t newInode = statusOf(from).st_ino;
  replaceFile(from, to);
  EXPECT_EQ(readFile(to), "new");
  EXPECT_EQ(statusOf(to).st_ino, newInode) << "not moved but copied";
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(from)));
}

TEST(FileReplacementTest, CreatesAMissingTarget) {
  TemporaryDirectory directory;
  const auto from = directory.path() / "passwords.json.tmp";
  const auto to = directory.path() / "passwords.json";
  writeFile(from, "{}\n");
  replaceFile(from, to);
  EXPECT_EQ(readFile(to), "{}\n");
  EXPECT_FALSE(std::filesystem::exists(from));
}

TEST(FileReplacementTest, ARelativeTargetIsReplacedInTheWorkingDirectory) {
  TemporaryDirectory directory;
  const auto previous = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  writeFile("passwords.json.tmp", "new");
  writeFile("passwords.json", "old");
  EXPECT_NO_THROW(replaceFile("passwords.json.tmp", "passwords.json"));
  std::filesystem::current_path(previous);
  EXPECT_EQ(readFile(directory.path() / "passwords.json"), "new");
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "passwords.json.tmp"));
}

TEST(FileReplacementTest, ReplacingTheResolvedTargetKeepsTheLink) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "data");
  const auto file = directory.path() / "data" / "passwords.json";
  const auto link = directory.path() / "passwords.json";
  writeFile(file, "old");
  std::filesystem::create_symlink("data/passwords.json", link);
  const auto target = resolveReplacementTarget(link);
  const auto from = target.parent_path() / "passwords.json.tmp";
  writeFile(from, "new");
  replaceFile(from, target);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::read_symlink(link), "data/passwords.json");
  EXPECT_EQ(readFile(link), "new");
  EXPECT_EQ(readFile(file), "new");
}

TEST(FileReplacementTest, AFailedRenameNamesBothFiles) {
  TemporaryDirectory directory;
  const auto from = directory.path() / "missing.tmp";
  const auto to = directory.path() / "passwords.json";
  writeFile(to, "old");
  try {
    replaceFile(from, to);
    FAIL() << "no error";
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
    EXPECT_EQ(error.path1(), from);
    EXPECT_EQ(error.path2(), to);
    EXPECT_EQ(std::string(error.what()), "filesystem error: rename: No such file or directory [" +
                                             from.string() + "] [" + to.string() + "]");
  }
  EXPECT_EQ(readFile(to), "old");
}

TEST(FileReplacementTest, AFolderIsNotReplaced) {
  TemporaryDirectory directory;
  const auto from = directory.path() / "passwords.json.tmp";
  const auto to = directory.path() / "passwords.json";
  writeFile(from, "new");
  std::filesystem::create_directory(to);
  writeFile(to / "inside", "kept");
  try {
    replaceFile(from, to);
    FAIL() << "no error";
  } catch (const std::filesystem::filesystem_error& error) {
    EXPECT_EQ(error.code(), std::errc::is_a_directory);
    EXPECT_EQ(error.path1(), from);
    EXPECT_EQ(error.path2(), to);
  }
  EXPECT_EQ(readFile(to / "inside"), "kept");
  EXPECT_EQ(readFile(from), "new");
}

TEST(FileReplacementTest, AFolderThatMayNotBeWrittenIsARenameError) {
  TemporaryDirectory directory;
  const auto closed = directory.path() / "closed";
  std::filesystem::create_directory(closed);
  const auto from = directory.path() / "passwords.json.tmp";
  const auto to = closed / "passwords.json";
  writeFile(to, "old");
  ASSERT_EQ(::chmod(closed.c_str(), 0555), 0);
  runUnprivileged(
      [&] {
        writeFile(from, "new");
        try {
          replaceFile(from, to);
          FAIL() << "no error";
        } catch (const std::filesystem::filesystem_error& error) {
          EXPECT_EQ(error.code(), std::errc::permission_denied);
          EXPECT_EQ(std::string(error.what()), "filesystem error: rename: Permission denied [" +
                                                   from.string() + "] [" + to.string() + "]");
        }
        EXPECT_EQ(readFile(from), "new");
        EXPECT_EQ(readFile(to), "old");
      },
      {directory.path()});
  ::chmod(closed.c_str(), 0700);
}

// --- the in-place copy, across file systems ---

TEST(FileReplacementTest, AcrossFileSystemsTheContentIsCopiedInPlace) {
  TemporaryDirectory directory;
  ForeignDirectory foreign(directory.path());
  if (!foreign.available()) GTEST_SKIP() << noForeignFileSystem;
  const auto to = directory.path() / "passwords.json";
  // Longer than the copy's buffer and not a multiple of it; then shorter
  // than what it replaces.
  for (const std::size_t size : {std::size_t{3 * 64 * 1024 + 123}, std::size_t{5}}) {
    SCOPED_TRACE(size);
    const auto from = foreign.path() / "passwords.json.tmp";
    const std::string content = patterned(size);
    writeFile(from, content);
    if (!std::filesystem::exists(to)) {
      writeFile(to, "old content");
      ASSERT_EQ(::chmod(to.c_str(), 0640), 0);
    }
    const ino_t inode = statusOf(to).st_ino;
    replaceFile(from, to);
    EXPECT_EQ(readFile(to), content);
    EXPECT_EQ(statusOf(to).st_ino, inode) << "the target was not kept";
    EXPECT_EQ(modeOf(to), 0640u);
    EXPECT_FALSE(std::filesystem::exists(from)) << "the new file was left behind";
  }
}

TEST(FileReplacementTest, AcrossFileSystemsOnlyARegularFileIsCopiedInto) {
  TemporaryDirectory directory;
  ForeignDirectory foreign(directory.path());
  if (!foreign.available()) GTEST_SKIP() << noForeignFileSystem;
  const auto from = foreign.path() / "passwords.json.tmp";
  writeFile(from, "new");
  const auto fifo = directory.path() / "fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  for (const auto& to : {fifo, directory.path() / "missing.json"}) {
    SCOPED_TRACE(to);
    try {
      replaceFile(from, to);
      FAIL() << "no error";
    } catch (const std::filesystem::filesystem_error& error) {
      EXPECT_EQ(error.code(), std::errc::cross_device_link);
      EXPECT_EQ(std::string(error.what()), "filesystem error: rename: Invalid cross-device link [" +
                                               from.string() + "] [" + to.string() + "]");
    }
    EXPECT_EQ(readFile(from), "new");
  }
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "missing.json"));
}

TEST(FileReplacementTest, AFailedCopyNamesBothFilesAndKeepsTheNewOne) {
  TemporaryDirectory directory;
  ForeignDirectory foreign(directory.path());
  if (!foreign.available()) GTEST_SKIP() << noForeignFileSystem;
  const auto from = foreign.path() / "passwords.json.tmp";
  const auto to = directory.path() / "passwords.json";
  writeFile(from, "new");
  writeFile(to, "old");
  ASSERT_EQ(::chmod(to.c_str(), 0444), 0);
  runUnprivileged(
      [&] {
        try {
          replaceFile(from, to);
          FAIL() << "no error";
        } catch (const std::system_error& error) {
          EXPECT_EQ(error.code(), std::errc::permission_denied);
          EXPECT_EQ(std::string(error.what()),
                    "could not copy " + quoted(from) + " over " + quoted(to) +
                        " in place (rename: Invalid cross-device link): " + quoted(to) +
                        " may be incomplete, the complete new file remains at " + quoted(from) +
                        "; could not open " + quoted(to) + ": Permission denied");
        }
        EXPECT_EQ(readFile(from), "new");
        EXPECT_EQ(readFile(to), "old");
      },
      {directory.path(), to, foreign.path(), from});
}

}  // namespace
}  // namespace korvane::utils::io
