#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <thread>

#include "utils/io/PosixCall.h"
#include "utils/io/ReplacementLock.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

// Short at first, so that a lock released at once is taken at once.
constexpr auto firstPause = std::chrono::milliseconds(1);
constexpr auto longestPause = std::chrono::milliseconds(100);

}  // namespace

ReplacementLock::ReplacementLock(const ReplacementTarget& target) : handle_(-1) {
  if (!target.directoryExists()) return;
  // A description of its own: the lock belongs to it, not to the target's.
  const int fd = detail::retryOnInterrupt([&] {
    return ::openat(static_cast<int>(target.directoryHandle()), ".",
                    O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  });
  if (fd < 0) throwFileError("open the directory", target.directoryPath(), lastSystemError());
  const auto deadline = std::chrono::steady_clock::now() + longestWait;
  auto pause = firstPause;
  while (detail::retryOnInterrupt([&] { return ::flock(fd, LOCK_EX | LOCK_NB); }) != 0) {
    const std::error_code error = lastSystemError();
    if (error != std::errc::operation_would_block) {
      ::close(fd);
      throwFileError("lock the directory", target.directoryPath(), error);
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      ::close(fd);
      detail::throwLockHeld(target.directoryPath());
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, longestPause);
  }
  handle_ = fd;
}

ReplacementLock::~ReplacementLock() {
  // Closing the descriptor releases the lock.
  if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

}  // namespace korvane::utils::io
