// ReplacementLock on Windows: taken again after release, and a second
// holder, naming the same file another way, waits for the first.
#include "utils/io/ReplacementLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/TemporaryDirectory_windows.h"

namespace korvane {
namespace {

using testing::TemporaryDirectory;

TEST(ReplacementLockTest, TakenAgainAfterRelease) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  for (int i = 0; i < 3; ++i) {
    const utils::io::ReplacementLock lock(file);
  }
  const utils::io::ReplacementLock first(file);
  const utils::io::ReplacementLock other(directory.path() / "other.json");
}

TEST(ReplacementLockTest, SecondHolderWaitsForTheFirst) {
  const TemporaryDirectory directory;
  const std::filesystem::path file = directory.path() / "passwords.json";
  std::atomic<bool> acquired{false};
  std::thread second;
  {
    const utils::io::ReplacementLock lock(file);
    // The path is spelled differently but names the same file.
    const std::filesystem::path sameFile = directory.path() / "." / "PASSWORDS.JSON";
    second = std::thread([&] {
      const utils::io::ReplacementLock secondLock(sameFile);
      acquired = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_FALSE(acquired);
  }
  second.join();
  EXPECT_TRUE(acquired);
}

}  // namespace
}  // namespace korvane
