// ReplacementLock: serialises the processes that replace one file, so that
// each re-reads, changes and replaces it in turn and no change is lost.
//
// The lock is advisory and held by the operating system for the process:
// on POSIX flock(2) on the file's folder, on Windows a named mutex derived
// from the file's path. It creates no file, and it goes away with the
// process, also when the process is killed. Hold it only around re-reading
// and replacing, never while waiting for a user.
//
// Any account that can open the folder can take the lock, so it is waited
// for only a bounded time: a lock held for ever must not hold a run for ever.
//
// Thread safety: one object, one thread.
#pragma once

#include <chrono>
#include <cstdint>

#include "utils/io/ReplacementTarget.h"

namespace korvane::utils::io {

class ReplacementLock {
 public:
  // How long a run waits for another process to release the lock.
  static constexpr std::chrono::seconds longestWait{10};

  // Waits until no other process holds the lock for `target`, at most
  // longestWait; then throws std::runtime_error naming the folder. A folder
  // that does not exist needs no lock (the replace will fail anyway).
  explicit ReplacementLock(const ReplacementTarget& target);
  ~ReplacementLock();
  ReplacementLock(const ReplacementLock&) = delete;
  ReplacementLock& operator=(const ReplacementLock&) = delete;

 private:
  std::intptr_t handle_;
};

namespace detail {
// The error of a lock waited for in vain, the same on every system.
[[noreturn]] void throwLockHeld(const std::filesystem::path& folder);
}  // namespace detail

}  // namespace korvane::utils::io
