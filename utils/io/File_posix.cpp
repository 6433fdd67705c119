#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "utils/core/PosixCall.h"
#include "utils/io/File.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

using core::retryOnInterrupt;

namespace {

int openFlags(File::Access access) {
  switch (access) {
    case File::Access::read:
      return O_RDONLY | O_NONBLOCK;
    case File::Access::createOrTruncate:
      return O_WRONLY | O_CREAT | O_TRUNC;
    case File::Access::createNew:
      return O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW;
  }
  return O_RDONLY;
}

int toDescriptor(File::NativeHandle handle) { return static_cast<int>(handle); }

}  // namespace

const File::NativeHandle File::invalidHandle = -1;

File::File(PseudoFile pseudoFile)
    : path_(pseudoFileName(pseudoFile)), handle_(static_cast<int>(pseudoFile)), owned_(false) {}

File::File(const std::filesystem::path& path, Access access,
           std::filesystem::perms createPermissions)
    : path_(path), handle_(invalidHandle), owned_(true) {
  const auto mode = static_cast<mode_t>(createPermissions & std::filesystem::perms::mask);
  const int fd = retryOnInterrupt(
      [&] { return ::open(path.c_str(), openFlags(access) | O_CLOEXEC | O_NOCTTY, mode); });
  if (fd < 0) throwFileError("open", path, lastSystemError(), access == Access::read);
  handle_ = fd;
  if (access == Access::read) {
    // O_NONBLOCK only kept the open from waiting for a FIFO's writer.
    const int flags = ::fcntl(fd, F_GETFL);
    if (flags < 0 || ::fcntl(fd, F_SETFL, flags & ~O_NONBLOCK) < 0) {
      const std::error_code code = lastSystemError();
      ::close(fd);
      handle_ = invalidHandle;
      throwFileError("open", path, code);
    }
  }
}

void File::release() noexcept {
  if (owned_ && isOpen()) ::close(toDescriptor(handle_));
}

std::size_t File::read(std::span<char> into) {
  const ssize_t got =
      retryOnInterrupt([&] { return ::read(toDescriptor(handle_), into.data(), into.size()); });
  if (got < 0) throwFileError("read", path_, lastSystemError());
  return static_cast<std::size_t>(got);
}

void File::write(std::span<const char> bytes) {
  while (!bytes.empty()) {
    const ssize_t done = retryOnInterrupt(
        [&] { return ::write(toDescriptor(handle_), bytes.data(), bytes.size()); });
    if (done < 0) throwFileError("write", path_, lastSystemError());
    bytes = bytes.subspan(static_cast<std::size_t>(done));
  }
}

void File::sync() {
  if (retryOnInterrupt([&] { return ::fsync(toDescriptor(handle_)); }) < 0) {
    throwFileError("sync", path_, lastSystemError());
  }
}

void File::setPermissions(std::filesystem::perms permissions) {
  const auto mode = static_cast<mode_t>(permissions & std::filesystem::perms::mask);
  if (retryOnInterrupt([&] { return ::fchmod(toDescriptor(handle_), mode); }) < 0) {
    throwFileError("set the permissions of", path_, lastSystemError());
  }
}

bool File::isRegularFile() const {
  struct stat status {};
  return ::fstat(toDescriptor(handle_), &status) == 0 && S_ISREG(status.st_mode);
}

std::uint64_t File::size() const {
  struct stat status {};
  if (::fstat(toDescriptor(handle_), &status) != 0)
    throwFileError("stat", path_, lastSystemError());
  return static_cast<std::uint64_t>(status.st_size);
}

void File::rewind() {
  if (::lseek(toDescriptor(handle_), 0, SEEK_SET) < 0) {
    throwFileError("rewind", path_, lastSystemError());
  }
}

void File::close() {
  if (!isOpen()) return;
  const int fd = toDescriptor(std::exchange(handle_, invalidHandle));
  if (!owned_) return;
  // close() is not retried: after EINTR the descriptor is already gone.
  if (::close(fd) < 0 && errno != EINTR) throwFileError("close", path_, lastSystemError());
}

}  // namespace korvane::utils::io
