#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "utils/io/FileReplacement.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/PosixCall.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

// Makes the rename of `replaced` durable. It has taken effect already, so
// a failure says so: the administrator must not think nothing changed.
void syncDirectory(const std::filesystem::path& replaced) {
  const std::filesystem::path parent = replaced.parent_path();
  const std::filesystem::path directory = parent.empty() ? "." : parent;
  const int fd = detail::retryOnInterrupt(
      [&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  const int result = fd < 0 ? -1 : detail::retryOnInterrupt([&] { return ::fsync(fd); });
  const std::error_code error = result < 0 ? lastSystemError() : std::error_code();
  if (fd >= 0) ::close(fd);
  // Some file systems cannot sync a directory at all.
  if (error && error != std::errc::invalid_argument) {
    const std::string_view operation = fd < 0 ? "open the directory" : "sync the directory";
    throw std::system_error(error, describeFileOperation(operation, directory) +
                                       " after replacing \"" + filesystem::toPrintable(replaced) +
                                       "\" (the new file is in place)");
  }
}

}  // namespace

void copyAttributesForReplacement(File& file, const std::filesystem::path& target) {
  using std::filesystem::perms;
  struct stat status {};
  if (detail::retryOnInterrupt([&] { return ::stat(target.c_str(), &status); }) != 0) {
    if (errno != ENOENT) throwFileError("read the attributes of", target, lastSystemError());
    file.setPermissions(perms::owner_read | perms::owner_write);
    return;
  }
  const int fd = static_cast<int>(file.nativeHandle());
  if (::geteuid() == 0 &&
      detail::retryOnInterrupt([&] { return ::fchown(fd, status.st_uid, status.st_gid); }) != 0) {
    throwFileError("change the owner of", file.path(), lastSystemError());
  }
  // After the owner: chown clears set-user-ID bits.
  file.setPermissions(static_cast<perms>(status.st_mode & 07777));
}

void replaceFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  if (detail::retryOnInterrupt([&] { return ::rename(from.c_str(), to.c_str()); }) != 0) {
    throw std::filesystem::filesystem_error(
        "rename", from, to, std::error_code(errno, std::generic_category()));
  }
  syncDirectory(to);
}

}  // namespace korvane::utils::io
