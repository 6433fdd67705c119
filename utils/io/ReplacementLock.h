// ReplacementLock: serialises the processes that replace one file, so that
// each re-reads, changes and replaces it in turn and no change is lost.
//
// The lock is advisory and held by the operating system for the process:
// on POSIX flock(2) on the file's directory, on Windows a named mutex
// derived from the file's path. It creates no file, and it goes away with
// the process, also when the process is killed. Hold it only around
// re-reading and replacing, never while waiting for a user.
//
// Thread safety: one object, one thread.
#pragma once

#include <cstdint>
#include <filesystem>

namespace korvane::utils::io {

class ReplacementLock {
 public:
  // Waits until no other process holds the lock for `file`. A directory
  // that does not exist needs no lock (the replace will fail anyway).
  explicit ReplacementLock(const std::filesystem::path& file);
  ~ReplacementLock();
  ReplacementLock(const ReplacementLock&) = delete;
  ReplacementLock& operator=(const ReplacementLock&) = delete;

 private:
  std::intptr_t handle_;
};

}  // namespace korvane::utils::io
