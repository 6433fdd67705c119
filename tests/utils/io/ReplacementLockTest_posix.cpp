#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <system_error>

#include "tests/support/ChildProcess.h"
#include "tests/support/Unprivileged.h"
#include "utils/io/ReplacementLock.h"

namespace korvane::utils::io {
namespace {

using korvane::testing::runUnprivileged;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;
using namespace std::chrono_literals;

// The lock of the folder that `file` resolves to.
struct TargetLock {
  explicit TargetLock(const std::filesystem::path& file) : target(file), lock(target) {}
  ReplacementTarget target;
  ReplacementLock lock;
};

// Whether another holder could take the lock on `path` (a folder or a
// file) right now: an exclusive flock(2) on a descriptor of its own, given
// up at once. The lock is per open file, so this also sees a lock held by
// this process.
bool isFree(const std::filesystem::path& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  EXPECT_GE(fd, 0) << path;
  if (fd < 0) return false;
  const int result = ::flock(fd, LOCK_EX | LOCK_NB);
  const int error = errno;
  ::close(fd);
  EXPECT_TRUE(result == 0 || error == EWOULDBLOCK) << std::strerror(error);
  return result == 0;
}

std::set<std::string> namesIn(const std::filesystem::path& directory) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.insert(entry.path().filename().string());
  }
  return names;
}

// A process that takes the ReplacementLock for a file. It reports 'L' on
// its pipe once it holds the lock ('E' when taking it threw), holds it
// until told to release it, then destroys it and exits with 0.
class LockHolder {
 public:
  explicit LockHolder(const std::filesystem::path& file) {
    int report[2];
    int release[2];
    EXPECT_EQ(::pipe2(report, O_CLOEXEC), 0);
    EXPECT_EQ(::pipe2(release, O_CLOEXEC), 0);
    std::fflush(nullptr);
    pid_ = ::fork();
    if (pid_ == 0) {
      ::close(report[0]);
      ::close(release[1]);
      holdAndExit(file, report[1], release[0]);
    }
    EXPECT_GT(pid_, 0);
    ::close(report[1]);
    ::close(release[0]);
    reportFd_ = report[0];
    releaseFd_ = release[1];
  }

  ~LockHolder() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      (void)wait();
    }
    if (reportFd_ >= 0) ::close(reportFd_);
    if (releaseFd_ >= 0) ::close(releaseFd_);
  }
  LockHolder(const LockHolder&) = delete;
  LockHolder& operator=(const LockHolder&) = delete;

  // The holder's report, or nothing when none came within `timeout`.
  std::optional<char> report(std::chrono::milliseconds timeout) {
    pollfd entry{reportFd_, POLLIN, 0};
    if (::poll(&entry, 1, static_cast<int>(timeout.count())) != 1) return std::nullopt;
    char byte = 0;
    if (::read(reportFd_, &byte, 1) != 1) return std::nullopt;
    return byte;
  }

  // A byte, not the end of input: a holder forked later shares the pipe.
  void release() { EXPECT_EQ(::write(releaseFd_, "R", 1), 1); }

  void kill() { ::kill(pid_, SIGKILL); }

  // The holder's exit status, or -1 when it did not exit normally.
  int wait() {
    int status = 0;
    const pid_t reaped = ::waitpid(pid_, &status, 0);
    pid_ = -1;
    return reaped > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  [[noreturn]] static void holdAndExit(const std::filesystem::path& file, int reportFd,
                                       int releaseFd) {
    try {
      const TargetLock lock(file);
      if (::write(reportFd, "L", 1) != 1) ::_exit(3);
      char byte = 0;
      // The release byte or the end of the pipe: either ends the hold.
      [[maybe_unused]] const ssize_t got = ::read(releaseFd, &byte, 1);
    } catch (...) {
      // Exit status 2 reports the failure when the byte cannot.
      [[maybe_unused]] const ssize_t written = ::write(reportFd, "E", 1);
      ::_exit(2);
    }
    ::_exit(0);
  }

  pid_t pid_ = -1;
  int reportFd_ = -1;
  int releaseFd_ = -1;
};

TEST(ReplacementLockTest, WithoutAFileLocksTheFolderUntilDestroyed) {
  TemporaryDirectory directory;
  ASSERT_TRUE(isFree(directory.path()));
  {
    const TargetLock lock(directory.path() / "passwords.json");
    EXPECT_FALSE(isFree(directory.path()));
  }
  EXPECT_TRUE(isFree(directory.path()));
}

TEST(ReplacementLockTest, TakenAgainAfterRelease) {
  TemporaryDirectory directory;
  { const TargetLock lock(directory.path() / "passwords.json"); }
  ASSERT_TRUE(isFree(directory.path()));
  {
    const TargetLock lock(directory.path() / "passwords.json");
    EXPECT_FALSE(isFree(directory.path()));
  }
  EXPECT_TRUE(isFree(directory.path()));
}

TEST(ReplacementLockTest, CreatesNoFile) {
  TemporaryDirectory directory;
  writeFile(directory.path() / "users.json", "{}");
  {
    const TargetLock lock(directory.path() / "passwords.json");
    EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"users.json"});
  }
  EXPECT_EQ(namesIn(directory.path()), std::set<std::string>{"users.json"});
}

TEST(ReplacementLockTest, ARelativeFileLocksTheWorkingDirectory) {
  TemporaryDirectory directory;
  const auto previous = std::filesystem::current_path();
  std::filesystem::current_path(directory.path());
  {
    const TargetLock lock("passwords.json");
    EXPECT_FALSE(isFree(directory.path()));
  }
  std::filesystem::current_path(previous);
  EXPECT_TRUE(isFree(directory.path()));
}

TEST(ReplacementLockTest, AMissingFolderNeedsNoLock) {
  TemporaryDirectory directory;
  writeFile(directory.path() / "file", "x");
  EXPECT_NO_THROW(TargetLock(directory.path() / "missing" / "passwords.json"));
  EXPECT_NO_THROW(TargetLock(directory.path() / "file" / "passwords.json"));
  EXPECT_FALSE(std::filesystem::exists(directory.path() / "missing"));
  EXPECT_TRUE(std::filesystem::is_regular_file(directory.path() / "file"));
}

TEST(ReplacementLockTest, AFolderThatCannotBeOpenedIsAnError) {
  TemporaryDirectory directory;
  const auto closed = directory.path() / "closed";
  std::filesystem::create_directory(closed);
  ASSERT_EQ(::chmod(closed.c_str(), 0), 0);
  runUnprivileged(
      [&] {
        try {
          const TargetLock lock(closed / "passwords.json");
          FAIL() << "no error";
        } catch (const std::system_error& error) {
          EXPECT_EQ(error.code(), std::errc::permission_denied);
          EXPECT_EQ(
              std::string(error.what()),
              "could not open \"" + (closed / "passwords.json").string() + "\": Permission denied");
        }
      },
      {directory.path()});
  ::chmod(closed.c_str(), 0700);
}

TEST(ReplacementLockTest, HeldByAnotherProcessUntilItReleases) {
  TemporaryDirectory directory;
  LockHolder holder(directory.path() / "passwords.json");
  ASSERT_EQ(holder.report(10s), 'L');
  EXPECT_FALSE(isFree(directory.path()));
  holder.release();
  EXPECT_EQ(holder.wait(), 0);
  EXPECT_TRUE(isFree(directory.path()));
}

TEST(ReplacementLockTest, TwoHoldersExcludeEachOther) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "passwords.json";
  LockHolder first(file);
  ASSERT_EQ(first.report(10s), 'L');
  LockHolder second(file);
  // The second waits as long as the first holds the lock; any report
  // during that time would be a failure.
  EXPECT_EQ(second.report(300ms), std::nullopt) << "both held the lock";
  first.release();
  EXPECT_EQ(first.wait(), 0);
  EXPECT_EQ(second.report(10s), 'L');
  EXPECT_FALSE(isFree(directory.path()));
  second.release();
  EXPECT_EQ(second.wait(), 0);
  EXPECT_TRUE(isFree(directory.path()));
}

TEST(ReplacementLockTest, FilesNotYetMadeInOneFolderShareTheLock) {
  TemporaryDirectory directory;
  LockHolder holder(directory.path() / "passwords.json");
  ASSERT_EQ(holder.report(10s), 'L');
  LockHolder other(directory.path() / "other.json");
  EXPECT_EQ(other.report(300ms), std::nullopt) << "both held the lock";
  holder.release();
  EXPECT_EQ(other.report(10s), 'L');
}

// With a file at the name, the file itself is locked, so that only an
// account that can read it can hold up a run; the folder stays free.
TEST(ReplacementLockTest, AnExistingFileIsLockedItselfNotItsFolder) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "passwords.json";
  writeFile(file, "{}");
  {
    const TargetLock lock(file);
    EXPECT_FALSE(isFree(file));
    EXPECT_TRUE(isFree(directory.path()));
  }
  EXPECT_TRUE(isFree(file));
}

// Another run replaced the file while this one waited for its lock: the
// lock on the replaced file is worth nothing, the new file is locked.
TEST(ReplacementLockTest, AFileReplacedWhileWaitingIsTheOneLocked) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "passwords.json";
  writeFile(file, "old");
  LockHolder first(file);
  ASSERT_EQ(first.report(10s), 'L');
  LockHolder second(file);
  EXPECT_EQ(second.report(300ms), std::nullopt) << "both held the lock";
  writeFile(directory.path() / "new", "new");
  std::filesystem::rename(directory.path() / "new", file);
  first.release();
  EXPECT_EQ(first.wait(), 0);
  ASSERT_EQ(second.report(10s), 'L');
  EXPECT_FALSE(isFree(file)) << "the new file is not locked";
  second.release();
  EXPECT_EQ(second.wait(), 0);
}

// A file made while a run waited for the folder: it is the file that the
// run locks in the end, as every later run will.
TEST(ReplacementLockTest, AFileMadeWhileWaitingForTheFolderIsTheOneLocked) {
  TemporaryDirectory directory;
  const auto file = directory.path() / "passwords.json";
  LockHolder first(file);
  ASSERT_EQ(first.report(10s), 'L');
  LockHolder second(file);
  EXPECT_EQ(second.report(300ms), std::nullopt) << "both held the lock";
  writeFile(file, "made");
  first.release();
  EXPECT_EQ(first.wait(), 0);
  ASSERT_EQ(second.report(10s), 'L');
  EXPECT_FALSE(isFree(file)) << "the file is not locked";
  EXPECT_TRUE(isFree(directory.path()));
  second.release();
  EXPECT_EQ(second.wait(), 0);
}

TEST(ReplacementLockTest, ALockHeldForEverIsWaitedForAtMostTheLongestWait) {
  TemporaryDirectory directory;
  // Anyone who can open the folder can hold its lock.
  const int fd = ::open(directory.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(::flock(fd, LOCK_EX), 0);
  const auto start = std::chrono::steady_clock::now();
  try {
    const TargetLock lock(directory.path() / "passwords.json");
    FAIL() << "taken while held";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "could not lock the folder \"" + directory.path().string() +
                  "\": another process has held its lock for 10 seconds; nothing was written, "
                  "try again when it has finished");
  }
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_GE(waited, ReplacementLock::longestWait);
  EXPECT_LT(waited, ReplacementLock::longestWait + 5s);
  ::close(fd);
  EXPECT_TRUE(isFree(directory.path()));
}

TEST(ReplacementLockTest, GoesAwayWhenItsProcessIsKilled) {
  TemporaryDirectory directory;
  LockHolder holder(directory.path() / "passwords.json");
  ASSERT_EQ(holder.report(10s), 'L');
  ASSERT_FALSE(isFree(directory.path()));
  holder.kill();
  EXPECT_EQ(holder.wait(), -1);
  EXPECT_TRUE(isFree(directory.path()));
}

}  // namespace
}  // namespace korvane::utils::io
