// ReplacementLock on Windows: taken by another thread after its release, a
// second holder (its own handles, naming the same file another way) waits
// for the first, on the file and on the folder when there is no file; a
// file that appears or is replaced while a run waits is the one locked in
// the end; readers are not blocked; and a lock held for ever is waited for
// only a bounded time.
#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/support/TemporaryDirectory_windows.h"
#include "utils/io/ReplacementLock.h"

namespace korvane {
namespace {

using testing::readText;
using testing::TemporaryDirectory;
using testing::writeText;
using utils::io::ReplacementLock;
using utils::io::ReplacementTarget;

// Takes and releases the lock of `file` on a thread of its own, through
// handles of its own. Returns what was thrown.
std::string takeOnAnotherThread(const std::filesystem::path& file) {
  std::string failure;
  std::thread([&] {
    try {
      const ReplacementTarget target(file);
      const ReplacementLock lock(target);
    } catch (const std::exception& error) {
      failure = error.what();
    }
  }).join();
  return failure;
}

// Whether another handle of `path` can take the byte-range lock that
// ReplacementLock takes: false while a ReplacementLock holds that file.
bool lockableByAnotherHandle(const std::filesystem::path& path) {
  const HANDLE handle = ::CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return false;
  OVERLAPPED where{};
  where.OffsetHigh = 0xFFFFFFFF;
  const bool locked =
      ::LockFileEx(handle, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &where);
  ::CloseHandle(handle);
  return locked;
}

TEST(ReplacementLockTest, TakenByAnotherThreadAfterRelease) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  for (int i = 0; i < 3; ++i) EXPECT_EQ(takeOnAnotherThread(file), "");
  {
    const ReplacementTarget target(file);
    const ReplacementLock lock(target);
  }
  EXPECT_EQ(takeOnAnotherThread(file), "");
  writeText(file, "{}");
  EXPECT_EQ(takeOnAnotherThread(file), "");
}

// The second holder waits for the first, whether or not the file exists.
void expectSecondHolderWaits(const std::filesystem::path& directory) {
  const std::filesystem::path file = directory / "passwords.json";
  std::atomic<bool> acquired{false};
  std::thread second;
  {
    const ReplacementTarget target(file);
    const ReplacementLock lock(target);
    // The path is spelled differently but names the same file.
    const std::filesystem::path sameFile = directory / "." / "PASSWORDS.JSON";
    second = std::thread([&] {
      const ReplacementTarget sameTarget(sameFile);
      const ReplacementLock secondLock(sameTarget);
      acquired = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(acquired);
  }
  second.join();
  EXPECT_TRUE(acquired);
}

TEST(ReplacementLockTest, SecondHolderWaitsForTheFirstOnTheFile) {
  const TemporaryDirectory directory;
  writeText(directory.path() / "passwords.json", "{}");
  expectSecondHolderWaits(directory.path());
}

TEST(ReplacementLockTest, SecondHolderWaitsForTheFirstOnTheFolderWhenThereIsNoFile) {
  const TemporaryDirectory directory;
  expectSecondHolderWaits(directory.path());
}

TEST(ReplacementLockTest, TheLockBlocksNoReaderOrWriterOfTheFile) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  writeText(file, "old");
  const ReplacementTarget target(file);
  const ReplacementLock lock(target);
  EXPECT_FALSE(lockableByAnotherHandle(file));
  EXPECT_EQ(readText(file), "old");
  writeText(file, "new");
  EXPECT_EQ(readText(file), "new");
}

TEST(ReplacementLockTest, AFileCreatedWhileWaitingForTheFolderIsLocked) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  std::atomic<bool> acquired{false};
  std::atomic<bool> release{false};
  std::thread second;
  {
    const ReplacementTarget target(file);
    const ReplacementLock lock(target);
    second = std::thread([&] {
      const ReplacementTarget sameTarget(file);
      const ReplacementLock secondLock(sameTarget);
      acquired = true;
      while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    writeText(file, "created");
  }
  while (!acquired) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_FALSE(lockableByAnotherHandle(file));
  release = true;
  second.join();
  EXPECT_TRUE(lockableByAnotherHandle(file));
}

TEST(ReplacementLockTest, AFileReplacedWhileWaitingIsTheOneLocked) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  writeText(file, "old");
  std::atomic<bool> acquired{false};
  std::atomic<bool> release{false};
  std::thread second;
  {
    const ReplacementTarget target(file);
    const ReplacementLock lock(target);
    second = std::thread([&] {
      const ReplacementTarget sameTarget(file);
      const ReplacementLock secondLock(sameTarget);
      acquired = true;
      while (!release) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    // Removed and made again: a rename over a file that is open fails on
    // Wine and where the rename has no POSIX semantics.
    std::filesystem::remove(file);
    writeText(file, "new");
  }
  while (!acquired) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  EXPECT_FALSE(lockableByAnotherHandle(file));
  release = true;
  second.join();
}

TEST(ReplacementLockTest, ALockHeldForEverIsWaitedForAtMostTheLongestWait) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  writeText(file, "{}");
  const ReplacementTarget target(file);
  const ReplacementLock lock(target);
  const auto start = std::chrono::steady_clock::now();
  const std::string failure = takeOnAnotherThread(file);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_NE(failure.find("could not lock the file"), std::string::npos) << failure;
  EXPECT_NE(failure.find("another process has held its lock for 10 seconds"), std::string::npos)
      << failure;
  EXPECT_GE(waited, ReplacementLock::longestWait - std::chrono::milliseconds(100));
}

}  // namespace
}  // namespace korvane
