#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include "utils/core/Format.h"
#include "utils/core/PosixCall.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/FileAttributes.h"
#include "utils/io/InPlaceCopy.h"
#include "utils/io/PosixDescriptor.h"
#include "utils/io/ReplacementTarget.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

using core::retryOnInterrupt;
using detail::isSameFile;
using detail::throwChangedDuringRun;

std::string printable(const std::filesystem::path& path) { return filesystem::toPrintable(path); }

// The error of a failed move. Its paths are the printable forms, which
// what() shows: a name's control bytes never reach the terminal raw.
[[noreturn]] void throwRenameError(const std::filesystem::path& from,
                                   const std::filesystem::path& to, std::error_code code) {
  throw std::filesystem::filesystem_error("rename", std::filesystem::path(printable(from)),
                                          std::filesystem::path(printable(to)), code);
}

// Whether `name` in `folder` still refers to the file `replaced`
// describes, or to nothing when there is none; otherwise the run stops.
void requireUnchanged(int folder, const std::filesystem::path& name,
                      const std::filesystem::path& path,
                      const std::optional<ReplacedFile>& replaced) {
  struct stat status {};
  const bool present = ::fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!present && errno != ENOENT)
    throwFileError("read the attributes of", path, lastSystemError());
  if (present != replaced.has_value() || (present && !isSameFile(status, *replaced))) {
    throwChangedDuringRun(path);
  }
}

// Renames `from` over `to` in `folder`; 0, or -1 with errno set. A new
// file (`replacing` false) must not replace one that appeared after the
// check: EEXIST then.
int renameOver(int folder, const std::filesystem::path& from, const std::filesystem::path& to,
               bool replacing) {
  const unsigned flags = replacing ? 0U : RENAME_NOREPLACE;
  const int result = retryOnInterrupt(
      [&] { return ::renameat2(folder, from.c_str(), folder, to.c_str(), flags); });
  if (result == 0 || flags == 0 || (errno != EINVAL && errno != ENOSYS)) return result;
  // A file system without the flag: the check before has to do.
  return retryOnInterrupt([&] { return ::renameat(folder, from.c_str(), folder, to.c_str()); });
}

// Makes a rename in `folder` durable. It has taken effect already, so a
// failure says so: the administrator must not think nothing changed. Some
// file systems cannot sync a folder at all.
void syncFolder(int folder, const std::filesystem::path& folderPath,
                const std::filesystem::path& replaced) {
  if (retryOnInterrupt([&] { return ::fsync(folder); }) == 0 || errno == EINVAL) return;
  throw std::system_error(lastSystemError(),
                          describeFileOperation("sync the directory", folderPath) +
                              " after replacing \"" + printable(replaced) +
                              "\" (the new file is in place)");
}

}  // namespace

std::optional<File> ReplacementTarget::open(ReplacedFile* replaced) const {
  std::optional<File> file = resolved_.openRegularFile();
  if (file && replaced != nullptr) {
    const int fd = static_cast<int>(file->nativeHandle());
    struct stat status {};
    if (::fstat(fd, &status) != 0) throwFileError("open", path(), lastSystemError());
    *replaced = detail::describe(status, fd, path());
  }
  return file;
}

File ReplacementTarget::createTemporary(std::string_view suffix,
                                        const std::optional<ReplacedFile>& replaced) const {
  std::filesystem::path temporary = path();
  temporary += core::format(".{}", suffix);
  if (!folderExists()) {
    throwFileError("open", temporary, std::make_error_code(std::errc::no_such_file_or_directory));
  }
  const std::filesystem::path name = temporary.filename();
  detail::PosixDescriptor fd =
      detail::openAt(static_cast<int>(folderHandle()), name.c_str(),
                     O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (!fd.valid()) throwFileError("open", temporary, lastSystemError());
  File file(fd.release(), temporary);
  try {
    if (replaced) {
      detail::copyAttributes(file, *replaced);
    } else {
      // It will hold password hashes.
      detail::makePrivate(file);
    }
  } catch (...) {
    // Nothing of it is of use, and it may hold the wrong attributes.
    discardTemporary(std::move(file));
    throw;
  }
  return file;
}

void ReplacementTarget::discardTemporary(File temporary) const noexcept {
  if (!folderExists() || !temporary.isOpen()) return;
  const int folder = static_cast<int>(folderHandle());
  const std::filesystem::path name = temporary.path().filename();
  struct stat opened {};
  struct stat named {};
  // Open, the file keeps its inode number: device and inode tell it apart.
  if (::fstat(static_cast<int>(temporary.nativeHandle()), &opened) == 0 &&
      ::fstatat(folder, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
      opened.st_dev == named.st_dev && opened.st_ino == named.st_ino) {
    ::unlinkat(folder, name.c_str(), 0);
  }
}

ReplacedFile ReplacementTarget::identify(const File& file) {
  struct stat status {};
  if (::fstat(static_cast<int>(file.nativeHandle()), &status) != 0) {
    throwFileError("read the attributes of", file.path(), lastSystemError());
  }
  return detail::identityOf(status);
}

void ReplacementTarget::replace(const std::filesystem::path& temporary, const ReplacedFile& written,
                                const std::optional<ReplacedFile>& replaced) const {
  if (!folderExists()) {
    throwRenameError(temporary, path(), std::make_error_code(std::errc::no_such_file_or_directory));
  }
  const int folder = static_cast<int>(folderHandle());
  const std::filesystem::path temporaryName = temporary.filename();
  const std::filesystem::path& name = resolved_.name();
  // Whatever is renamed is the file this run wrote, and it replaces the
  // file this run read. When the target has changed, the file written is
  // of no use: it goes, as the name was just seen to refer to it.
  requireUnchanged(folder, temporaryName, temporary, written);
  const auto discardAndThrowChanged = [&] {
    ::unlinkat(folder, temporaryName.c_str(), 0);
    throwChangedDuringRun(path());
  };
  try {
    requireUnchanged(folder, name, path(), replaced);
  } catch (const ChangedDuringRunError&) {
    discardAndThrowChanged();
  }
  if (renameOver(folder, temporaryName, name, replaced.has_value()) == 0) {
    syncFolder(folder, folderPath(), path());
    return;
  }
  const std::error_code renameError = lastSystemError();
  if (renameError == std::errc::file_exists) discardAndThrowChanged();
  // A mount point (a file bind-mounted into a container) cannot be renamed
  // over, nor a file moved across file systems: copy the content instead,
  // as the Windows move does across volumes. Only into the regular file
  // that was read.
  if ((renameError != std::errc::device_or_resource_busy &&
       renameError != std::errc::cross_device_link) ||
      !replaced) {
    throwRenameError(temporary, path(), renameError);
  }
  detail::copyInPlace({temporary, path(), renameError, folder, temporaryName, name}, written,
                      *replaced);
}

}  // namespace korvane::utils::io
