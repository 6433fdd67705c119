// ReplacementLock: serialises the processes that replace one file, so that
// each re-reads, changes and replaces it in turn and no change is lost.
//
// The lock is advisory and held by the operating system for the process.
// On POSIX it is flock(2) on the file itself: only an account that can
// open the file for reading can take it, so no bystander can hold up a
// run. A run replaces the file, so once it holds the lock it checks that
// the name still refers to the file it locked, and locks the new one when
// another run has replaced it meanwhile. Only when there is no file yet is
// the folder locked instead; then no file may have appeared once the lock
// is taken. On Windows, where a file held open cannot be replaced without
// the POSIX-semantics rename, it is a mutex named after the folder's
// identity, and one that another account made first is not waited for.
// It creates no file, and it goes away with the process, also when the
// process is killed. Hold it only around re-reading and replacing, never
// while waiting for a user.
//
// Whoever can read the file can still hold the lock, so it is waited for
// only a bounded time: a lock held for ever must not hold a run for ever.
//
// Thread safety: one object, one thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

#include "utils/io/ReplacementTarget.h"

namespace korvane::utils::io {

class ReplacementLock {
 public:
  // How long a run waits for another process to release the lock.
  static constexpr std::chrono::seconds longestWait{10};

  // Waits until no other process holds the lock for `target`, at most
  // longestWait; then throws std::runtime_error naming the file (or the
  // folder, when there is no file). A folder that does not exist needs no
  // lock (the replace will fail anyway). A file at the name that is no
  // regular file is an error naming it, as ReplacementTarget::open says.
  explicit ReplacementLock(const ReplacementTarget& target);
  ~ReplacementLock();
  ReplacementLock(const ReplacementLock&) = delete;
  ReplacementLock& operator=(const ReplacementLock&) = delete;

 private:
  std::intptr_t handle_;
};

namespace detail {
// The error of a lock waited for in vain, the same on every system:
// `what` is "file" or "folder".
[[noreturn]] void throwLockHeld(std::string_view what, const std::filesystem::path& path);
}  // namespace detail

}  // namespace korvane::utils::io
