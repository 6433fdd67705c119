#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "utils/io/PosixCall.h"
#include "utils/io/ReplacementLock.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

ReplacementLock::ReplacementLock(const std::filesystem::path& file) : handle_(-1) {
  const std::filesystem::path parent = file.parent_path();
  const std::filesystem::path directory = parent.empty() ? "." : parent;
  const int fd = detail::retryOnInterrupt(
      [&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (fd < 0) {
    if (errno == ENOENT || errno == ENOTDIR) return;
    throwFileError("open the directory", directory, lastSystemError());
  }
  if (detail::retryOnInterrupt([&] { return ::flock(fd, LOCK_EX); }) < 0) {
    const std::error_code error = lastSystemError();
    ::close(fd);
    throwFileError("lock the directory", directory, error);
  }
  handle_ = fd;
}

ReplacementLock::~ReplacementLock() {
  // Closing the descriptor releases the lock.
  if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

}  // namespace korvane::utils::io
