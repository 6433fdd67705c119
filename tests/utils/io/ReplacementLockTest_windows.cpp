// ReplacementLock on Windows: taken by another thread after its release, a
// second holder (its own handles, naming the same file another way) waits
// for the first, whether or not the file exists; readers, writers and the
// replace are not blocked; a lock on another folder is not waited for; and
// a lock held for ever is waited for only a bounded time.
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

// The lock keeps no handle of the file: readers and writers go on, and the
// file can be replaced, even where a file held open cannot be.
TEST(ReplacementLockTest, TheLockBlocksNoReaderWriterOrReplace) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  writeText(file, "old");
  const ReplacementTarget target(file);
  const ReplacementLock lock(target);
  EXPECT_EQ(readText(file), "old");
  writeText(file, "new");
  EXPECT_EQ(readText(file), "new");
  const std::filesystem::path replacement = directory.path() / "passwords.json.new";
  writeText(replacement, "replaced");
  EXPECT_TRUE(::MoveFileExW(replacement.c_str(), file.c_str(), MOVEFILE_REPLACE_EXISTING));
  EXPECT_EQ(readText(file), "replaced");
}

// The lock stands for one folder: a run on another folder is not held up.
TEST(ReplacementLockTest, ALockOnAnotherFolderIsNotWaitedFor) {
  const TemporaryDirectory first;
  const TemporaryDirectory second;
  const ReplacementTarget target(first.path() / "passwords.json");
  const ReplacementLock lock(target);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(takeOnAnotherThread(second.path() / "passwords.json"), "");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
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
