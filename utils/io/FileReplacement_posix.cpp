#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "utils/io/FileReplacement.h"
#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/PosixCall.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

// The in-place copy moves the content in pieces of this size.
constexpr std::size_t copyBufferSize = 64 * 1024;

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

bool isRegularFile(const std::filesystem::path& path) {
  struct stat status {};
  return detail::retryOnInterrupt([&] { return ::stat(path.c_str(), &status); }) == 0 &&
         S_ISREG(status.st_mode);
}

// What an in-place copy works on, for its error messages.
struct InPlaceCopy {
  const std::filesystem::path& from;
  const std::filesystem::path& to;
  std::error_code renameError;
};

// A failed step of the in-place copy: the text names both files, says that
// the target may be incomplete and where the complete new file is, and
// ends with the step that failed (operation, file and, appended by
// std::system_error, the system's reason).
[[noreturn]] void throwCopyError(const InPlaceCopy& copy, std::string_view operation,
                                 const std::filesystem::path& file, std::error_code code) {
  const std::string from = filesystem::toPrintable(copy.from);
  const std::string to = filesystem::toPrintable(copy.to);
  throw std::system_error(
      code, core::format("could not copy \"{}\" over \"{}\" in place (rename: {}): \"{}\" may "
                         "be incomplete, the complete new file remains at \"{}\"; {}",
                         from, to, copy.renameError.message(), to, from,
                         describeFileOperation(operation, file)));
}

// Runs one step of the copy; its failure becomes the copy's error.
template <typename Step>
void copyStep(const InPlaceCopy& copy, std::string_view operation,
              const std::filesystem::path& file, Step step) {
  try {
    step();
  } catch (const std::system_error& error) {
    throwCopyError(copy, operation, file, error.code());
  }
}

// Replaces the content of `copy.to` with that of the complete, synced
// `copy.from`, in place: written from the start, truncated to the new
// length and synced; the target keeps its inode, mode and owner. Only then
// is `copy.from` removed.
void copyInPlace(const InPlaceCopy& copy) {
  std::optional<File> source;
  std::optional<File> target;
  copyStep(copy, "open", copy.from, [&] { source.emplace(copy.from, File::Access::read); });
  copyStep(copy, "open", copy.to, [&] { target.emplace(copy.to, File::Access::write); });
  std::vector<char> buffer(copyBufferSize);
  off_t length = 0;
  for (;;) {
    std::size_t got = 0;
    copyStep(copy, "read", copy.from, [&] { got = source->read(buffer); });
    if (got == 0) break;
    copyStep(copy, "write", copy.to, [&] { target->write(std::span(buffer).first(got)); });
    length += static_cast<off_t>(got);
  }
  const int fd = static_cast<int>(target->nativeHandle());
  if (detail::retryOnInterrupt([&] { return ::ftruncate(fd, length); }) != 0) {
    throwCopyError(copy, "truncate", copy.to, lastSystemError());
  }
  copyStep(copy, "sync", copy.to, [&] { target->sync(); });
  copyStep(copy, "close", copy.to, [&] { target->close(); });
  // The complete copy of the new content is no longer needed.
  if (detail::retryOnInterrupt([&] { return ::unlink(copy.from.c_str()); }) != 0) {
    throw std::system_error(lastSystemError(),
                            describeFileOperation("remove", copy.from) + " after copying it over \"" +
                                filesystem::toPrintable(copy.to) + "\" (the new file is in place)");
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
  if (detail::retryOnInterrupt([&] { return ::rename(from.c_str(), to.c_str()); }) == 0) {
    syncDirectory(to);
    return;
  }
  const std::error_code renameError(errno, std::generic_category());
  // A mount point (a file bind-mounted into a container) cannot be renamed
  // over, nor a file moved across file systems: copy the content instead,
  // as the Windows move does across volumes. Only into a regular file: a
  // FIFO or a device would block or swallow the content.
  if ((renameError != std::errc::device_or_resource_busy &&
       renameError != std::errc::cross_device_link) ||
      !isRegularFile(to)) {
    throw std::filesystem::filesystem_error("rename", from, to, renameError);
  }
  copyInPlace({from, to, renameError});
}

}  // namespace korvane::utils::io
