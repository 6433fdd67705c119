// ResolvedPath on POSIX: how a path is resolved (links followed from where
// they are, a chain, a loop, the system's limit), which links are followed
// (only out of folders that no other account can write, whoever owns the
// link), and what is at the final name: nothing, a regular file opened for
// reading, or anything else refused without a read or a wait.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "tests/support/ChildProcess.h"
#include "tests/support/SkipOrFail.h"
#include "tests/support/Unprivileged.h"
#include "utils/io/ResolvedPath.h"

namespace korvane::utils::io {
namespace {

using korvane::testing::runUnprivileged;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

std::string quoted(const std::filesystem::path& path) { return "\"" + path.string() + "\""; }

// The path `path` resolves to.
std::filesystem::path resolved(const std::filesystem::path& path) {
  return ResolvedPath(path).path();
}

// Gives the link `link` to the user nobody, as another account would own it.
void giveToNobody(const std::filesystem::path& link) {
  ASSERT_EQ(::lchown(link.c_str(), 65534, 65534), 0) << link;
}

// --- resolving ---

TEST(ResolvedPathTest, AFileOrAMissingPathIsItsOwnTarget) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "passwords.json";
  writeFile(file, "{}");
  EXPECT_EQ(resolved(file), file);
  EXPECT_EQ(resolved(directory.path() / "missing.json"), directory.path() / "missing.json");
  EXPECT_EQ(resolved(file / "below-a-file"), file / "below-a-file");
  EXPECT_EQ(resolved(directory.path() / "no" / "such" / "passwords.json"),
            directory.path() / "no" / "such" / "passwords.json");
  EXPECT_FALSE(ResolvedPath(directory.path() / "no" / "passwords.json").folderExists());
  EXPECT_TRUE(ResolvedPath(file).folderExists());
  EXPECT_EQ(ResolvedPath(file).folderPath(), directory.path());
}

TEST(ResolvedPathTest, FollowsAnAbsoluteLink) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "data" / "passwords.json";
  const auto link = directory.path() / "passwords.json";
  std::filesystem::create_directory(directory.path() / "data");
  writeFile(file, "{}");
  std::filesystem::create_symlink(file, link);
  EXPECT_EQ(resolved(link), file);
}

TEST(ResolvedPathTest, FollowsARelativeLinkFromTheLinksOwnFolder) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "config");
  std::filesystem::create_directory(directory.path() / "data");
  writeFile(directory.path() / "data" / "passwords.json", "{}");
  const auto link = directory.path() / "config" / "passwords.json";
  std::filesystem::create_symlink("../data/passwords.json", link);
  // Not from the working directory, which is elsewhere.
  const auto target = resolved(link);
  EXPECT_EQ(target, directory.path() / "config" / "../data/passwords.json");
  EXPECT_TRUE(std::filesystem::equivalent(target, directory.path() / "data" / "passwords.json"));
}

TEST(ResolvedPathTest, FollowsALinkWhoseTextIsLongerThanAFirstRead) {
  TemporaryDirectory directory;
  writeFile(directory.path() / "passwords.json", "{}");
  // Link texts around the sizes a link is first read with.
  for (const std::size_t length : {255u, 256u, 257u, 300u, 511u, 512u, 513u, 1500u}) {
    const std::string_view name = "passwords.json";
    const std::string text = "." + std::string(length - 1 - name.size(), '/') + std::string(name);
    ASSERT_EQ(text.size(), length);
    const auto link = directory.path() / ("link" + std::to_string(length));
    std::filesystem::create_symlink(text, link);
    const auto target = resolved(link);
    EXPECT_EQ(target, directory.path() / text) << length;
    EXPECT_TRUE(std::filesystem::equivalent(target, directory.path() / "passwords.json")) << length;
  }
}

TEST(ResolvedPathTest, FollowsLinksToFoldersOnTheWay) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "data");
  std::filesystem::create_directory_symlink("data", directory.path() / "config");
  writeFile(directory.path() / "data" / "passwords.json", "{}");
  EXPECT_EQ(resolved(directory.path() / "config" / "passwords.json"),
            directory.path() / "data" / "passwords.json");
}

TEST(ResolvedPathTest, FollowsAChainOfLinksToAMissingEnd) {
  TemporaryDirectory directory;
  const auto end = directory.path() / "missing.json";
  std::filesystem::create_symlink(end, directory.path() / "second");
  std::filesystem::create_symlink("second", directory.path() / "first");
  EXPECT_EQ(resolved(directory.path() / "first"), end);
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(end)));
}

TEST(ResolvedPathTest, FollowsAsManyLinksAsTheSystemDoes) {
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
  EXPECT_EQ(resolved(directory.path() / "link40"), file);
  try {
    (void)resolved(directory.path() / "link41");
    FAIL() << "41 links were followed";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_symbolic_link_levels);
  }
}

TEST(ResolvedPathTest, ALinkLoopIsAnErrorNamingThePath) {
  TemporaryDirectory directory;
  const auto first = directory.path() / "first";
  std::filesystem::create_symlink("second", first);
  std::filesystem::create_symlink("first", directory.path() / "second");
  try {
    (void)resolved(first);
    FAIL() << "no error";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code(), std::errc::too_many_symbolic_link_levels);
    EXPECT_EQ(std::string(error.what()), "could not follow the links of " + quoted(first) +
                                             ": Too many levels of symbolic links");
  }
}

TEST(ResolvedPathTest, AFolderThatMayNotBeSearchedIsAnErrorWhenResolving) {
  TemporaryDirectory directory;
  const auto closed = directory.path() / "closed";
  std::filesystem::create_directory(closed);
  ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
  runUnprivileged(
      [&] {
        try {
          (void)resolved(closed / "passwords.json");
          FAIL() << "no error";
        } catch (const std::system_error& error) {
          EXPECT_EQ(error.code(), std::errc::permission_denied);
          EXPECT_EQ(std::string(error.what()),
                    "could not open " + quoted(closed / "passwords.json") + ": Permission denied");
        }
      },
      {directory.path()});
  ::chmod(closed.c_str(), 0700);
}

// --- links in folders that another account can write ---

// The message of a link that is not followed.
std::string untrustedLink(const std::filesystem::path& link) {
  return "the symbolic link " + quoted(link) + " is in the folder " + quoted(link.parent_path()) +
         ", which another account than root and the account running this program can write, "
         "and is not followed";
}

TEST(ResolvedPathTest, ALinkInAFolderThatOthersCanWriteIsNotFollowed) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "elsewhere";
  writeFile(file, "{}");
  const auto link = directory.path() / "passwords.json";
  std::filesystem::create_symlink(file, link);
  for (const mode_t mode : {0775U, 0757U, 0777U, 01777U}) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(::chmod(directory.path().c_str(), mode), 0);
    try {
      (void)resolved(link);
      ADD_FAILURE() << "followed";
    } catch (const UntrustedLinkError& error) {
      EXPECT_EQ(std::string(error.what()), untrustedLink(link));
    }
  }
  // Nobody else may write the folder: the same link is followed.
  ASSERT_EQ(::chmod(directory.path().c_str(), 0755), 0);
  EXPECT_EQ(resolved(link), file);
}

// Whoever owns the link: the folder's owner can rename it, or hard-link
// another account's link into its folder.
TEST(ResolvedPathTest, ALinkIsTrustedByItsFolderNotByItsOwner) {
  if (::geteuid() != 0) KORVANE_SKIP_OR_FAIL_UNDER_CI("only the superuser can give a folder away");
  TemporaryDirectory directory;
  ASSERT_EQ(::chmod(directory.path().c_str(), 0755), 0);
  const auto file = directory.path() / "elsewhere";
  writeFile(file, "{}");
  const auto folder = directory.path() / "service";
  std::filesystem::create_directory(folder);
  ASSERT_EQ(::chmod(folder.c_str(), 0755), 0);
  const auto link = folder / "passwords.json";
  std::filesystem::create_symlink(file, link);
  // Root's link in a folder of root's: followed, even when another account
  // owns the link.
  giveToNobody(link);
  EXPECT_EQ(resolved(link), file);
  // Root's link in another account's folder: not followed.
  ASSERT_EQ(::lchown(link.c_str(), 0, 0), 0);
  ASSERT_EQ(::chown(folder.c_str(), 65534, 65534), 0);
  try {
    (void)resolved(link);
    ADD_FAILURE() << "followed";
  } catch (const UntrustedLinkError& error) {
    EXPECT_EQ(std::string(error.what()), untrustedLink(link));
  }
}

TEST(ResolvedPathTest, ADanglingLinkInAFolderThatOthersCanWriteIsNotFollowed) {
  TemporaryDirectory directory;
  ASSERT_EQ(::chmod(directory.path().c_str(), 0777), 0);
  const auto link = directory.path() / "passwords.json";
  std::filesystem::create_symlink(directory.path() / "created", link);
  EXPECT_THROW((void)resolved(link), UntrustedLinkError);
  EXPECT_FALSE(
      std::filesystem::exists(std::filesystem::symlink_status(directory.path() / "created")));
}

TEST(ResolvedPathTest, ALinkOnTheWayInAFolderThatOthersCanWriteIsNotFollowed) {
  TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() / "data");
  writeFile(directory.path() / "data" / "passwords.json", "{}");
  const auto link = directory.path() / "config";
  std::filesystem::create_directory_symlink("data", link);
  ASSERT_EQ(::chmod(directory.path().c_str(), 0777), 0);
  try {
    (void)resolved(link / "passwords.json");
    ADD_FAILURE() << "followed";
  } catch (const UntrustedLinkError& error) {
    EXPECT_EQ(std::string(error.what()), untrustedLink(link));
  }
  ASSERT_EQ(::chmod(directory.path().c_str(), 0755), 0);
  EXPECT_EQ(resolved(link / "passwords.json"), directory.path() / "data" / "passwords.json");
}

TEST(ResolvedPathTest, AnOrdinaryUserFollowsItsOwnLinks) {
  TemporaryDirectory directory;
  runUnprivileged(
      [&] {
        writeFile(directory.path() / "data.json", "{}");
        std::filesystem::create_symlink("data.json", directory.path() / "passwords.json");
        EXPECT_EQ(resolved(directory.path() / "passwords.json"), directory.path() / "data.json");
      },
      {directory.path()});
}

// --- what is at the final name ---

TEST(ResolvedPathTest, NothingThereIsNoFile) {
  TemporaryDirectory directory;
  const ResolvedPath path(directory.path() / "passwords.json");
  EXPECT_TRUE(path.folderExists());
  EXPECT_FALSE(path.exists());
  EXPECT_FALSE(path.openRegularFile().has_value());
  const ResolvedPath inMissingFolder(directory.path() / "missing" / "passwords.json");
  EXPECT_FALSE(inMissingFolder.folderExists());
  EXPECT_FALSE(inMissingFolder.exists());
  EXPECT_FALSE(inMissingFolder.openRegularFile().has_value());
  EXPECT_EQ(inMissingFolder.folderPath(), directory.path() / "missing");
}

TEST(ResolvedPathTest, ARegularFileIsOpenedForReading) {
  TemporaryDirectory directory;
  writeFile(directory.path() / "users.json", "{}");
  const ResolvedPath path(directory.path() / "users.json");
  EXPECT_TRUE(path.exists());
  std::optional<File> file = path.openRegularFile();
  ASSERT_TRUE(file.has_value());
  std::array<char, 8> buffer{};
  EXPECT_EQ(file->read(buffer), 2u);
  EXPECT_EQ(file->path(), directory.path() / "users.json");
}

// A FIFO that another account holds open would make a read wait for ever,
// and whoever writes it chooses what is read: it is refused at once, and
// nothing is taken out of it.
TEST(ResolvedPathTest, AFifoIsRefusedWithoutAReadOrAWait) {
  TemporaryDirectory directory;
  const auto fifo = directory.path() / "users.json";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const int holder = ::open(fifo.c_str(), O_RDWR);
  ASSERT_GE(holder, 0);
  ASSERT_EQ(::write(holder, "{}", 2), 2);
  const ResolvedPath path(fifo);
  EXPECT_TRUE(path.exists());
  try {
    (void)path.openRegularFile();
    ADD_FAILURE() << "opened";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), "could not open " + quoted(fifo) +
                                             ": it is a FIFO, not a regular file, and is not read");
  }
  std::array<char, 4> left{};
  EXPECT_EQ(::read(holder, left.data(), left.size()), 2) << "the FIFO was read";
  ::close(holder);
}

// A device is named by the link that leads to it in a trusted folder and
// refused by its own name.
TEST(ResolvedPathTest, ADeviceIsRefusedByItsOwnName) {
  TemporaryDirectory directory;
  ASSERT_EQ(::chmod(directory.path().c_str(), 0755), 0);
  const auto link = directory.path() / "users.json";
  std::filesystem::create_symlink("/dev/zero", link);
  const ResolvedPath path(link);
  EXPECT_EQ(path.path(), "/dev/zero");
  try {
    (void)path.openRegularFile();
    ADD_FAILURE() << "opened";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "could not open \"/dev/zero\": it is a character device, not a regular file, and is "
              "not read");
  }
}

// What the resolution found is kept: a link put at the final name later is
// never followed, and says that the file changed.
TEST(ResolvedPathTest, ALinkThatAppearsLaterIsNotFollowed) {
  TemporaryDirectory directory;
  writeFile(directory.path() / "elsewhere.json", "{}");
  const auto name = directory.path() / "users.json";
  writeFile(name, "{}");
  const ResolvedPath path(name);
  std::filesystem::remove(name);
  std::filesystem::create_symlink("elsewhere.json", name);
  try {
    (void)path.openRegularFile();
    ADD_FAILURE() << "followed";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              quoted(name) +
                  " was changed or replaced by another program during the run; nothing was "
                  "replaced");
  }
}

TEST(ResolvedPathTest, AMovedResolutionKeepsTheFolder) {
  TemporaryDirectory directory;
  writeFile(directory.path() / "users.json", "{}");
  ResolvedPath first(directory.path() / "users.json");
  const ResolvedPath second(std::move(first));
  EXPECT_TRUE(second.folderExists());
  EXPECT_TRUE(second.openRegularFile().has_value());
  EXPECT_FALSE(first.folderExists());  // NOLINT(bugprone-use-after-move)
}

}  // namespace
}  // namespace korvane::utils::io
