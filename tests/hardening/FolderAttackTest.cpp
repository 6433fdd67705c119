// Attacks by another account on a run of root: the installation's folder
// belongs to the user nobody (as a service's own folder would), root runs
// the program on it, and nobody, playing the attacker, changes the folder
// at the moments that matter: while root types the password (the program
// waits at its prompt on a pseudo-terminal), or between the re-read of the
// password file and its replace (a preloaded library holds the program
// there until the test lets it go). The victims are root's own files in a
// folder only root can write. Every moment is chosen by the test; nothing
// depends on a sleep.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/hardening/Attacker.h"
#include "tests/hardening/Installation.h"
#include "tests/hardening/ServiceFolderTest.h"

namespace korvane::hardening {
namespace {

using Clock = std::chrono::steady_clock;
using testing::ChildProcess;
using testing::ChildResult;
using testing::readFile;
using testing::TemporaryDirectory;
using testing::writeFile;

class FolderAttackTest : public ServiceFolderTest {
 protected:
  // The program at a console, waiting at its first prompt.
  std::unique_ptr<ChildProcess> startAtPrompt(std::vector<std::string> arguments) const {
    ChildProcess::Options console = options(std::move(arguments));
    console.input = ChildProcess::Stream::terminal;
    console.output = ChildProcess::Stream::terminal;
    auto child = std::make_unique<ChildProcess>(programPath(), std::move(console));
    EXPECT_TRUE(child->expect("Password: ")) << child->output();
    return child;
  }
  static void typePasswordTwice(ChildProcess& child) {
    child.send(std::string(strongPassword) + "\r");
    EXPECT_TRUE(child.expect("Repeat password: ")) << child.output();
    child.send(std::string(strongPassword) + "\r");
  }
};

// While root types, the attacker puts a FIFO at the password file's name
// and keeps writing to it, then swaps in a link to root's script before it
// closes the FIFO: a run that reads the FIFO reads the attacker's JSON for
// as long as the attacker wants and then replaces whatever the name leads
// to by then. The FIFO is refused without a read.
TEST_F(FolderAttackTest, AFifoAndThenALinkSwappedInWhileRootTypesAreRefused) {
  auto tool = startAtPrompt(configDirArguments());
  const auto fifo = folder() / "attack.fifo";
  const auto link = folder() / "attack.link";
  int writer = -1;
  Attacker attacker(
      [&] {
        mustSucceed(::mkfifo(fifo.c_str(), 0666), "mkfifo");
        writer = ::open(fifo.c_str(), O_RDWR);
        const std::string json = "{\"$(id > /tmp/korvane-owned)\": \"x\"}";
        if (::write(writer, json.data(), json.size()) < 0) std::perror("write");
        mustSucceed(::rename(fifo.c_str(), passwords().c_str()), "rename the FIFO");
        mustSucceed(::symlink(victim().c_str(), link.c_str()), "symlink");
      },
      [&] {
        mustSucceed(::rename(link.c_str(), passwords().c_str()), "rename the link");
        ::close(writer);
      });
  ASSERT_TRUE(attacker.ready());
  typePasswordTwice(*tool);
  // A run that reads the FIFO waits for its end, which the attacker brings
  // once the link is in place; a run that refuses it ends by itself.
  EXPECT_FALSE(tool->expect("was updated.", std::chrono::seconds(2)));
  EXPECT_EQ(attacker.finish(), 0);
  const ChildResult result = tool->wait();
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, "ERROR: could not open \"" + passwords().string() +
                            "\": it is a FIFO, not a regular file, and is not read\n");
  expectRootsFolderUntouched();
}

// The same with the link alone, swapped in while root types.
TEST_F(FolderAttackTest, ALinkSwappedInWhileRootTypesIsNotFollowed) {
  auto tool = startAtPrompt(configDirArguments());
  asAttacker([&] {
    const auto link = folder() / "attack.link";
    mustSucceed(::symlink(victim().c_str(), link.c_str()), "symlink");
    mustSucceed(::rename(link.c_str(), passwords().c_str()), "rename the link");
  });
  typePasswordTwice(*tool);
  const ChildResult result = tool->wait();
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, "ERROR: \"" + passwords().string() +
                            "\" was changed or replaced by another program during the run; "
                            "nothing was replaced\n");
  expectRootsFolderUntouched();
}

// A dangling link planted before the run would make root create a file of
// the attacker's choosing (a file in sudoers.d, /etc/nologin).
TEST_F(FolderAttackTest, ADanglingLinkPlantedBeforehandCreatesNothing) {
  std::filesystem::remove(passwords());
  const auto planted = rootOnly_.path() / "created-by-root";
  asAttacker([&] { mustSucceed(::symlink(planted.c_str(), passwords().c_str()), "symlink"); });
  const ChildResult result = runRedirected();
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, "ERROR: the symbolic link \"" + passwords().string() +
                            "\" is in the folder \"" + folder().string() +
                            "\", which another account than root and the account running this "
                            "program can write, and is not followed; name the real password file "
                            "with -Passwords\n");
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(planted)));
  expectRootsFolderUntouched();
  EXPECT_TRUE(std::filesystem::is_symlink(passwords()));
}

// Links that root made in a folder only root can write keep working: the
// file they point to is replaced.
TEST_F(FolderAttackTest, ALinkOfRootIsStillFollowed) {
  const auto real = rootOnly_.path() / "passwords.json";
  const auto link = rootOnly_.path() / "link.json";
  std::filesystem::rename(passwords(), real);
  std::filesystem::create_symlink(real, link);
  const ChildResult result =
      runRedirected(options({"-Users", installation_.usersPath().string(), "-Passwords",
                             link.string(), Installation::userName(0)}));
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(checkNewPasswordFile(real, 4, 0, strongPassword), "");
}

// A file whose access control list lets one more account read it keeps
// that list, and its group gets no more than before.
TEST_F(FolderAttackTest, TheAccessControlListIsKeptAndTheGroupGetsNothing) {
  ASSERT_EQ(::chmod(passwords().c_str(), 0600), 0);
  const std::string grant = "setfacl -m u:nobody:r \"" + passwords().string() + "\" 2>/dev/null";
  if (std::system(grant.c_str()) != 0)
    KORVANE_SKIP_OR_FAIL_UNDER_CI("no access control lists here");
  const ChildResult result = runRedirected();
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(checkNewPasswordFile(passwords(), 4, 0, strongPassword), "");
  const std::string list = "getfacl -cp \"" + passwords().string() + "\"";
  FILE* pipe = ::popen(list.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string acl;
  char line[256];
  while (std::fgets(line, sizeof line, pipe) != nullptr) acl += line;
  ::pclose(pipe);
  EXPECT_NE(acl.find("user:nobody:r--"), std::string::npos) << acl;
  EXPECT_NE(acl.find("group::---"), std::string::npos) << acl;
  EXPECT_NE(acl.find("other::---"), std::string::npos) << acl;
}

// The folder's owner gives itself a default access control list on the
// folder: every file made there would let it read the hashes.
TEST_F(FolderAttackTest, AFolderDefaultAccessControlListGrantsNothing) {
  std::filesystem::remove(passwords());
  asAttacker([&] {
    const std::string grant = "setfacl -d -m u:nobody:rw \"" + folder().string() + "\" 2>/dev/null";
    // Written down for the test, which cannot see the attacker's memory.
    if (std::system(grant.c_str()) == 0) writeFile(folder() / "granted", "");
  });
  if (!std::filesystem::exists(folder() / "granted"))
    KORVANE_SKIP_OR_FAIL_UNDER_CI("no access control lists here");
  std::filesystem::remove(folder() / "granted");
  for (int run = 0; run < 2; ++run) {  // a new file, then its replacement
    SCOPED_TRACE(run);
    const ChildResult result = runRedirected();
    ASSERT_EQ(result.exitStatus, 0) << result.err;
    EXPECT_EQ(::listxattr(passwords().c_str(), nullptr, 0), 0) << "the file has an access list";
    struct stat status {};
    ASSERT_EQ(::stat(passwords().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
  }
}

// The lock is on the password file, which only those who may read it can
// take; root must not wait for ever even for them.
TEST_F(FolderAttackTest, ALockHeldForEverEndsTheRunWithAnError) {
  Attacker holder(
      [&] {
        const int fd = ::open(passwords().c_str(), O_RDONLY);
        mustSucceed(::flock(fd, LOCK_EX), "flock");
      },
      [] {}, Account{0, 0});
  ASSERT_TRUE(holder.ready());
  const auto start = Clock::now();
  const ChildResult result = runRedirected();
  EXPECT_FALSE(result.timedOut) << "still waiting for the lock";
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, "ERROR: could not lock the file \"" + passwords().string() +
                            "\": another process has held its lock for 10 seconds; nothing was "
                            "written, try again when it has finished\n");
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(20));
  EXPECT_EQ(readFile(passwords()), original_);
  EXPECT_EQ(installation_.fileNames(), (std::vector<std::string>{"passwords.json", "users.json"}));
}

// The folder on the way is swapped for a link to root's folder while root
// types: the change still goes into the folder that was read.
TEST_F(FolderAttackTest, AFolderSwappedForALinkWhileRootTypesIsNotFollowed) {
  const auto inner = folder() / "config";
  std::filesystem::create_directory(inner);
  std::filesystem::rename(passwords(), inner / "passwords.json");
  ASSERT_EQ(::chown(inner.c_str(), nobody, nogroup), 0);
  const auto rootsPasswords = rootOnly_.path() / "passwords.json";
  writeFile(rootsPasswords, original_);
  auto tool = startAtPrompt({"-Users", installation_.usersPath().string(), "-Passwords",
                             (inner / "passwords.json").string(), Installation::userName(0)});
  asAttacker([&] {
    mustSucceed(::rename(inner.c_str(), (folder() / "moved").c_str()), "rename the folder");
    mustSucceed(::symlink(rootOnly_.path().c_str(), inner.c_str()), "symlink");
  });
  typePasswordTwice(*tool);
  const ChildResult result = tool->wait();
  EXPECT_EQ(result.exitStatus, 0) << result.out;
  EXPECT_EQ(readFile(rootsPasswords), original_) << "root's folder was written";
  EXPECT_EQ(checkNewPasswordFile(folder() / "moved" / "passwords.json", 4, 0, strongPassword), "");
  std::filesystem::remove(rootsPasswords);
  expectRootsFolderUntouched();
}

// A hard link to a file of root's: only the name in the folder is
// replaced, never the file it shares with root's folder.
TEST_F(FolderAttackTest, AHardLinkReplacesOnlyTheName) {
  const auto rootsPasswords = rootOnly_.path() / "passwords.json";
  writeFile(rootsPasswords, original_);
  std::filesystem::remove(passwords());
  std::filesystem::create_hard_link(rootsPasswords, passwords());
  const ChildResult result = runRedirected();
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(readFile(rootsPasswords), original_);
  EXPECT_EQ(checkNewPasswordFile(passwords(), 4, 0, strongPassword), "");
}

// Another regular file takes the password file's place after the re-read
// and before the rename: the program is held at the sync of its temporary
// file, the attacker swaps, and the program goes on.
TEST_F(FolderAttackTest, AFileSwappedBetweenTheReadAndTheRenameIsNotReplaced) {
  TemporaryDirectory control;
  const auto report = control.path() / "report";
  const auto resume = control.path() / "resume";
  ASSERT_EQ(::mkfifo(resume.c_str(), 0600), 0);
  ChildProcess::Options held = options(configDirArguments());
  held.environment["LD_PRELOAD"] = KORVANE_FAULT_LIBRARY;
  held.environment["KORVANE_FAULT"] = "fsync:1:PAUSE";
  held.environment["KORVANE_FAULT_DIR"] = folder().string();
  held.environment["KORVANE_FAULT_REPORT"] = report.string();
  held.environment["KORVANE_FAULT_RESUME"] = resume.string();
  held.environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
  ChildProcess tool(programPath(), std::move(held));
  tool.send(std::string(strongPassword) + "\n");
  tool.closeInput();
  const auto deadline = Clock::now() + std::chrono::seconds(30);
  while (!std::filesystem::exists(report) && Clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(std::filesystem::exists(report)) << "the run never reached its sync";
  const std::string swapped = "{\"$schema\": \"the attacker's\"}";
  asAttacker([&] {
    const auto other = folder() / "other.json";
    writeFile(other, swapped);
    mustSucceed(::rename(other.c_str(), passwords().c_str()), "rename");
  });
  const int go = ::open(resume.c_str(), O_WRONLY);
  ASSERT_GE(go, 0);
  ASSERT_EQ(::write(go, "G", 1), 1);
  ::close(go);
  const ChildResult result = tool.wait();
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, "ERROR: \"" + passwords().string() +
                            "\" was changed or replaced by another program during the run; "
                            "nothing was replaced\n");
  EXPECT_EQ(readFile(passwords()), swapped);
  // The file written for the file that was read is of no use.
  EXPECT_EQ(installation_.fileNames(), (std::vector<std::string>{"passwords.json", "users.json"}));
}

}  // namespace
}  // namespace korvane::hardening
