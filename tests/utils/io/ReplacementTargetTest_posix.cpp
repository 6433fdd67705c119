#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "tests/support/SkipOrFail.h"
#include "tests/support/Unprivileged.h"
#include "utils/io/File.h"
#include "utils/io/ReplacementTarget.h"

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

std::string quoted(const std::filesystem::path& path) { return "\"" + path.string() + "\""; }

// Replaces `path` with `content` the way the password file's writer does.
void replaceWith(const std::filesystem::path& path, std::string_view content) {
  const ReplacementTarget target(path);
  ReplacedFile replaced;
  const bool present = target.open(&replaced).has_value();
  const std::optional<ReplacedFile> expected =
      present ? std::optional<ReplacedFile>(replaced) : std::nullopt;
  File file = target.createTemporary("tmp", expected);
  file.write(content);
  file.sync();
  const ReplacedFile written = ReplacementTarget::identify(file);
  file.close();
  target.replace(file.path(), written, expected);
}

// --- opening what is at the name ---

TEST(ReplacementTargetTest, OpensARegularFileAndDescribesIt) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeFile(path, "{}");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  const ReplacementTarget target(path);
  ReplacedFile replaced;
  std::optional<File> file = target.open(&replaced);
  ASSERT_TRUE(file.has_value());
  std::array<char, 8> buffer{};
  EXPECT_EQ(file->read(buffer), 2u);
  const struct stat status = statusOf(path);
  EXPECT_EQ(replaced.id, status.st_ino);
  EXPECT_EQ(replaced.volume, status.st_dev);
  EXPECT_EQ(replaced.mode, 0640u);
  EXPECT_EQ(replaced.owner, status.st_uid);
}

TEST(ReplacementTargetTest, NothingAtTheNameOpensNothing) {
  TemporaryDirectory directory;
  EXPECT_FALSE(ReplacementTarget(directory.path() / "passwords.json").open(nullptr).has_value());
  EXPECT_FALSE(ReplacementTarget(directory.path() / "no" / "passwords.json").open(nullptr));
}

TEST(ReplacementTargetTest, AnythingButARegularFileIsAnErrorNamingIt) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  const auto check = [&](const std::string& kind, const std::filesystem::path& named) {
    SCOPED_TRACE(kind);
    try {
      (void)ReplacementTarget(path).open(nullptr);
      FAIL() << "opened";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(std::string(error.what()), "could not open " + quoted(named) + ": it is " + kind +
                                               ", not a regular file, and is not read");
    }
  };
  // A FIFO with nobody at its other end: the open must not wait for one.
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  check("a FIFO", path);
  std::filesystem::remove(path);
  std::filesystem::create_directory(path);
  check("a folder", path);
  std::filesystem::remove(path);
  std::filesystem::create_symlink("/dev/null", path);
  check("a character device", "/dev/null");
}

TEST(ReplacementTargetTest, ALinkThatAppearsAfterResolvingIsNotFollowed) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeFile(path, "{}");
  writeFile(directory.path() / "other", "{\"other\":\"\"}");
  const ReplacementTarget target(path);
  std::filesystem::remove(path);
  std::filesystem::create_symlink("other", path);
  try {
    (void)target.open(nullptr);
    FAIL() << "opened";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              quoted(path) +
                  " was changed or replaced by another program during the run; nothing was "
                  "replaced");
  }
}

TEST(ReplacementTargetTest, AFolderSwappedForALinkAfterResolvingIsNotFollowed) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "config");
  std::filesystem::create_directory(directory.path() / "elsewhere");
  writeFile(directory.path() / "config" / "passwords.json", "old");
  writeFile(directory.path() / "elsewhere" / "passwords.json", "elsewhere");
  const ReplacementTarget target(directory.path() / "config" / "passwords.json");
  std::filesystem::rename(directory.path() / "config", directory.path() / "moved");
  std::filesystem::create_directory_symlink("elsewhere", directory.path() / "config");
  ReplacedFile replaced;
  std::optional<File> file = target.open(&replaced);
  ASSERT_TRUE(file.has_value());
  std::array<char, 16> buffer{};
  EXPECT_EQ(std::string(buffer.data(), file->read(buffer)), "old") << "read through the link";
}

// --- the temporary file ---

TEST(ReplacementTargetTest, TheTemporaryFileTakesTheReplacedFilesMode) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeFile(path, "{}");
  for (const mode_t mode : std::array<mode_t, 5>{0640, 0604, 0400, 0755, 04750}) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
    const ReplacementTarget target(path);
    ReplacedFile replaced;
    ASSERT_TRUE(target.open(&replaced));
    File file = target.createTemporary("tmp", replaced);
    EXPECT_EQ(file.path(), directory.path() / "passwords.json.tmp");
    EXPECT_EQ(modeOf(file), mode);
    file.close();
    std::filesystem::remove(directory.path() / "passwords.json.tmp");
  }
}

// A temporary file the run does not use is removed, but only while its name
// still refers to it: whatever another program put at that name stays.
TEST(ReplacementTargetTest, ADiscardedTemporaryFileIsRemovedUnlessItsNameWasTaken) {
  TemporaryDirectory directory;
  const ReplacementTarget target(directory.path() / "passwords.json");
  const auto temporary = directory.path() / "passwords.json.tmp";
  target.discardTemporary(target.createTemporary("tmp", std::nullopt));
  EXPECT_FALSE(std::filesystem::exists(temporary));

  File file = target.createTemporary("tmp", std::nullopt);
  std::filesystem::rename(temporary, directory.path() / "moved");
  writeFile(temporary, "planted");
  target.discardTemporary(std::move(file));
  EXPECT_EQ(readFile(temporary), "planted");
  EXPECT_TRUE(std::filesystem::exists(directory.path() / "moved"));
}

TEST(ReplacementTargetTest, ANewFileIsReadableByItsOwnerOnly) {
  TemporaryDirectory directory;
  const mode_t oldMask = ::umask(0);
  const ReplacementTarget target(directory.path() / "passwords.json");
  File file = target.createTemporary("tmp", std::nullopt);
  ::umask(oldMask);
  EXPECT_EQ(modeOf(file), 0600u);
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "passwords.json"));
}

TEST(ReplacementTargetTest, TheTemporaryFileIsCreatedExclusively) {
  TemporaryDirectory directory;
  const ReplacementTarget target(directory.path() / "passwords.json");
  const auto planted = directory.path() / "passwords.json.tmp";
  std::filesystem::create_symlink(directory.path() / "victim", planted);
  try {
    (void)target.createTemporary("tmp", std::nullopt);
    FAIL() << "created";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::file_exists);
  }
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "victim"));
}

TEST(ReplacementTargetTest, TheSuperuserGivesItTheOwnerAndGroupAndThenTheMode) {
  if (::geteuid() != 0)
    KORVANE_SKIP_OR_FAIL_UNDER_CI("only the superuser can give a file to another user");
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeFile(path, "{}");
  ASSERT_EQ(::chown(path.c_str(), 65534, 65534), 0);
  // Set-user-ID survives only when the mode is set after the owner.
  ASSERT_EQ(::chmod(path.c_str(), 04750), 0);
  const ReplacementTarget target(path);
  ReplacedFile replaced;
  ASSERT_TRUE(target.open(&replaced));
  File file = target.createTemporary("tmp", replaced);
  const struct stat status = statusOf(file.path());
  EXPECT_EQ(status.st_uid, 65534u);
  EXPECT_EQ(status.st_gid, 65534u);
  EXPECT_EQ(status.st_mode & 07777, 04750u);
}

TEST(ReplacementTargetTest, AnOrdinaryUserKeepsTheFileAndTakesOnlyTheMode) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeFile(path, "{}");
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  runUnprivileged(
      [&] {
        const ReplacementTarget target(path);
        ReplacedFile replaced;
        ASSERT_TRUE(target.open(&replaced));
        File file = target.createTemporary("tmp", replaced);
        const struct stat status = statusOf(file.path());
        EXPECT_EQ(status.st_uid, ::geteuid());
        EXPECT_EQ(status.st_gid, ::getegid());
        EXPECT_EQ(status.st_mode & 07777, 0640u);
      },
      {directory.path(), path});
}

TEST(ReplacementTargetTest, ExtendedAttributesAreCopied) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeFile(path, "{}");
  const std::string value = "kept";
  if (::setxattr(path.c_str(), "user.korvane-test", value.data(), value.size(), 0) != 0) {
    GTEST_SKIP() << "the file system keeps no user attributes";
  }
  const ReplacementTarget target(path);
  ReplacedFile replaced;
  ASSERT_TRUE(target.open(&replaced));
  File file = target.createTemporary("tmp", replaced);
  std::array<char, 16> buffer{};
  const ssize_t got =
      ::getxattr(file.path().c_str(), "user.korvane-test", buffer.data(), buffer.size());
  ASSERT_GE(got, 0);
  EXPECT_EQ(std::string(buffer.data(), static_cast<std::size_t>(got)), value);
}

TEST(ReplacementTargetTest, TheAccessControlListIsKeptAndTheGroupNotWidened) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeFile(path, "{}");
  ASSERT_EQ(::chmod(path.c_str(), 0600), 0);
  const std::string command = "setfacl -m u:nobody:r " + quoted(path) + " 2>/dev/null";
  if (std::system(command.c_str()) != 0)
    KORVANE_SKIP_OR_FAIL_UNDER_CI("no access control lists here");
  replaceWith(path, "{\"new\":\"\"}");
  EXPECT_EQ(readFile(path), "{\"new\":\"\"}");
  // The group's own bits stay empty; the mask shows as the group bits.
  const std::string listed = "getfacl -cp " + quoted(path);
  FILE* pipe = ::popen(listed.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string acl;
  std::array<char, 256> buffer{};
  while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), pipe) != nullptr) {
    acl += buffer.data();
  }
  ::pclose(pipe);
  EXPECT_NE(acl.find("user:nobody:r--"), std::string::npos) << acl;
  EXPECT_NE(acl.find("group::---"), std::string::npos) << acl;
}

// --- the replace ---

TEST(ReplacementTargetTest, RenamesTheNewFileOverTheTarget) {
  TemporaryDirectory directory;
  const auto to = directory.path() / "passwords.json";
  writeFile(to, "the old and longer content");
  replaceWith(to, "new");
  EXPECT_EQ(readFile(to), "new");
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "passwords.json.tmp"));
}

TEST(ReplacementTargetTest, CreatesAMissingTarget) {
  TemporaryDirectory directory;
  const auto to = directory.path() / "passwords.json";
  replaceWith(to, "{}\n");
  EXPECT_EQ(readFile(to), "{}\n");
  EXPECT_EQ(modeOf(to), 0600u);
}

TEST(ReplacementTargetTest, ARelativeTargetIsReplacedInTheWorkingDirectory) {
  TemporaryDirectory directory;
  const auto previous = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  writeFile("passwords.json", "old");
  EXPECT_NO_THROW(replaceWith("passwords.json", "new"));
  std::filesystem::current_path(previous);
  EXPECT_EQ(readFile(directory.path() / "passwords.json"), "new");
}

TEST(ReplacementTargetTest, ReplacingThroughALinkKeepsTheLink) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "data");
  const auto file = directory.path() / "data" / "passwords.json";
  const auto link = directory.path() / "passwords.json";
  writeFile(file, "old");
  std::filesystem::create_symlink("data/passwords.json", link);
  replaceWith(link, "new");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(std::filesystem::read_symlink(link), "data/passwords.json");
  EXPECT_EQ(readFile(file), "new");
}

TEST(ReplacementTargetTest, ADanglingLinkGetsTheNewFileWhereItPoints) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "data");
  const auto link = directory.path() / "passwords.json";
  std::filesystem::create_symlink("data/passwords.json", link);
  replaceWith(link, "new");
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(readFile(directory.path() / "data" / "passwords.json"), "new");
}

// The file written for a file that another program replaced meanwhile is
// of no use: it is removed, and the name keeps what the other put there.
TEST(ReplacementTargetTest, AFileReplacedAfterItWasReadIsNotReplaced) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeFile(path, "read");
  const ReplacementTarget target(path);
  ReplacedFile replaced;
  ASSERT_TRUE(target.open(&replaced));
  const std::string changed =
      quoted(path) +
      " was changed or replaced by another program during the run; nothing was "
      "replaced";
  // Another file takes the name: a regular file, a link to one, nothing.
  const std::vector<std::function<void()>> swaps{
      [&] {
        writeFile(directory.path() / "swapped", "swapped");
        std::filesystem::rename(directory.path() / "swapped", path);
      },
      [&] {
        std::filesystem::remove(path);
        std::filesystem::create_symlink("other", path);
      },
      [&] { std::filesystem::remove(path); }};
  for (std::size_t swap = 0; swap < swaps.size(); ++swap) {
    SCOPED_TRACE(swap);
    File file = target.createTemporary("tmp", replaced);
    file.write(std::string_view("new"));
    const ReplacedFile written = ReplacementTarget::identify(file);
    file.close();
    swaps[swap]();
    try {
      target.replace(file.path(), written, replaced);
      ADD_FAILURE() << "replaced";
    } catch (const ChangedDuringRunError& error) {
      EXPECT_EQ(std::string(error.what()), changed);
    }
    EXPECT_FALSE(std::filesystem::exists(file.path())) << "the new file was left behind";
    if (swap == 0) {
      EXPECT_EQ(readFile(path), "swapped");
    }
    if (swap == 1) {
      EXPECT_TRUE(std::filesystem::is_symlink(path));
    }
  }
}

TEST(ReplacementTargetTest, AFileThatAppearsWhereNoneWasIsNotReplaced) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  const ReplacementTarget target(path);
  ASSERT_FALSE(target.open(nullptr));
  File file = target.createTemporary("tmp", std::nullopt);
  const ReplacedFile written = ReplacementTarget::identify(file);
  file.close();
  writeFile(path, "appeared");
  EXPECT_THROW(target.replace(file.path(), written, std::nullopt), std::runtime_error);
  EXPECT_EQ(readFile(path), "appeared");
}

TEST(ReplacementTargetTest, AHardLinkedFileIsReplacedByNameOnly) {
  TemporaryDirectory directory;
  const auto elsewhere = directory.path() / "elsewhere.json";
  const auto path = directory.path() / "passwords.json";
  writeFile(elsewhere, "{}");
  std::filesystem::create_hard_link(elsewhere, path);
  replaceWith(path, "new");
  EXPECT_EQ(readFile(path), "new");
  EXPECT_EQ(readFile(elsewhere), "{}") << "the other name's file was written";
}

TEST(ReplacementTargetTest, OnlyTheTemporaryFileThatWasWrittenIsMoved) {
  TemporaryDirectory directory;
  const auto to = directory.path() / "passwords.json";
  writeFile(to, "old");
  const ReplacementTarget target(to);
  ReplacedFile replaced;
  ASSERT_TRUE(target.open(&replaced));
  File file = target.createTemporary("tmp", replaced);
  file.write(std::string_view("new"));
  const ReplacedFile written = ReplacementTarget::identify(file);
  file.close();
  const auto temporary = file.path();
  const std::string changed = quoted(temporary) +
                              " was changed or replaced by another program during the run; "
                              "nothing was replaced";
  // Gone, then another regular file, then a FIFO in its place: nothing is
  // moved, and nothing waits for the FIFO.
  std::filesystem::remove(temporary);
  const auto check = [&] {
    try {
      target.replace(temporary, written, replaced);
      FAIL() << "moved";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(std::string(error.what()), changed);
    }
    EXPECT_EQ(readFile(to), "old");
  };
  check();
  writeFile(temporary, "another");
  check();
  std::filesystem::remove(temporary);
  ASSERT_EQ(::mkfifo(temporary.c_str(), 0600), 0);
  check();
}

TEST(ReplacementTargetTest, AFolderDefaultAccessControlListIsNotInherited) {
  TemporaryDirectory directory;
  const std::string grant =
      "setfacl -d -m u:nobody:rw " + quoted(directory.path()) + " 2>/dev/null";
  if (std::system(grant.c_str()) != 0)
    KORVANE_SKIP_OR_FAIL_UNDER_CI("no access control lists here");
  const auto path = directory.path() / "passwords.json";
  const auto listed = [](const std::filesystem::path& file) {
    return ::listxattr(file.c_str(), nullptr, 0);
  };
  // A new file, and the replacement of a file without an access control
  // list, get none from the folder.
  replaceWith(path, "new");
  EXPECT_EQ(listed(path), 0) << "the new file has extended attributes";
  EXPECT_EQ(modeOf(path), 0600u);
  ASSERT_EQ(::chmod(path.c_str(), 0640), 0);
  replaceWith(path, "newer");
  EXPECT_EQ(listed(path), 0) << "the replacement has extended attributes";
  EXPECT_EQ(modeOf(path), 0640u);
}

TEST(ReplacementTargetTest, ANameThatEndsInAFolderIsNoFile) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "config");
  for (const std::string& name :
       {std::string("/"), directory.path().string() + "/config/",
        directory.path().string() + "/missing/", directory.path().string() + "/config/.."}) {
    SCOPED_TRACE(name);
    try {
      (void)ReplacementTarget(name);
      FAIL() << "resolved";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(std::string(error.what()), "could not open \"" + name +
                                               "\": it names a folder, not a regular file, and is "
                                               "not read");
    }
  }
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "missing"));
}

TEST(ReplacementTargetTest, AFolderThatMayNotBeWrittenIsAnError) {
  TemporaryDirectory directory;
  const auto closed = directory.path() / "closed";
  std::filesystem::create_directory(closed);
  const auto to = closed / "passwords.json";
  writeFile(to, "old");
  ASSERT_EQ(::chmod(closed.c_str(), 0555), 0);
  runUnprivileged(
      [&] {
        try {
          replaceWith(to, "new");
          FAIL() << "no error";
        } catch (const std::system_error& error) {
          EXPECT_EQ(error.code(), std::errc::permission_denied);
          EXPECT_EQ(
              std::string(error.what()),
              "could not open " + quoted(closed / "passwords.json.tmp") + ": Permission denied");
        }
        EXPECT_EQ(readFile(to), "old");
      },
      {directory.path()});
  ::chmod(closed.c_str(), 0700);
}

}  // namespace
}  // namespace korvane::utils::io
