#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <deque>
#include <iterator>
#include <string>
#include <system_error>
#include <utility>

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/PosixDescriptor.h"
#include "utils/io/ResolvedPath.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

using detail::openAt;
using detail::PosixDescriptor;

// As many links as the kernel follows before it reports ELOOP.
constexpr int maxLinksFollowed = 40;

std::string printable(const std::filesystem::path& path) { return filesystem::toPrintable(path); }

// How messages name the folder of a relative path's first component.
std::filesystem::path displayedFolder(const std::filesystem::path& folder) {
  return folder.empty() ? std::filesystem::path(".") : folder;
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

void statOpen(int fd, struct stat& status, const std::filesystem::path& path) {
  if (::fstat(fd, &status) != 0) throwFileError("read the attributes of", path, lastSystemError());
}

// Whether no account but root and the one running the program can write
// the folder: only then can nobody else put or rename a link in it.
bool onlyTrustedCanWrite(const struct stat& folder) {
  const uid_t self = ::geteuid();
  return (folder.st_uid == 0 || folder.st_uid == self) &&
         (folder.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// The text of the link open as itself (O_PATH | O_NOFOLLOW) in `link`: the
// link examined is the link read, whatever happens to its name meanwhile.
std::string readLink(int link, const std::filesystem::path& path) {
  std::string target(256, '\0');
  for (;;) {
    const ssize_t length = ::readlinkat(link, "", target.data(), target.size());
    if (length < 0) throwFileError("read the link", path, lastSystemError());
    if (static_cast<std::size_t>(length) < target.size()) {
      target.resize(static_cast<std::size_t>(length));
      return target;
    }
    target.resize(target.size() * 2);
  }
}

// How often a file replaced while it is opened is looked at again.
constexpr int maxOpenAttempts = 8;

// What is at a name: nothing, a regular file (open for reading), or one that
// was replaced between its examination and its open.
struct Examined {
  enum class Kind { nothing, regularFile, replaced };
  Kind kind = Kind::nothing;
  std::optional<File> file;
};

// Examines what is at `name` in `folder` as itself (a FIFO or a device is
// never opened for reading, so nothing waits on it and no driver sees an
// open), then opens a regular file for reading, never blocking even if a
// FIFO has taken its place meanwhile. Anything but a regular file, or a
// link (which was not there when the path was resolved), is an error.
Examined examineAndOpen(int folder, const std::filesystem::path& name,
                        const std::filesystem::path& path) {
  struct stat examined {};
  const PosixDescriptor item = openAt(folder, name.c_str(), O_PATH | O_NOFOLLOW);
  if (!item.valid()) {
    if (errno == ENOENT) return {};
    throwFileError("open", path, lastSystemError());
  }
  statOpen(item.get(), examined, path);
  if (S_ISLNK(examined.st_mode)) detail::throwChangedDuringRun(path);
  requireRegularFile(examined, path);
  PosixDescriptor fd = openAt(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
  if (!fd.valid()) {
    if (errno == ENOENT || errno == ELOOP) return {Examined::Kind::replaced, std::nullopt};
    throwFileError("open", path, lastSystemError());
  }
  struct stat opened {};
  statOpen(fd.get(), opened, path);
  if (opened.st_dev != examined.st_dev || opened.st_ino != examined.st_ino) {
    return {Examined::Kind::replaced, std::nullopt};
  }
  return {Examined::Kind::regularFile, File(fd.release(), path)};
}

// Resolves a path one component at a time. Each component is opened as
// itself relative to the folder before it, examined through that
// descriptor and, when it is a trusted link, read through it too; its
// target's components take its place. A folder that does not exist ends
// the lookups, and the rest of the path only names what would be there.
class Walk {
 public:
  explicit Walk(const std::filesystem::path& path) : path_(path) {
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
  // Handles one component; true when it was the final name, which is
  // looked at only to follow a link there.
  bool step(const std::filesystem::path& component, bool last) {
    if (!exists_) return settle(component, last);
    struct stat status {};
    PosixDescriptor item = lookUp(component, status);
    if (item.valid() && S_ISLNK(status.st_mode)) {
      follow(item.get(), component);
      return false;
    }
    if (last) return settle(component, last);
    if (!item.valid() || !S_ISDIR(status.st_mode)) {
      exists_ = false;  // nothing there, or a file: nothing can be below it
      return settle(component, last);
    }
    folder_ = std::move(item);
    folderPath_ /= component;
    return false;
  }

  bool settle(const std::filesystem::path& component, bool last) {
    if (last) {
      name_ = component;
      return true;
    }
    folderPath_ /= component;
    return false;
  }

  // The component opened as itself (never followed, never opened for
  // reading: a FIFO or a device is not touched); invalid when nothing is
  // there.
  PosixDescriptor lookUp(const std::filesystem::path& component, struct stat& status) const {
    PosixDescriptor item = openAt(folder_.get(), component.c_str(), O_PATH | O_NOFOLLOW);
    if (!item.valid()) {
      const std::error_code error = lastSystemError();
      if (error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory) {
        throwFileError("open", folderPath_ / component, error);
      }
      return item;
    }
    statOpen(item.get(), status, folderPath_ / component);
    return item;
  }

  void follow(int link, const std::filesystem::path& component) {
    const std::filesystem::path linkPath = folderPath_ / component;
    if (++followed_ > maxLinksFollowed) {
      throwFileError("follow the links of", path_,
                     std::make_error_code(std::errc::too_many_symbolic_link_levels));
    }
    struct stat folder {};
    statOpen(folder_.get(), folder, displayedFolder(folderPath_));
    if (!onlyTrustedCanWrite(folder)) {
      throw UntrustedLinkError(core::format(
          "the symbolic link \"{}\" is in the folder \"{}\", which another account than root and "
          "the account running this program can write, and is not followed",
          printable(linkPath), printable(displayedFolder(folderPath_))));
    }
    const std::filesystem::path target = readLink(link, linkPath);
    if (target.is_absolute()) restartAt(target.root_path());
    pushFront(target.relative_path());
  }

  // Continues from the root `root`, or from the working folder when empty.
  void restartAt(const std::filesystem::path& root) {
    folder_ = openAt(AT_FDCWD, root.empty() ? "." : "/", O_PATH | O_DIRECTORY);
    if (!folder_.valid()) throwFileError("open the directory", path_, lastSystemError());
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
  PosixDescriptor folder_;
  std::filesystem::path folderPath_;
  std::filesystem::path name_;
  std::deque<std::filesystem::path> pending_;
  bool exists_ = true;
  int followed_ = 0;
};

}  // namespace

ResolvedPath::ResolvedPath(const std::filesystem::path& path) {
  // A name that ends in a folder ("/", "..", "config/") is no file.
  if (!path.has_filename()) throwNamesAFolder(path);
  Walk walk(path);
  walk.run();
  name_ = walk.name();
  if (name_.empty() || name_ == "." || name_ == "..") throwNamesAFolder(path);
  folderPath_ = displayedFolder(walk.folderPath());
  path_ = walk.folderPath() / name_;
  if (!walk.folderExists()) return;
  // Readable, so that it can be locked and synced.
  PosixDescriptor readable = openAt(walk.folder(), ".", O_RDONLY | O_DIRECTORY);
  if (!readable.valid()) {
    throwFileError("open the directory", folderPath_, lastSystemError());
  }
  folder_ = readable.release();
}

ResolvedPath::~ResolvedPath() {
  if (folderExists()) ::close(static_cast<int>(folder_));
}

bool ResolvedPath::exists() const {
  if (!folderExists()) return false;
  struct stat status {};
  if (::fstatat(static_cast<int>(folder_), name_.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
    return true;
  }
  if (errno == ENOENT) return false;
  throwFileError("read the attributes of", path_, lastSystemError());
}

std::optional<File> ResolvedPath::openRegularFile() const {
  if (!folderExists()) return std::nullopt;
  // Another run may replace the file between the two opens below; then the
  // new file is examined again. Only a name that keeps changing is an error.
  for (int attempt = 1;; ++attempt) {
    Examined examined = examineAndOpen(static_cast<int>(folder_), name_, path_);
    if (examined.kind != Examined::Kind::replaced) return std::move(examined.file);
    if (attempt == maxOpenAttempts) detail::throwChangedDuringRun(path_);
  }
}

}  // namespace korvane::utils::io
