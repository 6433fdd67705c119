// ReplacementLock on Windows: taken by another thread after its release, a
// second holder naming the same file another way waits for the first, and
// a lock held for ever is waited for only a bounded time.
#include <gtest/gtest.h>

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

using testing::TemporaryDirectory;
using utils::io::ReplacementLock;
using utils::io::ReplacementTarget;

// Takes and releases the lock of `file` on a thread of its own (a mutex
// can be taken again by the thread that holds it, so one thread alone
// would not see a lock that was never released). Returns what was thrown.
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
}

TEST(ReplacementLockTest, SecondHolderWaitsForTheFirst) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  std::atomic<bool> acquired{false};
  std::thread second;
  {
    const ReplacementTarget target(file);
    const ReplacementLock lock(target);
    // The path is spelled differently but names the same file.
    const std::filesystem::path sameFile = directory.path() / "." / "PASSWORDS.JSON";
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

TEST(ReplacementLockTest, ALockHeldForEverIsWaitedForAtMostTheLongestWait) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  const ReplacementTarget target(file);
  const ReplacementLock lock(target);
  const auto start = std::chrono::steady_clock::now();
  const std::string failure = takeOnAnotherThread(file);
  const auto waited = std::chrono::steady_clock::now() - start;
  EXPECT_NE(failure.find("another process has held its lock for 10 seconds"), std::string::npos)
      << failure;
  EXPECT_GE(waited, ReplacementLock::longestWait - std::chrono::milliseconds(100));
}

}  // namespace
}  // namespace korvane
