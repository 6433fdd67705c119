#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
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

[[noreturn]] void throwNamesAFolder(const std::filesystem::path& path) {
  throw std::runtime_error(
      core::format("could not open \"{}\": it names a folder, not a regular file, and is not read",
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
  replaced.changeTime = changeTime(status);
  replaced.owner = status.st_uid;
  replaced.group = status.st_gid;
  replaced.mode = status.st_mode & 07777;
  replaced.attributes = readAttributes(fd, path);
  return replaced;
}

bool isSameFile(const struct stat& status, const ReplacedFile& replaced) {
  return S_ISREG(status.st_mode) && static_cast<std::uint64_t>(status.st_dev) == replaced.volume &&
         static_cast<std::uint64_t>(status.st_ino) == replaced.id &&
         changeTime(status) == replaced.changeTime;
}

// Removes every extended attribute of the new `file` that `keep` does not
// name: a folder's default access control list is inherited by every file
// made in it, and would widen who may read the hashes.
void removeInherited(const File& file,
                     const std::vector<std::pair<std::string, std::string>>& keep) {
  const int fd = static_cast<int>(file.nativeHandle());
  for (const auto& [name, value] : readAttributes(fd, file.path())) {
    const bool kept = std::any_of(keep.begin(), keep.end(),
                                  [&](const auto& attribute) { return attribute.first == name; });
    if (kept || ::fremovexattr(fd, name.c_str()) == 0 || errno == ENODATA) continue;
    // A security label is the system's to give; the old file's, if any,
    // is written over it below.
    if (name.starts_with("security.")) continue;
    throwFileError(core::format("remove the extended attribute {} of", name), file.path(),
                   lastSystemError());
  }
}

// Gives the new file what the replaced one has. The owner first: changing
// it clears set-user-ID bits. Then the attributes, while the file is still
// private: an access control list sets the group bits of the mode to its
// mask. The mode last, which keeps that mask.
void copyAttributes(const File& file, const ReplacedFile& replaced) {
  const int fd = static_cast<int>(file.nativeHandle());
  if (::geteuid() == 0 &&
      retryOnInterrupt([&] { return ::fchown(fd, replaced.owner, replaced.group); }) != 0) {
    throwFileError("change the owner of", file.path(), lastSystemError());
  }
  removeInherited(file, replaced.attributes);
  for (const auto& [name, value] : replaced.attributes) {
    if (::fsetxattr(fd, name.c_str(), value.data(), value.size(), 0) != 0) {
      throwFileError(core::format("copy the extended attribute {} to", name), file.path(),
                     lastSystemError());
    }
  }
  if (retryOnInterrupt([&] { return ::fchmod(fd, replaced.mode); }) != 0) {
    throwFileError("set the permissions of", file.path(), lastSystemError());
  }
}

// What an in-place copy works on: the two files as messages name them, why
// the rename failed, and the two names in the folder.
struct InPlaceCopy {
  const std::filesystem::path& from;
  const std::filesystem::path& to;
  std::error_code renameError;
  int directory;
  const std::filesystem::path& fromName;
  const std::filesystem::path& toName;
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

// Whether `name` in `directory` still refers to the file `replaced`
// describes, or to nothing when there is none; otherwise the run stops.
void requireUnchanged(int directory, const std::filesystem::path& name,
                      const std::filesystem::path& path,
                      const std::optional<ReplacedFile>& replaced) {
  struct stat status {};
  const bool present = ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
  if (!present && errno != ENOENT)
    throwFileError("read the attributes of", path, lastSystemError());
  if (present != replaced.has_value() || (present && !isSameFile(status, *replaced))) {
    throwChanged(path);
  }
}

// Renames `from` over `to` in `directory`; 0, or -1 with errno set. A new
// file (`replacing` false) must not replace one that appeared after the
// check: EEXIST then.
int renameOver(int directory, const std::filesystem::path& from, const std::filesystem::path& to,
               bool replacing) {
  const unsigned flags = replacing ? 0U : RENAME_NOREPLACE;
  const int result = retryOnInterrupt(
      [&] { return ::renameat2(directory, from.c_str(), directory, to.c_str(), flags); });
  if (result == 0 || flags == 0 || (errno != EINVAL && errno != ENOSYS)) return result;
  // A file system without the flag: the check before has to do.
  return retryOnInterrupt(
      [&] { return ::renameat(directory, from.c_str(), directory, to.c_str()); });
}

// Makes a rename in `directory` durable. It has taken effect already, so a
// failure says so: the administrator must not think nothing changed. Some
// file systems cannot sync a directory at all.
void syncFolder(int directory, const std::filesystem::path& directoryPath,
                const std::filesystem::path& replaced) {
  if (retryOnInterrupt([&] { return ::fsync(directory); }) == 0 || errno == EINVAL) return;
  throw std::system_error(lastSystemError(),
                          describeFileOperation("sync the directory", directoryPath) +
                              " after replacing \"" + printable(replaced) +
                              "\" (the new file is in place)");
}

// Opens `name` in `directory` with `flags` (never following a link) as a
// File named `path` in messages.
File openFileAt(int directory, const std::filesystem::path& name, int flags,
                const std::filesystem::path& path) {
  Descriptor fd = openAt(directory, name.c_str(), flags | O_NOFOLLOW | O_NOCTTY);
  if (fd.get() < 0) throwFileError("open", path, lastSystemError());
  return File(fd.release(), path);
}

// Replaces the content of the target with that of the complete, synced
// temporary file, in place: written from the start, truncated to the new
// length and synced; the target keeps its inode, mode and owner. Only then
// is the temporary file removed. Both must still be the files written and
// read; a target with other names (hard links) is not written, since the
// copy would reach them too.
void copyInPlace(const InPlaceCopy& copy, const ReplacedFile& written,
                 const ReplacedFile& replaced) {
  std::optional<File> source;
  std::optional<File> target;
  copyStep(copy, "open", copy.from, [&] {
    source.emplace(openFileAt(copy.directory, copy.fromName, O_RDONLY | O_NONBLOCK, copy.from));
  });
  struct stat opened {};
  if (::fstat(static_cast<int>(source->nativeHandle()), &opened) != 0 ||
      !isSameFile(opened, written)) {
    throwChanged(copy.from);
  }
  copyStep(copy, "open", copy.to, [&] {
    target.emplace(openFileAt(copy.directory, copy.toName, O_WRONLY | O_NONBLOCK, copy.to));
  });
  const int fd = static_cast<int>(target->nativeHandle());
  if (::fstat(fd, &opened) != 0 || !isSameFile(opened, replaced)) throwChanged(copy.to);
  if (opened.st_nlink != 1) {
    throw std::runtime_error(core::format(
        "\"{}\" has other names (hard links), which a copy in place would change too; nothing "
        "was replaced, the complete new file remains at \"{}\"",
        printable(copy.to), printable(copy.from)));
  }
  std::vector<char> buffer(copyBufferSize);
  off_t length = 0;
  for (;;) {
    std::size_t got = 0;
    copyStep(copy, "read", copy.from, [&] { got = source->read(buffer); });
    if (got == 0) break;
    copyStep(copy, "write", copy.to, [&] { target->write(std::span(buffer).first(got)); });
    length += static_cast<off_t>(got);
  }
  if (retryOnInterrupt([&] { return ::ftruncate(fd, length); }) != 0) {
    throwCopyError(copy, "truncate", copy.to, lastSystemError());
  }
  copyStep(copy, "sync", copy.to, [&] { target->sync(); });
  copyStep(copy, "close", copy.to, [&] { target->close(); });
  // The complete copy of the new content is no longer needed.
  if (retryOnInterrupt([&] { return ::unlinkat(copy.directory, copy.fromName.c_str(), 0); }) != 0) {
    throw std::system_error(lastSystemError(), describeFileOperation("remove", copy.from) +
                                                   " after copying it over \"" +
                                                   printable(copy.to) +
                                                   "\" (the new file is in place)");
  }
}

// Resolves a path one component at a time through descriptors of the
// folders on the way, so that no name is looked up twice: the folder that
// holds the final name, its path as messages print it, and the name.
// Trusted links are followed (their target's components take their place);
// a folder that does not exist ends the lookups, and the rest of the path
// only names what would be there.
class PathWalk {
 public:
  explicit PathWalk(const std::filesystem::path& path) : path_(path) {
    restartAt(path.is_absolute() ? path.root_path() : std::filesystem::path());
    pushFront(path.relative_path());
  }

  void run() {
    while (!pending_.empty()) {
      const std::filesystem::path component = std::move(pending_.front());
      pending_.pop_front();
      if (step(component, pending_.empty())) return;
    }
  }

  int folder() const noexcept { return folder_.get(); }
  const std::filesystem::path& folderPath() const noexcept { return folderPath_; }
  const std::filesystem::path& name() const noexcept { return name_; }
  bool folderExists() const noexcept { return exists_; }

 private:
  // Handles one component; true when it was the final name.
  bool step(const std::filesystem::path& component, bool last) {
    if (!exists_ || last) {
      // The final name is looked at only to follow a link there.
      struct stat status {};
      if (exists_ && lookUp(component, status) && S_ISLNK(status.st_mode)) {
        follow(component, status);
        return false;
      }
      if (!last) {
        folderPath_ /= component;
        return false;
      }
      name_ = component;
      return true;
    }
    struct stat status {};
    if (!lookUp(component, status)) {
      exists_ = false;
      folderPath_ /= component;
    } else if (S_ISLNK(status.st_mode)) {
      follow(component, status);
    } else if (!S_ISDIR(status.st_mode)) {
      exists_ = false;  // below a file: nothing can be there
      folderPath_ /= component;
    } else {
      enter(component);
    }
    return false;
  }

  // False when nothing is at the name (or a file is where a folder should be).
  bool lookUp(const std::filesystem::path& component, struct stat& status) const {
    if (::fstatat(folder_.get(), component.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return true;
    const std::error_code error = lastSystemError();
    if (error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory) {
      throwFileError("read the attributes of", folderPath_ / component, error);
    }
    return false;
  }

  void follow(const std::filesystem::path& component, const struct stat& status) {
    const std::filesystem::path link = folderPath_ / component;
    if (++followed_ > maxLinksFollowed) {
      throwFileError("follow the links of", path_,
                     std::make_error_code(std::errc::too_many_symbolic_link_levels));
    }
    requireTrustedLink(status, link);
    const std::filesystem::path target = readLinkAt(folder_.get(), component.c_str(), link);
    if (target.is_absolute()) restartAt(target.root_path());
    pushFront(target.relative_path());
  }

  void enter(const std::filesystem::path& component) {
    // No link may have taken the folder's place since it was looked at.
    Descriptor next = openAt(folder_.get(), component.c_str(), O_PATH | O_DIRECTORY | O_NOFOLLOW);
    if (next.get() < 0) {
      throwFileError("open the directory", folderPath_ / component, lastSystemError());
    }
    folder_ = std::move(next);
    folderPath_ /= component;
  }

  // Continues from the root `root`, or from the working folder when empty.
  void restartAt(const std::filesystem::path& root) {
    folder_ = openAt(AT_FDCWD, root.empty() ? "." : "/", O_PATH | O_DIRECTORY);
    if (folder_.get() < 0) throwFileError("open the directory", path_, lastSystemError());
    folderPath_ = root;
  }

  // Puts the components of `relative` before those still to walk. Empty
  // components (a trailing "/") name nothing of their own.
  void pushFront(const std::filesystem::path& relative) {
    auto at = pending_.begin();
    for (const auto& part : relative) {
      if (!part.empty()) at = std::next(pending_.insert(at, part));
    }
  }

  const std::filesystem::path& path_;
  Descriptor folder_;
  std::filesystem::path folderPath_;
  std::filesystem::path name_;
  std::deque<std::filesystem::path> pending_;
  bool exists_ = true;
  int followed_ = 0;
};

}  // namespace

ReplacementTarget::ReplacementTarget(const std::filesystem::path& path) : directory_(-1) {
  // A name that ends in a folder ("/", "..", "config/") is no file.
  if (!path.has_filename()) throwNamesAFolder(path);
  PathWalk walk(path);
  walk.run();
  name_ = walk.name();
  if (name_.empty() || name_ == "." || name_ == "..") throwNamesAFolder(path);
  directoryPath_ = walk.folderPath().empty() ? std::filesystem::path(".") : walk.folderPath();
  path_ = walk.folderPath() / name_;
  if (!walk.folderExists()) return;
  // Readable, so that it can be locked and synced.
  Descriptor readable = openAt(walk.folder(), ".", O_RDONLY | O_DIRECTORY);
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
    // Private whatever the umask and the folder's default access control
    // list: it will hold password hashes.
    removeInherited(file, {});
    file.setPermissions(std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  }
  return file;
}

void ReplacementTarget::discardTemporary(File temporary) const noexcept {
  if (!directoryExists_ || !temporary.isOpen()) return;
  const int directory = static_cast<int>(directory_);
  const std::filesystem::path name = temporary.path().filename();
  struct stat opened {};
  struct stat named {};
  // Open, the file keeps its inode number: device and inode tell it apart.
  if (::fstat(static_cast<int>(temporary.nativeHandle()), &opened) == 0 &&
      ::fstatat(directory, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
      opened.st_dev == named.st_dev && opened.st_ino == named.st_ino) {
    ::unlinkat(directory, name.c_str(), 0);
  }
}

ReplacedFile ReplacementTarget::identify(const File& file) {
  struct stat status {};
  if (::fstat(static_cast<int>(file.nativeHandle()), &status) != 0) {
    throwFileError("read the attributes of", file.path(), lastSystemError());
  }
  ReplacedFile identity;
  identity.volume = static_cast<std::uint64_t>(status.st_dev);
  identity.id = static_cast<std::uint64_t>(status.st_ino);
  identity.changeTime = changeTime(status);
  return identity;
}

void ReplacementTarget::replace(const std::filesystem::path& temporary, const ReplacedFile& written,
                                const std::optional<ReplacedFile>& replaced) const {
  if (!directoryExists_) {
    throw std::filesystem::filesystem_error(
        "rename", temporary, path_, std::make_error_code(std::errc::no_such_file_or_directory));
  }
  const int directory = static_cast<int>(directory_);
  const std::filesystem::path temporaryName = temporary.filename();
  // Whatever is renamed is the file this run wrote, and it replaces the
  // file this run read.
  requireUnchanged(directory, temporaryName, temporary, written);
  requireUnchanged(directory, name_, path_, replaced);
  if (renameOver(directory, temporaryName, name_, replaced.has_value()) == 0) {
    syncFolder(directory, directoryPath_, path_);
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
  copyInPlace({temporary, path_, renameError, directory, temporaryName, name_}, written, *replaced);
}

}  // namespace korvane::utils::io
