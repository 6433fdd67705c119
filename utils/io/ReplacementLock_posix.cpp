#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "utils/core/PosixCall.h"
#include "utils/io/PosixDescriptor.h"
#include "utils/io/ReplacementLock.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

using Clock = std::chrono::steady_clock;
using core::retryOnInterrupt;
using detail::PosixDescriptor;

// Short at first, so that a lock released at once is taken at once.
constexpr auto firstPause = std::chrono::milliseconds(1);
constexpr auto longestPause = std::chrono::milliseconds(100);

// Takes the lock on `fd`, waiting until `deadline`; false when another
// process still holds it then.
bool lockBy(int fd, Clock::time_point deadline, const std::filesystem::path& path) {
  auto pause = firstPause;
  while (retryOnInterrupt([&] { return ::flock(fd, LOCK_EX | LOCK_NB); }) != 0) {
    const std::error_code error = lastSystemError();
    if (error != std::errc::operation_would_block) throwFileError("lock", path, error);
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, longestPause);
  }
  return true;
}

// What the target's name refers to now: its device and inode, or
// std::nullopt when nothing is there.
std::optional<std::pair<dev_t, ino_t>> currentFile(const ReplacementTarget& target) {
  struct stat status {};
  if (::fstatat(static_cast<int>(target.folderHandle()), target.resolved().name().c_str(), &status,
                AT_SYMLINK_NOFOLLOW) == 0) {
    return std::pair(status.st_dev, status.st_ino);
  }
  if (errno != ENOENT) throwFileError("read the attributes of", target.path(), lastSystemError());
  return std::nullopt;
}

std::pair<dev_t, ino_t> identityOf(int fd, const std::filesystem::path& path) {
  struct stat status {};
  if (::fstat(fd, &status) != 0) throwFileError("read the attributes of", path, lastSystemError());
  return {status.st_dev, status.st_ino};
}

}  // namespace

ReplacementLock::ReplacementLock(const ReplacementTarget& target) : handle_(-1) {
  if (!target.folderExists()) return;
  const auto deadline = Clock::now() + longestWait;
  auto pause = firstPause;
  // Another run may replace the file, or create it, while this one waits:
  // the lock counts only while the name still refers to what was locked.
  for (;;) {
    if (std::optional<File> file = target.resolved().openRegularFile()) {
      // Open for reading: only an account that may read the file can lock it.
      PosixDescriptor fd(static_cast<int>(file->releaseHandle()));
      if (!lockBy(fd.get(), deadline, target.path())) {
        detail::throwLockHeld("file", target.path());
      }
      if (currentFile(target) == identityOf(fd.get(), target.path())) {
        handle_ = fd.release();
        return;
      }
    } else {
      // No file yet: the folder stands for it until one is there.
      PosixDescriptor folder =
          detail::openAt(static_cast<int>(target.folderHandle()), ".", O_RDONLY | O_DIRECTORY);
      if (!folder.valid()) {
        throwFileError("open the directory", target.folderPath(), lastSystemError());
      }
      if (!lockBy(folder.get(), deadline, target.folderPath())) {
        detail::throwLockHeld("folder", target.folderPath());
      }
      if (!currentFile(target)) {
        handle_ = folder.release();
        return;
      }
    }
    if (Clock::now() >= deadline) detail::throwChangedDuringRun(target.path());
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, longestPause);
  }
}

ReplacementLock::~ReplacementLock() {
  // Closing the descriptor releases the lock.
  if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

}  // namespace korvane::utils::io
