// Every system call on the way from reading the two files to replacing the
// password file is made to fail, one at a time, with the errors a full
// disk, a failing device or a refused permission give, and with EINTR.
// An interrupted call must be made again and the run succeed; any other
// failure must end the run with one "ERROR: " line that names the operation
// and the file, without the success line, and with the password file as it
// was (or, once the new file is in place, complete and new).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "tests/hardening/Installation.h"

namespace korvane::hardening {
namespace {

using testing::ChildProcess;
using testing::ChildResult;

constexpr int userCount = 4;
constexpr int changedUser = 1;
// Enough other members to make the files span several buffers (several
// reads and writes).
constexpr int extraMembers = 4000;
// More calls of one kind than any run makes.
constexpr int maxCallIndex = 40;

struct FaultReport {
  bool fired = false;
  std::string call;
  std::string path;
  bool written = false;
  bool afterRename = false;
};

FaultReport readReport(const std::filesystem::path& path) {
  FaultReport report;
  if (!std::filesystem::exists(path)) return report;
  std::istringstream line(testing::readFile(path));
  int written = 0;
  int afterRename = 0;
  report.fired = static_cast<bool>(line >> report.call >> report.path >> written >> afterRename);
  report.written = written != 0;
  report.afterRename = afterRename != 0;
  return report;
}

// The word each kind of call leaves in the error text.
std::string operationWord(std::string_view call) {
  if (call == "fsync") return "sync";
  if (call == "ftruncate") return "truncate";
  if (call == "unlink") return "remove";
  if (call == "flock") return "lock";
  if (call == "fchmod") return "permissions";
  if (call == "fchown") return "owner";
  return std::string(call);
}

Environment faultEnvironment(const Installation& installation, std::string_view fault,
                             const std::filesystem::path& report) {
  Environment environment = isolatedEnvironment();
  environment["LD_PRELOAD"] = KORVANE_FAULT_LIBRARY;
  environment["KORVANE_FAULT"] = std::string(fault);
  environment["KORVANE_FAULT_DIR"] = installation.directory().string();
  environment["KORVANE_FAULT_REPORT"] = report.string();
  // A sanitizer runtime would insist on being loaded first.
  const char* asanOptions = std::getenv("ASAN_OPTIONS");
  environment["ASAN_OPTIONS"] = std::string(asanOptions ? asanOptions : "") +
                                (asanOptions ? ":" : "") + "verify_asan_link_order=0";
  return environment;
}

// Sets the changed user's password with `fault` (possibly none) striking.
ChildResult setPassword(const Installation& installation, std::string_view fault,
                        const std::filesystem::path& report) {
  ChildProcess::Options options;
  options.arguments = installation.arguments(changedUser, false);
  options.environment = faultEnvironment(installation, fault, report);
  options.timeout = std::chrono::seconds(60);
  ChildProcess child(programPath(), std::move(options));
  child.send(std::string(strongPassword) + "\n");
  child.closeInput();
  return child.wait();
}

struct Tally {
  int tried = 0;
  int survived = 0;
  std::map<std::string, int> triedByCall;
};

class FaultMatrix {
 public:
  FaultMatrix() : installation_(userCount) { restore(); }

  void restore() {
    installation_.removeLeftovers();
    installation_.writePasswords({0, 1, 2, 3}, extraMembers);
    before_ = testing::readFile(installation_.passwordsPath());
    std::filesystem::remove(reportPath());
  }

  std::filesystem::path reportPath() const { return reportDirectory_.path() / "report"; }

  // Runs the program with one fault; false when the fault did not strike
  // (the run made fewer such calls).
  bool runOnce(bool remove, std::string_view call, std::string_view errnoName, int index,
               Tally& tally) {
    restore();
    const std::string fault =
        std::string(call) + ":" + std::to_string(index) + ":" + std::string(errnoName);
    ChildProcess::Options options;
    options.arguments = installation_.arguments(changedUser, remove);
    options.environment = faultEnvironment(installation_, fault, reportPath());
    options.timeout = std::chrono::seconds(60);
    ChildProcess child(programPath(), std::move(options));
    child.send(std::string(strongPassword) + "\n");
    child.closeInput();
    const ChildResult result = child.wait();
    const FaultReport report = readReport(reportPath());
    const std::string context = "fault " + fault + (remove ? " (remove)" : " (set)") + " on " +
                                report.path + "\nstderr: " + result.err;
    if (!report.fired) {
      // Nothing failed: the run must simply have worked.
      EXPECT_EQ(result.exitStatus, 0) << context;
      return false;
    }
    ++tally.tried;
    ++tally.triedByCall[std::string(call)];
    const std::vector<std::string> problems = check(remove, errnoName, report, result);
    for (const std::string& problem : problems) ADD_FAILURE() << context << "\n" << problem;
    if (problems.empty()) ++tally.survived;
    return true;
  }

 private:
  std::vector<std::string> check(bool remove, std::string_view errnoName, const FaultReport& report,
                                 const ChildResult& result) {
    std::vector<std::string> problems;
    const auto require = [&](bool condition, std::string_view what) {
      if (!condition) problems.emplace_back(what);
    };
    require(!result.timedOut, "the run did not end");
    require(result.signal == 0, "the run died of a signal");
    const std::string success = remove ? "\" was removed." : "\" was updated.";
    // A descriptor that was only read, or whose file was already removed
    // (a temporary file the run threw away), loses nothing when closing it
    // fails.
    const bool harmless = errnoName == "EINTR" || (report.call == "close" && !report.written);
    if (harmless) {
      require(result.exitStatus == 0, "exit status is not 0");
      require(result.err.empty(), "standard error is not empty");
      require(result.out.find(success) != std::string::npos, "no success line");
      checkNewFile(remove, require);
      return problems;
    }
    require(result.exitStatus == 1, "exit status is not 1");
    require(result.err.starts_with("ERROR: "), "standard error does not start with ERROR: ");
    require(
        std::count(result.err.begin(), result.err.end(), '\n') == 1 && result.err.ends_with("\n"),
        "standard error is not exactly one line");
    require(result.err.find(operationWord(report.call)) != std::string::npos,
            "the error does not name the operation");
    require(result.err.find(report.path) != std::string::npos, "the error does not name the file");
    require(result.out.find(success) == std::string::npos, "a success line was printed");
    // A temporary file that could not be given its attributes is of no use
    // and goes; only what writing or moving it leaves is kept as evidence.
    if (report.call == "fchmod" || report.call == "fchown") {
      require(installation_.fileNames() == std::vector<std::string>{"passwords.json", "users.json"},
              "the temporary file was left behind");
    }
    if (report.afterRename) {
      // The new file is in place; only making that durable failed.
      checkNewFile(remove, require);
    } else {
      require(testing::readFile(installation_.passwordsPath()) == before_,
              "the password file changed");
    }
    return problems;
  }

  template <typename Require>
  void checkNewFile(bool remove, const Require& require) {
    std::vector<Installation::Entry> entries;
    try {
      entries = installation_.readEntries();
    } catch (const std::exception& error) {
      require(false, std::string("the password file does not parse: ") + error.what());
      return;
    }
    const std::size_t users = remove ? 3 : 4;
    require(entries.size() == 1 + users + extraMembers, "wrong number of entries");
    std::size_t extra = 0;
    bool changedFound = false;
    for (const auto& entry : entries) {
      if (entry.name == Installation::userUuid(changedUser)) {
        changedFound = true;
        require(hashMatches(entry.value, strongPassword), "the new hash does not verify");
      } else if (entry.name.starts_with("member-")) {
        require(entry.name == extraName(extra), "other members out of order");
        ++extra;
      } else if (entry.name != "$schema") {
        bool kept = false;
        for (const int other : {0, 2, 3}) {
          kept = kept || (entry.name == Installation::userUuid(other) &&
                          entry.value == Installation::initialHash(other));
        }
        require(kept, "unexpected or changed entry " + entry.name);
      }
    }
    require(changedFound != remove, "the changed user's entry is wrong");
    require(extra == extraMembers, "other members were lost");
  }

  static std::string extraName(std::size_t index) {
    std::string digits = std::to_string(index);
    return "member-" + std::string(5 - digits.size(), '0') + digits;
  }

  Installation installation_;
  testing::TemporaryDirectory reportDirectory_;
  std::string before_;
};

TEST(FaultInjectionTest, EveryFailingCallLeavesThePasswordFileWhole) {
  FaultMatrix matrix;
  Tally tally;
  int runs = 0;
  // Unoptimised builds run each case many times more slowly: there the
  // removal runs, which take the same write path, are left out.
#if defined(NDEBUG)
  const std::vector<bool> modes{false, true};
#else
  const std::vector<bool> modes{false};
#endif
  for (const bool remove : modes) {
    for (const char* call :
         {"open", "read", "write", "fsync", "rename", "close", "flock", "fchmod", "fchown"}) {
      for (const char* errnoName : {"ENOSPC", "EIO", "EACCES", "EINTR"}) {
        for (int index = 1; index <= maxCallIndex; ++index) {
          ++runs;
          if (!matrix.runOnce(remove, call, errnoName, index, tally)) break;
        }
      }
    }
  }
  std::cout << "fault injection: " << runs << " runs, " << tally.tried << " faults tried, "
            << tally.survived << " survived (";
  for (const auto& [call, tried] : tally.triedByCall) std::cout << ' ' << call << '=' << tried;
  std::cout << " )" << std::endl;
  ::testing::Test::RecordProperty("faultsTried", tally.tried);
  ::testing::Test::RecordProperty("faultsSurvived", tally.survived);
  // Each kind of call must actually have been reached (the owner is only
  // copied by the superuser).
  for (const char* call :
       {"open", "read", "write", "fsync", "rename", "close", "flock", "fchmod"}) {
    EXPECT_GT(tally.triedByCall[call], 0) << call;
  }
  if (::geteuid() == 0) {
    EXPECT_GT(tally.triedByCall["fchown"], 0);
  }
  EXPECT_GT(tally.tried, 100);
  EXPECT_EQ(tally.survived, tally.tried);
}

// What the call log of the fault library tells of one file.
struct FileCalls {
  int readOpens = 0;
  int writeOpens = 0;
  std::uintmax_t bytesRead = 0;
};

std::map<std::string, FileCalls> readCallLog(const std::filesystem::path& log) {
  std::map<std::string, FileCalls> calls;
  std::istringstream lines(testing::readFile(log));
  std::string line;
  while (std::getline(lines, line)) {
    // "<call> <path> <detail>", where the path may hold spaces.
    const std::size_t first = line.find(' ');
    const std::size_t last = line.rfind(' ');
    if (first == std::string::npos || last <= first) continue;
    const std::string call = line.substr(0, first);
    const std::string path = line.substr(first + 1, last - first - 1);
    const std::string detail = line.substr(last + 1);
    FileCalls& file = calls[std::filesystem::path(path).filename().string()];
    if (call == "open" && detail == "w") {
      ++file.writeOpens;
    } else if (call == "open" && detail == "r") {
      ++file.readOpens;
    } else if (call == "read") {
      file.bytesRead += std::stoull(detail);
    }
  }
  return calls;
}

// A run with redirected input makes one pass over each file: each byte of
// the user file and of the password file is read once, through one
// descriptor of each opened for reading (and one more of the password file
// for its lock), and the new password file is opened for writing once.
// Both files span several buffers. Lookups (O_PATH) are not counted. The
// program's file streams read through read(2) only, the one reading call
// the library logs.
TEST(FaultInjectionTest, EachFileIsReadOnceAndTheNewOneWrittenOnce) {
  constexpr int manyUsers = 3000;
  Installation installation(manyUsers);
  installation.writePasswords({0, 1, 2, 3}, extraMembers);
  testing::TemporaryDirectory logDirectory;
  const std::filesystem::path log = logDirectory.path() / "calls";
  const std::uintmax_t usersSize = std::filesystem::file_size(installation.usersPath());
  const std::uintmax_t passwordsSize = std::filesystem::file_size(installation.passwordsPath());
  ASSERT_GT(usersSize, 150000u);
  ASSERT_GT(passwordsSize, 150000u);

  ChildProcess::Options options;
  options.arguments = installation.arguments(changedUser, false);
  options.environment = faultEnvironment(installation, "", logDirectory.path() / "report");
  options.environment["KORVANE_CALL_LOG"] = log.string();
  options.timeout = std::chrono::seconds(60);
  ChildProcess child(programPath(), std::move(options));
  child.send(std::string(strongPassword) + "\n");
  child.closeInput();
  const ChildResult result = child.wait();
  ASSERT_EQ(result.exitStatus, 0) << result.err;

  const std::map<std::string, FileCalls> calls = readCallLog(log);
  const auto users = calls.find("users.json");
  ASSERT_NE(users, calls.end()) << testing::readFile(log);
  EXPECT_EQ(users->second.readOpens, 1);
  EXPECT_EQ(users->second.writeOpens, 0);
  EXPECT_EQ(users->second.bytesRead, usersSize);
  const auto passwords = calls.find("passwords.json");
  ASSERT_NE(passwords, calls.end()) << testing::readFile(log);
  // Once for the lock, held on the file itself, once to read it.
  EXPECT_EQ(passwords->second.readOpens, 2);
  EXPECT_EQ(passwords->second.writeOpens, 0);
  EXPECT_EQ(passwords->second.bytesRead, passwordsSize);
  int written = 0;
  for (const auto& [name, file] : calls) {
    if (file.writeOpens == 0) continue;
    EXPECT_EQ(file.writeOpens, 1) << name;
    ++written;
  }
  EXPECT_EQ(written, 1) << testing::readFile(log);
}

// Some file systems refuse a rename that must not replace (EINVAL): the
// first password file is then moved into place by a plain rename, after
// the check that no file has appeared at its name. Where a file is
// replaced, the same refusal is an error, since no other rename is safer.
TEST(FaultInjectionTest, AFirstPasswordFileIsCreatedWhereRenamingWithoutReplacingIsRefused) {
  for (const bool existing : {false, true}) {
    SCOPED_TRACE(existing ? "a file replaced" : "a first file");
    Installation installation(userCount);
    if (existing) installation.writePasswords({0, 2}, 0);
    const std::string before = existing ? testing::readFile(installation.passwordsPath()) : "";
    testing::TemporaryDirectory reportDirectory;
    const std::filesystem::path report = reportDirectory.path() / "report";
    ChildProcess::Options options;
    options.arguments = installation.arguments(changedUser, false);
    options.environment =
        faultEnvironment(installation, "rename:1:" + std::to_string(EINVAL), report);
    options.timeout = std::chrono::seconds(60);
    ChildProcess child(programPath(), std::move(options));
    child.send(std::string(strongPassword) + "\n");
    child.closeInput();
    const ChildResult result = child.wait();
    ASSERT_TRUE(readReport(report).fired);
    if (existing) {
      EXPECT_EQ(result.exitStatus, 1) << result.err;
      EXPECT_NE(result.err.find("ERROR: "), std::string::npos) << result.err;
      EXPECT_NE(result.err.find("rename"), std::string::npos) << result.err;
      EXPECT_EQ(testing::readFile(installation.passwordsPath()), before);
      continue;
    }
    EXPECT_EQ(result.exitStatus, 0) << result.err;
    const std::vector<Installation::Entry> entries = installation.readEntries();
    const auto entry = std::find_if(entries.begin(), entries.end(), [](const auto& candidate) {
      return candidate.name == Installation::userUuid(changedUser);
    });
    ASSERT_NE(entry, entries.end());
    EXPECT_TRUE(hashMatches(entry->value, strongPassword));
  }
}

// The password file is read and the new one written in one pass, yet an
// error in the file's text is the one reported when creating or writing
// the new file fails too, as when the file is read whole before writing;
// and nothing is left behind. The error is at the end of a file that spans
// many buffers, so every write of the pass comes before it is found.
TEST(FaultInjectionTest, AnErrorInTheFileComesBeforeAFailureToWriteTheNewOne) {
  Installation installation(userCount);
  testing::TemporaryDirectory reportDirectory;
  const std::filesystem::path report = reportDirectory.path() / "report";
  int struck = 0;
  for (const std::string_view call : {"open", "write"}) {
    for (int index = 1; index <= maxCallIndex; ++index) {
      installation.removeLeftovers();
      installation.writePasswords({0, 1, 2, 3}, extraMembers);
      std::string text = testing::readFile(installation.passwordsPath());
      text.insert(text.rfind('}'), ",\n  \"broken\": 1\n");
      testing::writeFile(installation.passwordsPath(), text);
      std::filesystem::remove(report);
      const std::string fault = std::string(call) + ":" + std::to_string(index) + ":ENOSPC";
      const ChildResult result = setPassword(installation, fault, report);
      const FaultReport fired = readReport(report);
      if (!fired.fired) break;
      ++struck;
      SCOPED_TRACE(fault + " on " + fired.path + "\nstderr: " + result.err);
      EXPECT_EQ(result.exitStatus, 1);
      // Failing to open the users file, the password file itself or their
      // folder on the way to them comes first; any later failure gives way
      // to the error in the text.
      const bool readingFailed = fired.path == installation.usersPath().string() ||
                                 fired.path == installation.passwordsPath().string() ||
                                 fired.path == installation.directory().string();
      if (!readingFailed) {
        EXPECT_NE(result.err.find("expected a string, found a number"), std::string::npos);
      }
      EXPECT_EQ(testing::readFile(installation.passwordsPath()), text);
      EXPECT_EQ(installation.fileNames(),
                (std::vector<std::string>{"passwords.json", "users.json"}));
    }
  }
  // Both kinds struck, the writes of the new file among them.
  EXPECT_GT(struck, 4);
}

// A password file large enough to be read ahead and written behind on
// worker threads (past its first 4 MiB) fails as a small one does, whether
// the failing call is made by the main thread or by a worker: one error
// naming the operation and the file, and the file as it was. A failure to
// write that a worker met is reported when a read fails after it (the order
// when the read failure comes to light first is held by
// PasswordFileStreamTest), and an error in the text still comes first.
TEST(FaultInjectionTest, ALargeFileFailsOnAWorkerAsOnTheMainThread) {
  constexpr int manyMembers = 250000;  // about 10 MiB
  Installation installation(userCount);
  testing::TemporaryDirectory reportDirectory;
  const std::filesystem::path report = reportDirectory.path() / "report";
  struct Case {
    std::string fault;
    std::string_view reported;  // the call the error names
    bool brokenText = false;
  };
  // Reads 1 and 2 are the users file's; 64 reads and writes of 64 KiB make
  // the first 4 MiB, the later ones are the workers'.
  const std::vector<Case> cases{
      {"read:3:EIO", "read"},       {"read:60:EIO", "read"},
      {"read:70:EIO", "read"},      {"read:90:EIO", "read"},
      {"write:5:ENOSPC", "write"},  {"write:66:ENOSPC", "write"},
      {"write:90:EIO", "write"},    {"write:66:ENOSPC,read:2:EIO", "write"},
      {"write:5:ENOSPC", "", true}, {"write:70:ENOSPC", "", true},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.fault + (test.brokenText ? " (broken text)" : ""));
    installation.removeLeftovers();
    installation.writePasswords({0, 1, 2, 3}, manyMembers);
    std::string text = testing::readFile(installation.passwordsPath());
    ASSERT_GT(text.size(), std::size_t{8} << 20);
    if (test.brokenText) {
      text.insert(text.rfind('}'), ",\n  \"broken\": 1\n");
      testing::writeFile(installation.passwordsPath(), text);
    }
    std::filesystem::remove(report);
    const ChildResult result = setPassword(installation, test.fault, report);
    const FaultReport fired = readReport(report);
    ASSERT_TRUE(fired.fired) << result.err;
    EXPECT_EQ(result.exitStatus, 1) << result.err;
    EXPECT_TRUE(result.err.starts_with("ERROR: ")) << result.err;
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    if (test.brokenText) {
      EXPECT_NE(result.err.find("expected a string, found a number"), std::string::npos)
          << result.err;
    } else {
      EXPECT_NE(result.err.find(operationWord(test.reported)), std::string::npos) << result.err;
      if (test.reported == fired.call) {
        EXPECT_NE(result.err.find(fired.path), std::string::npos) << result.err;
      }
    }
    EXPECT_EQ(result.out.find("\" was updated."), std::string::npos);
    EXPECT_EQ(testing::readFile(installation.passwordsPath()), text);
    // Only a failure to write keeps the new file, as evidence.
    if (test.reported != "write") {
      EXPECT_EQ(installation.fileNames(),
                (std::vector<std::string>{"passwords.json", "users.json"}));
    }
  }
  // And without a fault, the large file is replaced whole.
  installation.removeLeftovers();
  installation.writePasswords({0, 1, 2, 3}, manyMembers);
  const ChildResult result = setPassword(installation, "", report);
  ASSERT_EQ(result.exitStatus, 0) << result.err;
  const std::vector<Installation::Entry> entries = installation.readEntries();
  ASSERT_EQ(entries.size(), std::size_t{1 + 4 + manyMembers});
  for (const Installation::Entry& entry : entries) {
    if (entry.name == Installation::userUuid(changedUser)) {
      EXPECT_TRUE(hashMatches(entry.value, strongPassword));
    } else if (entry.name == Installation::userUuid(2)) {
      EXPECT_EQ(entry.value, Installation::initialHash(2));
    }
  }
  EXPECT_EQ(installation.fileNames(), (std::vector<std::string>{"passwords.json", "users.json"}));
}

// The replace when rename(2) cannot replace the password file: EBUSY (it is
// a mount point, as a file bind-mounted into a container) or EXDEV (another
// file system). The content is copied over the file in place; every step of
// that copy is then made to fail in turn.
class InPlaceCopyTest : public ::testing::Test {
 protected:
  InPlaceCopyTest() : installation_(userCount) {}

  struct Run {
    ChildResult result;
    FaultReport last;  // the last fault that struck
    int struck = 0;
    ino_t inodeBefore = 0;
  };

  Run run(std::string_view fault) {
    installation_.removeLeftovers();
    installation_.writePasswords({0, 1, 2, 3}, extraMembers);
    ::chmod(installation_.passwordsPath().c_str(), 0640);
    before_ = testing::readFile(installation_.passwordsPath());
    std::filesystem::remove(reportPath());
    Run run;
    run.inodeBefore = inode(installation_.passwordsPath());
    ChildProcess::Options options;
    options.arguments = installation_.arguments(changedUser, false);
    options.environment = faultEnvironment(installation_, fault, reportPath());
    options.timeout = std::chrono::seconds(60);
    ChildProcess child(programPath(), std::move(options));
    child.send(std::string(strongPassword) + "\n");
    child.closeInput();
    run.result = child.wait();
    if (std::filesystem::exists(reportPath())) {
      std::istringstream lines(testing::readFile(reportPath()));
      for (std::string line; std::getline(lines, line);) {
        std::istringstream fields(line);
        int written = 0;
        int afterRename = 0;
        fields >> run.last.call >> run.last.path >> written >> afterRename;
        run.last.fired = true;
        run.last.written = written != 0;
        ++run.struck;
      }
    }
    return run;
  }

  static ino_t inode(const std::filesystem::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
  }

  static unsigned mode(const std::filesystem::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
  }

  // The temporary files left in the installation.
  std::vector<std::filesystem::path> leftovers() const {
    std::vector<std::filesystem::path> paths;
    for (const std::string& name : installation_.fileNames()) {
      if (name != "users.json" && name != "passwords.json") {
        paths.push_back(installation_.directory() / name);
      }
    }
    return paths;
  }

  // Problems with `path` as the complete new password file.
  static std::string checkNewContent(const std::filesystem::path& path) {
    return checkNewPasswordFile(path, 1 + userCount + extraMembers, changedUser, strongPassword);
  }

  // The run worked: the password file is new and complete, in place (same
  // inode and mode), and nothing is left behind.
  void expectReplacedInPlace(const Run& run, const std::string& context) {
    EXPECT_EQ(run.result.exitStatus, 0) << context << "\n" << run.result.err;
    EXPECT_EQ(run.result.err, "") << context;
    EXPECT_NE(run.result.out.find("\" was updated."), std::string::npos) << context;
    EXPECT_EQ(checkNewContent(installation_.passwordsPath()), "") << context;
    EXPECT_EQ(inode(installation_.passwordsPath()), run.inodeBefore) << context;
    EXPECT_EQ(mode(installation_.passwordsPath()), 0640u) << context;
    EXPECT_TRUE(leftovers().empty()) << context;
  }

  std::filesystem::path reportPath() const { return reportDirectory_.path() / "report"; }

  Installation installation_;
  testing::TemporaryDirectory reportDirectory_;
  std::string before_;
};

TEST_F(InPlaceCopyTest, RefusedRenameIsReplacedByACopyInPlace) {
  for (const char* refusal : {"rename:1:EBUSY", "rename:1:EXDEV"}) {
    const Run result = run(refusal);
    ASSERT_EQ(result.struck, 1) << refusal;
    expectReplacedInPlace(result, refusal);
  }
}

TEST_F(InPlaceCopyTest, OtherRenameFailuresAreStillRenameErrors) {
  const Run result = run("rename:1:EACCES");
  EXPECT_EQ(result.result.exitStatus, 1);
  EXPECT_NE(result.result.err.find("rename"), std::string::npos) << result.result.err;
  EXPECT_EQ(testing::readFile(installation_.passwordsPath()), before_);
}

TEST_F(InPlaceCopyTest, EveryFailingStepOfTheCopyNamesBothFilesAndKeepsTheCompleteCopy) {
  int tried = 0;
  std::map<std::string, int> triedByCall;
  for (const char* call : {"open", "read", "write", "ftruncate", "fsync", "close", "unlink"}) {
    for (const char* errnoName : {"EIO", "ENOSPC", "EINTR"}) {
      for (int index = 1; index <= maxCallIndex; ++index) {
        const std::string fault =
            std::string("rename:1:EBUSY,") + call + ":" + std::to_string(index) + ":" + errnoName;
        const Run result = run(fault);
        const std::string context =
            fault + " on " + result.last.path + "\nstderr: " + result.result.err;
        ASSERT_GE(result.struck, 1) << context;
        // Nothing more failed, or only an interrupted call (made again), or
        // closing the read-only temporary file: the copy worked.
        const bool harmless = result.struck == 1 || std::string_view(errnoName) == "EINTR" ||
                              (result.last.call == "close" && !result.last.written);
        if (harmless) {
          expectReplacedInPlace(result, context);
          if (result.struck == 1) break;
          continue;
        }
        ++tried;
        ++triedByCall[call];
        const ChildResult& r = result.result;
        EXPECT_EQ(r.exitStatus, 1) << context;
        EXPECT_TRUE(r.err.starts_with("ERROR: ")) << context;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << context;
        EXPECT_NE(r.err.find(operationWord(result.last.call)), std::string::npos) << context;
        EXPECT_NE(r.err.find(result.last.path), std::string::npos) << context;
        EXPECT_EQ(r.out.find("\" was updated."), std::string::npos) << context;
        EXPECT_EQ(inode(installation_.passwordsPath()), result.inodeBefore) << context;
        EXPECT_EQ(mode(installation_.passwordsPath()), 0640u) << context;
        const std::vector<std::filesystem::path> left = leftovers();
        ASSERT_EQ(left.size(), 1u) << context;
        const std::filesystem::path& temporary = left.front();
        EXPECT_EQ(checkNewContent(temporary), "") << context;
        const std::string target = "\"" + installation_.passwordsPath().string() + "\"";
        const std::string complete = "\"" + temporary.string() + "\"";
        EXPECT_NE(r.err.find(target), std::string::npos) << context;
        EXPECT_NE(r.err.find(complete), std::string::npos) << context;
        if (std::string_view(call) == "unlink") {
          // Only the removal of the copy failed: the new file is in place.
          EXPECT_NE(r.err.find("(the new file is in place)"), std::string::npos) << context;
          EXPECT_EQ(checkNewContent(installation_.passwordsPath()), "") << context;
        } else {
          EXPECT_NE(r.err.find(target + " may be incomplete, the complete new file remains at " +
                               complete),
                    std::string::npos)
              << context;
        }
      }
    }
  }
  for (const char* call : {"open", "read", "write", "ftruncate", "fsync", "close", "unlink"}) {
    EXPECT_GT(triedByCall[call], 0) << call;
  }
  std::cout << "in-place copy faults tried: " << tried << std::endl;
}

}  // namespace
}  // namespace korvane::hardening
