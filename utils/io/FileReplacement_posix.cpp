#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "utils/io/FileReplacement.h"
#include "utils/io/PosixCall.h"

namespace korvane::utils::io {

namespace {

std::error_code lastError() { return {errno, std::generic_category()}; }

void syncDirectory(const std::filesystem::path& directory) {
  const std::filesystem::path name = directory.empty() ? "." : directory;
  const int fd =
      detail::retryOnInterrupt([&] { return ::open(name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (fd < 0) throw std::filesystem::filesystem_error("open directory", name, lastError());
  const int result = detail::retryOnInterrupt([&] { return ::fsync(fd); });
  const std::error_code error = result < 0 ? lastError() : std::error_code();
  ::close(fd);
  // Some file systems cannot sync a directory; the rename itself is done.
  if (error && error != std::errc::invalid_argument) {
    throw std::filesystem::filesystem_error("sync directory", name, error);
  }
}

}  // namespace

void copyAttributesForReplacement(File& file, const std::filesystem::path& target) {
  using std::filesystem::perms;
  struct stat status {};
  if (detail::retryOnInterrupt([&] { return ::stat(target.c_str(), &status); }) != 0) {
    if (errno != ENOENT) throw std::filesystem::filesystem_error("stat", target, lastError());
    file.setPermissions(perms::owner_read | perms::owner_write);
    return;
  }
  const int fd = static_cast<int>(file.nativeHandle());
  if (::geteuid() == 0 &&
      detail::retryOnInterrupt([&] { return ::fchown(fd, status.st_uid, status.st_gid); }) != 0) {
    throw std::filesystem::filesystem_error("change the owner of", file.path(), lastError());
  }
  // After the owner: chown clears set-user-ID bits.
  file.setPermissions(static_cast<perms>(status.st_mode & 07777));
}

void replaceFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (detail::retryOnInterrupt([&] { return ::rename(from.c_str(), to.c_str()); }) != 0) {
    throw std::filesystem::filesystem_error("rename", from, to, lastError());
  }
  syncDirectory(to.parent_path());
}

}  // namespace korvane::utils::io
