#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <deque>
#include <iterator>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/PosixCall.h"
#include "utils/io/ReplacementTarget.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

using detail::retryOnInterrupt;

// As many links as the kernel follows before it reports ELOOP.
constexpr int maxLinksFollowed = 40;

// The in-place copy moves the content in pieces of this size.
constexpr std::size_t copyBufferSize = 64 * 1024;

// An open descriptor, closed when the object goes away.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
  ~Descriptor() { reset(); }
  Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    if (this != &other) {
      reset();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const noexcept { return fd_; }
  int release() noexcept { return std::exchange(fd_, -1); }

 private:
  void reset() noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

  int fd_;
};

Descriptor openAt(int directory, const char* name, int flags, mode_t mode = 0) {
  return Descriptor(
      retryOnInterrupt([&] { return ::openat(directory, name, flags | O_CLOEXEC, mode); }));
}

std::string printable(const std::filesystem::path& path) { return filesystem::toPrintable(path); }

std::string describeOwner(uid_t uid) {
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 4096> buffer{};
  if (::getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr) {
    return core::format("\"{}\" (user ID {})", found->pw_name, uid);
  }
  return core::format("user ID {}", uid);
}

// A link is followed only when its owner could have written the file it
// points to anyway: root, or the account running the program.
void requireTrustedLink(const struct stat& link, const std::filesystem::path& path) {
  if (link.st_uid == 0 || link.st_uid == ::geteuid()) return;
  throw UntrustedLinkError(core::format(
      "the symbolic link \"{}\" belongs to {}, neither root nor the account running this "
      "program, and is not followed",
      printable(path), describeOwner(link.st_uid)));
}

[[noreturn]] void throwChanged(const std::filesystem::path& path) {
  throw std::runtime_error(core::format(
      "\"{}\" was changed or replaced by another program during the run; nothing was replaced",
      printable(path)));
}

const char* describeKind(mode_t mode) {
  if (S_ISDIR(mode)) return "a folder";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISSOCK(mode)) return "a socket";
  if (S_ISCHR(mode)) return "a character device";
  if (S_ISBLK(mode)) return "a block device";
  if (S_ISLNK(mode)) return "a symbolic link";
  return "no regular file";
}

void requireRegularFile(const struct stat& status, const std::filesystem::path& path) {
  if (S_ISREG(status.st_mode)) return;
  throw std::runtime_error(
      core::format("could not open \"{}\": it is {}, not a regular file, and is not read",
                   printable(path), describeKind(status.st_mode)));
}

std::string readLinkAt(int directory, const char* name, const std::filesystem::path& path) {
  std::string target(256, '\0');
  for (;;) {
    const ssize_t length = ::readlinkat(directory, name, target.data(), target.size());
    if (length < 0) throwFileError("read the link", path, lastSystemError());
    if (static_cast<std::size_t>(length) < target.size()) {
      target.resize(static_cast<std::size_t>(length));
      return target;
    }
    target.resize(target.size() * 2);
  }
}

// Every extended attribute of the open file `fd`: on Linux its access
// control lists and its security label among them.
std::vector<std::pair<std::string, std::string>> readAttributes(int fd,
                                                                const std::filesystem::path& path) {
  std::vector<std::pair<std::string, std::string>> attributes;
  std::string names;
  for (;;) {
    const ssize_t size = ::flistxattr(fd, nullptr, 0);
    if (size < 0) {
      if (errno == ENOTSUP) return attributes;  // the file system keeps none
      throwFileError("list the extended attributes of", path, lastSystemError());
    }
    names.resize(static_cast<std::size_t>(size));
    const ssize_t got = ::flistxattr(fd, names.data(), names.size());
    if (got >= 0) {
      names.resize(static_cast<std::size_t>(got));
      break;
    }
    if (errno != ERANGE) throwFileError("list the extended attributes of", path, lastSystemError());
  }
  for (std::size_t at = 0; at < names.size();) {
    const std::string name(names.c_str() + at);
    at += name.size() + 1;
    if (name.empty()) continue;
    std::string value;
    for (;;) {
      const ssize_t size = ::fgetxattr(fd, name.c_str(), nullptr, 0);
      if (size < 0) {
        throwFileError(core::format("read the extended attribute {} of", name), path,
                       lastSystemError());
      }
      value.resize(static_cast<std::size_t>(size));
      const ssize_t got = ::fgetxattr(fd, name.c_str(), value.data(), value.size());
      if (got >= 0) {
        value.resize(static_cast<std::size_t>(got));
        break;
      }
      if (errno != ERANGE) {
        throwFileError(core::format("read the extended attribute {} of", name), path,
                       lastSystemError());
      }
    }
    attributes.emplace_back(name, std::move(value));
  }
  return attributes;
}

// Part of the identity: an inode number freed by a removed file can come
// back at once for a new one, which then has another change time.
std::uint64_t changeTime(const struct stat& status) {
  return static_cast<std::uint64_t>(status.st_ctim.tv_sec) * 1000000000U +
         static_cast<std::uint64_t>(status.st_ctim.tv_nsec);
}

ReplacedFile describe(const struct stat& status, int fd, const std::filesystem::path& path) {
  ReplacedFile replaced;
  replaced.volume = static_cast<std::uint64_t>(status.st_dev);
  replaced.id = static_cast<std::uint64_t>(status.st_ino);
  replaced.idHigh = changeTime(status);
  replaced.owner = status.st_uid;
  replaced.group = status.st_gid;
  replaced.mode = status.st_mode & 07777;
  replaced.attributes = readAttributes(fd, path);
  return replaced;
}

bool isSameFile(const struct stat& status, const ReplacedFile& replaced) {
  return S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_dev) == replaced.volume &&
         static_cast<std::uint64_t>(status.st_ino) == replaced.id &&
         changeTime(status) == replaced.idHigh;
}

// Gives the new file what the replaced one has. The owner first: changing
// it clears set-user-ID bits. The attributes last: an access control list
// sets the group bits of the mode to its mask.
void copyAttributes(const File& file, const ReplacedFile& replaced) {
  const int fd = static_cast<int>(file.nativeHandle());
  if (::geteuid() == 0 &&
      retryOnInterrupt([&] { return ::fchown(fd, replaced.owner, replaced.group); }) != 0) {
    throwFileError("change the owner of", file.path(), lastSystemError());
  }
  if (retryOnInterrupt([&] { return ::fchmod(fd, replaced.mode); }) != 0) {
    throwFileError("set the permissions of", file.path(), lastSystemError());
  }
  for (const auto& [name, value] : replaced.attributes) {
    if (::fsetxattr(fd, name.c_str(), value.data(), value.size(), 0) != 0) {
      throwFileError(core::format("copy the extended attribute {} to", name), file.path(),
                     lastSystemError());
    }
  }
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
  const std::string from = printable(copy.from);
  const std::string to = printable(copy.to);
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

}  // namespace

ReplacementTarget::ReplacementTarget(const std::filesystem::path& path) : directory_(-1) {
  // The folder reached so far, opened only as a place to look up names.
  Descriptor folder = openAt(AT_FDCWD, path.is_absolute() ? "/" : ".", O_PATH | O_DIRECTORY);
  if (folder.get() < 0) throwFileError("open the directory", path, lastSystemError());
  std::filesystem::path folderPath = path.is_absolute() ? path.root_path() : "";
  const std::filesystem::path relative = path.relative_path();
  // Empty components (a trailing "/") name nothing of their own.
  std::deque<std::filesystem::path> pending;
  for (const auto& part : relative) {
    if (!part.empty()) pending.push_back(part);
  }
  bool exists = true;
  int followed = 0;
  while (!pending.empty()) {
    const std::filesystem::path component = std::move(pending.front());
    pending.pop_front();
    const bool last = pending.empty();
    if (!exists) {
      if (last) {
        name_ = component;
      } else {
        folderPath /= component;
      }
      continue;
    }
    struct stat status {};
    if (::fstatat(folder.get(), component.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      const std::error_code error = lastSystemError();
      if (error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory) {
        throwFileError("read the attributes of", folderPath / component, error);
      }
      if (last) {
        name_ = component;
        break;
      }
      exists = false;
      folderPath /= component;
      continue;
    }
    if (S_ISLNK(status.st_mode)) {
      const std::filesystem::path link = folderPath / component;
      if (++followed > maxLinksFollowed) {
        throwFileError("follow the links of", path,
                       std::make_error_code(std::errc::too_many_symbolic_link_levels));
      }
      requireTrustedLink(status, link);
      const std::filesystem::path target = readLinkAt(folder.get(), component.c_str(), link);
      const std::filesystem::path targetRelative = target.relative_path();
      auto at = pending.begin();
      for (const auto& part : targetRelative) {
        if (!part.empty()) at = std::next(pending.insert(at, part));
      }
      if (target.is_absolute()) {
        folder = openAt(AT_FDCWD, "/", O_PATH | O_DIRECTORY);
        if (folder.get() < 0) throwFileError("open the directory", "/", lastSystemError());
        folderPath = target.root_path();
      }
      continue;
    }
    if (last) {
      name_ = component;
      break;
    }
    if (!S_ISDIR(status.st_mode)) {
      exists = false;  // below a file: nothing can be there
      folderPath /= component;
      continue;
    }
    // No link may have taken the folder's place since it was looked at.
    Descriptor next = openAt(folder.get(), component.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW);
    if (next.get() < 0)
      throwFileError("open the directory", folderPath / component, lastSystemError());
    folder = std::move(next);
    folderPath /= component;
  }
  directoryPath_ = folderPath.empty() ? std::filesystem::path(".") : folderPath;
  path_ = folderPath / name_;
  if (!exists) return;
  // Readable, so that it can be locked and synced.
  Descriptor readable = openAt(folder.get(), ".", O_RDONLY | O_DIRECTORY);
  if (readable.get() < 0) throwFileError("open the directory", directoryPath_, lastSystemError());
  directory_ = readable.release();
  directoryExists_ = true;
}

ReplacementTarget::~ReplacementTarget() {
  if (directoryExists_) ::close(static_cast<int>(directory_));
}

std::optional<File> ReplacementTarget::open(ReplacedFile* replaced) const {
  if (!directoryExists_) return std::nullopt;
  const int directory = static_cast<int>(directory_);
  struct stat status {};
  if (::fstatat(directory, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
    if (errno == ENOENT) return std::nullopt;
    throwFileError("read the attributes of", path_, lastSystemError());
  }
  // A link here was not here when the path was resolved.
  if (S_ISLNK(status.st_mode)) throwChanged(path_);
  requireRegularFile(status, path_);
  // Never blocks, even if a FIFO has taken the file's place meanwhile.
  Descriptor fd = openAt(directory, name_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  if (fd.get() < 0) {
    if (errno == ENOENT) return std::nullopt;
    if (errno == ELOOP) throwChanged(path_);
    throwFileError("open", path_, lastSystemError());
  }
  if (::fstat(fd.get(), &status) != 0) throwFileError("open", path_, lastSystemError());
  requireRegularFile(status, path_);
  if (replaced != nullptr) *replaced = describe(status, fd.get(), path_);
  return File(fd.release(), path_);
}

File ReplacementTarget::createTemporary(std::string_view suffix,
                                        const std::optional<ReplacedFile>& replaced) const {
  std::filesystem::path temporary = path_;
  temporary += core::format(".{}", suffix);
  if (!directoryExists_) {
    throwFileError("open", temporary, std::make_error_code(std::errc::no_such_file_or_directory));
  }
  const std::filesystem::path name = temporary.filename();
  Descriptor fd = openAt(static_cast<int>(directory_), name.c_str(),
                         O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (fd.get() < 0) throwFileError("open", temporary, lastSystemError());
  File file(fd.release(), temporary);
  if (replaced) {
    copyAttributes(file, *replaced);
  } else {
    // Private whatever the umask: it will hold password hashes.
    file.setPermissions(std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  }
  return file;
}

void ReplacementTarget::replace(const std::filesystem::path& temporary,
                                const std::optional<ReplacedFile>& replaced) const {
  if (!directoryExists_) {
    throw std::filesystem::filesystem_error(
        "rename", temporary, path_, std::make_error_code(std::errc::no_such_file_or_directory));
  }
  const int directory = static_cast<int>(directory_);
  const std::filesystem::path temporaryName = temporary.filename();
  struct stat status {};
  const bool present = ::fstatat(directory, name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!present && errno != ENOENT) {
    throwFileError("read the attributes of", path_, lastSystemError());
  }
  if (present != replaced.has_value() || (present && !isSameFile(status, *replaced))) {
    throwChanged(path_);
  }
  // A new file must not replace one that appeared after the check.
  const unsigned flags = replaced ? 0U : RENAME_NOREPLACE;
  int result = retryOnInterrupt([&] {
    return ::renameat2(directory, temporaryName.c_str(), directory, name_.c_str(), flags);
  });
  if (result != 0 && flags != 0 && (errno == EINVAL || errno == ENOSYS)) {
    // A file system without the flag: the check above has to do.
    result = retryOnInterrupt(
        [&] { return ::renameat(directory, temporaryName.c_str(), directory, name_.c_str()); });
  }
  if (result == 0) {
    // Makes the rename durable. It has taken effect already, so a failure
    // says so: the administrator must not think nothing changed. Some file
    // systems cannot sync a directory at all.
    if (retryOnInterrupt([&] { return ::fsync(directory); }) != 0 && errno != EINVAL) {
      throw std::system_error(lastSystemError(),
                              describeFileOperation("sync the directory", directoryPath_) +
                                  " after replacing \"" + printable(path_) +
                                  "\" (the new file is in place)");
    }
    return;
  }
  const std::error_code renameError = lastSystemError();
  if (renameError == std::errc::file_exists) throwChanged(path_);
  // A mount point (a file bind-mounted into a container) cannot be renamed
  // over, nor a file moved across file systems: copy the content instead,
  // as the Windows move does across volumes. Only into the regular file
  // that was read.
  if ((renameError != std::errc::device_or_resource_busy &&
       renameError != std::errc::cross_device_link) ||
      !replaced) {
    throw std::filesystem::filesystem_error("rename", temporary, path_, renameError);
  }
  const InPlaceCopy copy{temporary, path_, renameError};
  std::optional<File> source;
  std::optional<File> target;
  copyStep(copy, "open", temporary, [&] {
    Descriptor fd = openAt(directory, temporaryName.c_str(), O_RDONLY | O_NOFOLLOW);
    if (fd.get() < 0) throwFileError("open", temporary, lastSystemError());
    source.emplace(fd.release(), temporary);
  });
  copyStep(copy, "open", path_, [&] {
    Descriptor fd = openAt(directory, name_.c_str(), O_WRONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (fd.get() < 0) throwFileError("open", path_, lastSystemError());
    target.emplace(fd.release(), path_);
  });
  struct stat opened {};
  if (::fstat(static_cast<int>(target->nativeHandle()), &opened) != 0 || !S_ISREG(opened.st_mode) ||
      !isSameFile(opened, *replaced)) {
    throwChanged(path_);
  }
  std::vector<char> buffer(copyBufferSize);
  off_t length = 0;
  for (;;) {
    std::size_t got = 0;
    copyStep(copy, "read", temporary, [&] { got = source->read(buffer); });
    if (got == 0) break;
    copyStep(copy, "write", path_, [&] { target->write(std::span(buffer).first(got)); });
    length += static_cast<off_t>(got);
  }
  const int fd = static_cast<int>(target->nativeHandle());
  if (retryOnInterrupt([&] { return ::ftruncate(fd, length); }) != 0) {
    throwCopyError(copy, "truncate", path_, lastSystemError());
  }
  copyStep(copy, "sync", path_, [&] { target->sync(); });
  copyStep(copy, "close", path_, [&] { target->close(); });
  // The complete copy of the new content is no longer needed.
  if (retryOnInterrupt([&] { return ::unlinkat(directory, temporaryName.c_str(), 0); }) != 0) {
    throw std::system_error(lastSystemError(), describeFileOperation("remove", temporary) +
                                                   " after copying it over \"" + printable(path_) +
                                                   "\" (the new file is in place)");
  }
}

}  // namespace korvane::utils::io
