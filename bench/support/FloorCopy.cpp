// floorCopy <file>: the least work any program that replaces a file safely
// must do, for the scaling benchmark's floor. It copies the file through
// one fixed 1 MiB buffer into "<file>.tmp" (created exclusively, with the
// file's permission bits), flushes it to the device, renames it over the
// file and flushes the folder, so that the new content survives a crash.
// Exit status 0 on success, 1 with a message on standard error otherwise.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>

#include "utils/core/PosixCall.h"

namespace {

using korvane::utils::core::retryOnInterrupt;

constexpr std::size_t bufferSize = std::size_t{1} << 20;

std::runtime_error systemError(const std::string& what) {
  return std::runtime_error(what + ": " + std::strerror(errno));
}

// A file descriptor closed when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(Descriptor&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const noexcept { return fd_; }
  bool valid() const noexcept { return fd_ >= 0; }

 private:
  int fd_;
};

Descriptor openOrThrow(const std::string& path, int flags, mode_t mode = 0) {
  Descriptor fd(::open(path.c_str(), flags | O_CLOEXEC, mode));
  if (!fd.valid()) throw systemError("cannot open " + path);
  return fd;
}

void writeAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = retryOnInterrupt([&] { return ::write(fd, data, size); });
    if (written <= 0) throw systemError("cannot write");
    data += written;
    size -= static_cast<std::size_t>(written);
  }
}

void copyContent(int from, int to) {
  // Not filled in advance: every page of the buffer is touched by a read.
  const auto buffer = std::make_unique_for_overwrite<char[]>(bufferSize);
  for (;;) {
    const ssize_t got = retryOnInterrupt([&] { return ::read(from, buffer.get(), bufferSize); });
    if (got < 0) throw systemError("cannot read");
    if (got == 0) return;
    writeAll(to, buffer.get(), static_cast<std::size_t>(got));
  }
}

void syncOrThrow(int fd, const std::string& what) {
  if (::fsync(fd) != 0) throw systemError("cannot flush " + what);
}

std::string folderOf(const std::string& path) {
  const auto slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

void replaceWithCopy(const std::string& path) {
  const Descriptor source = openOrThrow(path, O_RDONLY);
  struct stat status {};
  if (::fstat(source.get(), &status) != 0) throw systemError("cannot examine " + path);
  const std::string temporary = path + ".tmp";
  {
    const Descriptor target =
        openOrThrow(temporary, O_WRONLY | O_CREAT | O_EXCL, status.st_mode & 07777);
    try {
      copyContent(source.get(), target.get());
      syncOrThrow(target.get(), temporary);
    } catch (...) {
      ::unlink(temporary.c_str());
      throw;
    }
  }
  if (::rename(temporary.c_str(), path.c_str()) != 0) {
    const int renameError = errno;
    ::unlink(temporary.c_str());
    errno = renameError;
    throw systemError("cannot rename " + temporary);
  }
  const std::string folder = folderOf(path);
  syncOrThrow(openOrThrow(folder, O_RDONLY | O_DIRECTORY).get(), folder);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: floorCopy <file>\n");
    return 2;
  }
  try {
    replaceWithCopy(argv[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "floorCopy: %s\n", error.what());
    return 1;
  }
  return 0;
}
