// PosixDescriptor: the one owner of POSIX file descriptors in this library,
// and the one way to open a name relative to a folder's descriptor. Only for
// the _posix sources of this library.
//
// Thread safety: one object, one thread; openAt is reentrant.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <utility>

#include "utils/core/PosixCall.h"

namespace korvane::utils::io::detail {

// An open descriptor, closed when the object goes away.
class PosixDescriptor {
 public:
  explicit PosixDescriptor(int fd = -1) noexcept : fd_(fd) {}
  ~PosixDescriptor() { reset(); }
  PosixDescriptor(PosixDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  PosixDescriptor& operator=(PosixDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  PosixDescriptor(const PosixDescriptor&) = delete;
  PosixDescriptor& operator=(const PosixDescriptor&) = delete;

  bool valid() const noexcept { return fd_ >= 0; }
  int get() const noexcept { return fd_; }
  int release() noexcept { return std::exchange(fd_, -1); }

 private:
  void reset() noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  int fd_;
};

// openat(2) with close-on-exec, retried when interrupted; an invalid
// descriptor with errno set on failure.
inline PosixDescriptor openAt(int folder, const char* name, int flags, mode_t mode = 0) {
  return PosixDescriptor(
      core::retryOnInterrupt([&] { return ::openat(folder, name, flags | O_CLOEXEC, mode); }));
}

}  // namespace korvane::utils::io::detail
