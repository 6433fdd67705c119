// Attacks that steer a run of root from the folder of a service: the
// installation's folder belongs to the user nobody (the service's account,
// here the attacker), root runs the program on it, and the attacker uses
// what the folder lets it do: exchange a link of root's for its own while
// the program looks at it, plant links, FIFOs and extended attributes,
// lock the folder. Root must neither follow the attacker's text into its
// own folders, nor show it raw on its terminal, nor show what only root may
// read, nor wait for ever. Every race is forced: the preloaded
// fault-injection library holds the program at the call that matters until
// the test lets it go.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <functional>
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

// A third account: neither root, nor the service's, nor the running one.
constexpr Account bystander{65533, 65533};

// The name of an extended attribute that, shown raw, sets the terminal's
// title, erases the line, prints a false success and hides what follows.
const std::string hostileAttribute =
    "user.\x1b]0;title\x07\x1b[2K\rPassword for user \"alice\" was updated.\x1b[8m";
// The same as the program must show it.
const std::string escapedAttribute =
    "user.\\x1b]0;title\\x07\\x1b[2K\\x0dPassword for user \"alice\" was updated.\\x1b[8m";

// The refusal of a link in a folder that another account can write.
std::string untrustedFolderLinkError(const std::filesystem::path& link, const std::string& what,
                                     const std::string& option) {
  return "ERROR: the symbolic link \"" + link.string() + "\" is in the folder \"" +
         link.parent_path().string() +
         "\", which another account than root and the account running this program can write, "
         "and is not followed; name the real " +
         what + " with " + option + "\n";
}

std::string changedError(const std::filesystem::path& path) {
  return "ERROR: \"" + path.string() +
         "\" was changed or replaced by another program during the run; nothing was replaced\n";
}

// Every byte of `text` that a terminal would act on (C0 but the line feed,
// DEL), as hexadecimal; empty when there is none.
std::string controlBytes(const std::string& text) {
  std::string found;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && byte != '\n') || byte == 0x7f) {
      char hex[8];
      std::snprintf(hex, sizeof hex, " %02x", byte);
      found += hex;
    }
  }
  return found;
}

class RootSteeringTest : public ServiceFolderTest {
 protected:
  // A folder in root's folder that only root may even look into.
  std::filesystem::path hidden() {
    const auto path = rootOnly_.path() / "hidden";
    if (!std::filesystem::exists(path)) {
      std::filesystem::create_directory(path);
      EXPECT_EQ(::chmod(path.c_str(), 0700), 0);
    }
    return path;
  }

  // The options that make the preloaded library inject `fault` into calls
  // on the service's folder.
  ChildProcess::Options withFault(const std::string& fault) const {
    ChildProcess::Options faulty = options(configDirArguments());
    faulty.environment["LD_PRELOAD"] = KORVANE_FAULT_LIBRARY;
    faulty.environment["KORVANE_FAULT"] = fault;
    faulty.environment["KORVANE_FAULT_DIR"] = folder().string();
    faulty.environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
    return faulty;
  }

  // Runs the program with the password on redirected input, held at the
  // call `pause` names (a PAUSE of the library). When the run gets there,
  // `act` runs and then the run goes on; a run that ends without getting
  // there (it refused earlier) never calls it. `paused` tells which.
  ChildResult runHeldAt(const std::string& pause, const std::function<void()>& act,
                        bool& paused) const {
    TemporaryDirectory control;
    const auto report = control.path() / "report";
    const auto resume = control.path() / "resume";
    EXPECT_EQ(::mkfifo(resume.c_str(), 0600), 0);
    ChildProcess::Options held = withFault(pause);
    held.environment["KORVANE_FAULT_REPORT"] = report.string();
    held.environment["KORVANE_FAULT_RESUME"] = resume.string();
    ChildProcess tool(programPath(), std::move(held));
    tool.send(std::string(strongPassword) + "\n");
    tool.closeInput();
    // Bounded: a run that neither pauses nor ends fails the test below.
    const auto deadline = Clock::now() + std::chrono::seconds(30);
    paused = false;
    while (Clock::now() < deadline && !(paused = std::filesystem::exists(report)) &&
           tool.running()) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    if (paused) {
      act();
      const int go = ::open(resume.c_str(), O_WRONLY);
      EXPECT_GE(go, 0);
      EXPECT_EQ(::write(go, "G", 1), 1);
      ::close(go);
    }
    return tool.wait();
  }

  // `text` without the test's own folders' paths, whose random letters
  // could be taken for a leak.
  std::string withoutPaths(std::string text) const {
    for (const std::string& path : {folder().string(), rootOnly_.path().string()}) {
      std::size_t at = 0;
      while ((at = text.find(path)) != std::string::npos) text.erase(at, path.size());
    }
    return text;
  }
};

// Root's link to its real password file, checked by one lookup and read by
// another: the attacker exchanges it for its own link in between, and root
// follows the attacker's text and creates a file in its own folder. A link
// in a folder that another account can write is never followed.
TEST_F(RootSteeringTest, ALinkOfRootExchangedBeforeItIsReadIsNotFollowed) {
  const auto real = rootOnly_.path() / "passwords.json";
  std::filesystem::rename(passwords(), real);
  std::filesystem::create_symlink(real, passwords());
  const auto planted = rootOnly_.path() / "created-by-root";
  const auto attackLink = folder() / "attack.link";
  Attacker attacker([&] { mustSucceed(::symlink(planted.c_str(), attackLink.c_str()), "symlink"); },
                    [&] {
                      mustSucceed(::renameat2(AT_FDCWD, attackLink.c_str(), AT_FDCWD,
                                              passwords().c_str(), RENAME_EXCHANGE),
                                  "exchange the links");
                    });
  ASSERT_TRUE(attacker.ready());
  bool paused = false;
  const ChildResult result = runHeldAt(
      "readlink:1:PAUSE", [&] { EXPECT_EQ(attacker.finish(), 0); }, paused);
  SCOPED_TRACE(paused ? "held at the link's read" : "ended before reading a link");
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, untrustedFolderLinkError(passwords(), "password file", "-Passwords"));
  EXPECT_FALSE(std::filesystem::exists(std::filesystem::symlink_status(planted)))
      << "root created the file the attacker's link names";
  EXPECT_EQ(readFile(real), original_);
  expectRootsFolderHolds({"maintenance.sh", "passwords.json"});
}

// A trusted link is examined and read through one descriptor: a link
// exchanged for another between the two steps does not change where the
// run goes. Root itself exchanges two of its links in its own folder here,
// at the moment the run reads the link; a run that looks the name up again
// to read it would follow the other link and change the decoy.
TEST_F(RootSteeringTest, TheLinkExaminedIsTheLinkRead) {
  const auto conf = rootOnly_.path() / "conf";
  std::filesystem::create_directory(conf);
  ASSERT_EQ(::chmod(conf.c_str(), 0755), 0);
  const auto real = rootOnly_.path() / "real.json";
  const auto decoy = rootOnly_.path() / "decoy.json";
  std::filesystem::rename(passwords(), real);
  writeFile(decoy, original_);
  const auto link = conf / "passwords.json";
  const auto other = conf / "other.link";
  std::filesystem::create_symlink("../real.json", link);
  std::filesystem::create_symlink("../decoy.json", other);
  TemporaryDirectory control;
  const auto report = control.path() / "report";
  const auto resume = control.path() / "resume";
  ASSERT_EQ(::mkfifo(resume.c_str(), 0600), 0);
  ChildProcess::Options held =
      options({"-Users", users().string(), "-Passwords", link.string(), Installation::userName(0)});
  held.environment["LD_PRELOAD"] = KORVANE_FAULT_LIBRARY;
  held.environment["KORVANE_FAULT"] = "readlink:1:PAUSE";
  held.environment["KORVANE_FAULT_DIR"] = conf.string();
  held.environment["KORVANE_FAULT_REPORT"] = report.string();
  held.environment["KORVANE_FAULT_RESUME"] = resume.string();
  held.environment["ASAN_OPTIONS"] = "verify_asan_link_order=0";
  ChildProcess tool(programPath(), std::move(held));
  tool.send(std::string(strongPassword) + "\n");
  tool.closeInput();
  const auto deadline = Clock::now() + std::chrono::seconds(30);
  while (Clock::now() < deadline && !std::filesystem::exists(report) && tool.running()) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(std::filesystem::exists(report)) << "the run never read the link";
  ASSERT_EQ(::renameat2(AT_FDCWD, link.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE), 0);
  const int go = ::open(resume.c_str(), O_WRONLY);
  ASSERT_GE(go, 0);
  ASSERT_EQ(::write(go, "G", 1), 1);
  ::close(go);
  const ChildResult result = tool.wait();
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(readFile(decoy), original_) << "the run followed the link swapped in";
  EXPECT_EQ(checkNewPasswordFile(real, 4, 0, strongPassword), "");
}

// The same link without a race: in the service's folder, even root's own
// link is refused, since its account could exchange it at any moment.
TEST_F(RootSteeringTest, ALinkOfRootInTheServicesFolderIsRefused) {
  const auto real = rootOnly_.path() / "passwords.json";
  std::filesystem::rename(passwords(), real);
  std::filesystem::create_symlink(real, passwords());
  const ChildResult result = runRedirected();
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, untrustedFolderLinkError(passwords(), "password file", "-Passwords"));
  EXPECT_EQ(readFile(real), original_) << "the link was followed";
  EXPECT_TRUE(std::filesystem::is_symlink(passwords()));
}

// Where hard links are not protected, any account can give a relative link
// of root's ("../modules") a name in its own folder; followed from there,
// it leads where root never meant it to. Root makes the hard link itself
// here, which is what the kernel would let the attacker do.
TEST_F(RootSteeringTest, AHardLinkToALinkOfRootIsNotFollowed) {
  const auto rootsLink = rootOnly_.path() / "modules.conf";
  const std::string text = "../" + rootOnly_.path().filename().string() + "/created-by-root";
  std::filesystem::create_symlink(text, rootsLink);
  std::filesystem::remove(passwords());
  ASSERT_EQ(::linkat(AT_FDCWD, rootsLink.c_str(), AT_FDCWD, passwords().c_str(), 0), 0);
  struct stat status {};
  ASSERT_EQ(::lstat(passwords().c_str(), &status), 0);
  ASSERT_TRUE(S_ISLNK(status.st_mode));
  ASSERT_EQ(status.st_uid, 0u);
  const ChildResult result = runRedirected();
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, untrustedFolderLinkError(passwords(), "password file", "-Passwords"));
  EXPECT_FALSE(std::filesystem::exists(rootOnly_.path() / "created-by-root"))
      << "root created a file next to the service's folder";
  expectRootsFolderHolds({"maintenance.sh", "modules.conf"});
}

// A FIFO at the user file's name that the attacker holds open never ends:
// a run that reads it waits for ever, before any prompt.
TEST_F(RootSteeringTest, AUserFileFifoHeldOpenIsRefusedAtOnce) {
  Attacker holder([&] {
    mustSucceed(::unlink(users().c_str()), "unlink");
    mustSucceed(::mkfifo(users().c_str(), 0666), "mkfifo");
    // Never closed until the test ends: no end of file comes.
    if (::open(users().c_str(), O_RDWR) < 0) ADD_FAILURE() << "open the FIFO";
  });
  ASSERT_TRUE(holder.ready());
  ChildProcess::Options bounded = options(configDirArguments());
  bounded.timeout = std::chrono::seconds(20);
  const auto start = Clock::now();
  const ChildResult result = runRedirected(std::move(bounded));
  EXPECT_FALSE(result.timedOut) << "still reading the FIFO after 20 seconds";
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(10));
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, "ERROR: could not open \"" + users().string() +
                            "\": it is a FIFO, not a regular file, and is not read\n");
  EXPECT_EQ(readFile(passwords()), original_);
}

// The attacker's link at the user file's name to a file only root may read:
// the decoder's complaint about its first byte shows that byte.
TEST_F(RootSteeringTest, AUserFileLinkToASecretOfRootShowsNothingOfIt) {
  const auto secret = hidden() / "secret";
  writeFile(secret, "Q-root's secret\n");
  ASSERT_EQ(::chmod(secret.c_str(), 0600), 0);
  asAttacker([&] {
    mustSucceed(::unlink(users().c_str()), "unlink");
    mustSucceed(::symlink(secret.c_str(), users().c_str()), "symlink");
  });
  const ChildResult result = runRedirected();
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, untrustedFolderLinkError(users(), "user configuration file", "-Users"));
  EXPECT_EQ(withoutPaths(result.out).find('Q'), std::string::npos) << result.out;
  EXPECT_EQ(withoutPaths(result.err).find('Q'), std::string::npos) << result.err;
  EXPECT_EQ(readFile(passwords()), original_);
}

// The attacker's link at the user file's name to the program's own standard
// input: the redirected password is read as the user file, and the
// decoder's complaint shows its first character.
TEST_F(RootSteeringTest, AUserFileLinkToStandardInputShowsNothingOfThePassword) {
  // A first character that no path of the test holds.
  const std::string password = "%" + std::string(strongPassword);
  asAttacker([&] {
    mustSucceed(::unlink(users().c_str()), "unlink");
    mustSucceed(::symlink("/proc/self/fd/0", users().c_str()), "symlink");
  });
  const ChildResult result = runRedirected(options(configDirArguments()), password);
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, untrustedFolderLinkError(users(), "user configuration file", "-Users"));
  EXPECT_EQ(result.out.find('%'), std::string::npos) << result.out;
  EXPECT_EQ(result.err.find('%'), std::string::npos) << result.err;
  EXPECT_EQ(result.err.find(strongPassword.substr(0, 4)), std::string::npos) << result.err;
  EXPECT_EQ(readFile(passwords()), original_);
}

// The attacker's link at the password file's name to a path in a folder
// only root may look into: "Using password file" or "Will create new
// password file" would tell whether something is there.
TEST_F(RootSteeringTest, APasswordFileLinkDoesNotTellWhetherItsTargetExists) {
  const auto present = hidden() / "secret-exists";
  writeFile(present, "{}\n");
  ASSERT_EQ(::chmod(present.c_str(), 0600), 0);
  std::vector<ChildResult> results;
  for (const auto& target : {present, hidden() / "secret-absent"}) {
    SCOPED_TRACE(target.string());
    asAttacker([&] {
      (void)::unlink(passwords().c_str());
      mustSucceed(::symlink(target.c_str(), passwords().c_str()), "symlink");
    });
    results.push_back(runRedirected());
    const ChildResult& result = results.back();
    EXPECT_EQ(result.exitStatus, 1) << result.out;
    EXPECT_EQ(result.err, untrustedFolderLinkError(passwords(), "password file", "-Passwords"));
    EXPECT_EQ(result.out.find("Using password file"), std::string::npos) << result.out;
  }
  EXPECT_EQ(results[0].out, results[1].out) << "the output tells the two apart";
  EXPECT_EQ(readFile(present), "{}\n");
  EXPECT_FALSE(std::filesystem::exists(hidden() / "secret-absent"));
}

// The name of an extended attribute that the attacker put on its password
// file reaches root's terminal in the error about it: every control byte of
// it is shown escaped, never sent raw.
TEST_F(RootSteeringTest, AnAttributeNameReachesTheTerminalEscaped) {
  if (::setxattr(passwords().c_str(), "user.probe", "x", 1, 0) != 0 ||
      ::removexattr(passwords().c_str(), "user.probe") != 0) {
    KORVANE_SKIP_OR_FAIL_UNDER_CI("no user extended attributes here");
  }
  ASSERT_EQ(::chown(passwords().c_str(), nobody, nogroup), 0);
  asAttacker([&] {
    mustSucceed(::setxattr(passwords().c_str(), hostileAttribute.c_str(), "x", 1, 0), "setxattr");
  });
  const ChildResult result = runRedirected(withFault("getxattr:1:EIO"));
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(controlBytes(result.out), "") << result.out;
  EXPECT_EQ(controlBytes(result.err), "") << result.err;
  EXPECT_NE(result.err.find(escapedAttribute), std::string::npos) << result.err;
  EXPECT_EQ(readFile(passwords()), original_);
}

// A folder and a user name that hold control bytes: shown escaped in every
// line that names them.
TEST_F(RootSteeringTest, AFolderAndAUserNameWithControlBytesAreShownEscaped) {
  const auto configuration = rootOnly_.path() / "conf\x1b]0;x\x07";
  std::filesystem::create_directory(configuration);
  std::filesystem::copy_file(users(), configuration / "users.json");
  ChildProcess::Options named = options({"-ConfigDir", configuration.string(), "user\x1b[2K"});
  const ChildResult result = runRedirected(std::move(named));
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(controlBytes(result.out), "") << result.out;
  EXPECT_EQ(controlBytes(result.err), "") << result.err;
  EXPECT_NE((result.out + result.err).find("conf\\x1b]0;x\\x07"), std::string::npos)
      << result.out << result.err;
  EXPECT_NE(result.err.find("user\\x1b[2K"), std::string::npos) << result.err;
}

// An extended attribute listed but gone when it is read: another program
// changed the file meanwhile, and the run says so.
TEST_F(RootSteeringTest, AnAttributeThatVanishesMeansTheFileChanged) {
  if (::setxattr(passwords().c_str(), "user.note", "kept", 4, 0) != 0) {
    KORVANE_SKIP_OR_FAIL_UNDER_CI("no user extended attributes here");
  }
  const ChildResult result = runRedirected(withFault("getxattr:1:ENODATA"));
  EXPECT_EQ(result.exitStatus, 1) << result.out;
  EXPECT_EQ(result.err, changedError(passwords()));
  EXPECT_EQ(readFile(passwords()), original_);
  EXPECT_EQ(installation_.fileNames(), (std::vector<std::string>{"passwords.json", "users.json"}));
}

// Any account that can open the folder can lock it. One that cannot read
// the password file must not be able to hold up the run.
TEST_F(RootSteeringTest, ABystanderHoldingTheFolderLockCannotStopTheRun) {
  ASSERT_EQ(::chmod(passwords().c_str(), 0600), 0);
  Attacker holder(
      [&] {
        if (::open(passwords().c_str(), O_RDONLY) >= 0) ADD_FAILURE() << "it can read the file";
        const int fd = ::open(folder().c_str(), O_RDONLY | O_DIRECTORY);
        mustSucceed(::flock(fd, LOCK_EX | LOCK_NB), "flock");
      },
      [] {}, bystander);
  ASSERT_TRUE(holder.ready());
  const ChildResult result = runRedirected();
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(checkNewPasswordFile(passwords(), 4, 0, strongPassword), "");
}

}  // namespace
}  // namespace korvane::hardening
