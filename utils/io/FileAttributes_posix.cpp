#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "utils/core/Format.h"
#include "utils/core/PosixCall.h"
#include "utils/io/FileAttributes.h"
#include "utils/io/ResolvedPath.h"
#include "utils/io/SystemError.h"
#include "utils/string/PrintableText.h"

namespace korvane::utils::io::detail {

using core::retryOnInterrupt;

namespace {

// The names of every extended attribute of the open file `fd`: on Linux its
// access control lists and its security label among them.
std::vector<std::string> listAttributeNames(int fd, const std::filesystem::path& path) {
  std::string names;
  for (;;) {
    const ssize_t size = ::flistxattr(fd, nullptr, 0);
    if (size < 0) {
      if (errno == ENOTSUP) return {};  // the file system keeps none
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
  std::vector<std::string> list;
  for (std::size_t at = 0; at < names.size();) {
    std::string name(names.c_str() + at);
    at += name.size() + 1;
    if (!name.empty()) list.push_back(std::move(name));
  }
  return list;
}

// Every extended attribute of the open file `fd`, name and value. One that
// vanishes between the listing and the reading means that another program
// changed the file during the run.
std::vector<std::pair<std::string, std::string>> readAttributes(int fd,
                                                                const std::filesystem::path& path) {
  std::vector<std::pair<std::string, std::string>> attributes;
  for (const std::string& name : listAttributeNames(fd, path)) {
    std::string value;
    for (;;) {
      const ssize_t size = ::fgetxattr(fd, name.c_str(), nullptr, 0);
      if (size < 0 && errno == ENODATA) throwChangedDuringRun(path);
      if (size < 0) {
        throwFileError(
            core::format("read the extended attribute {} of", string::toPrintableText(name)), path,
            lastSystemError());
      }
      value.resize(static_cast<std::size_t>(size));
      const ssize_t got = ::fgetxattr(fd, name.c_str(), value.data(), value.size());
      if (got >= 0) {
        value.resize(static_cast<std::size_t>(got));
        break;
      }
      if (errno == ENODATA) throwChangedDuringRun(path);
      if (errno != ERANGE) {
        throwFileError(
            core::format("read the extended attribute {} of", string::toPrintableText(name)), path,
            lastSystemError());
      }
    }
    attributes.emplace_back(name, std::move(value));
  }
  return attributes;
}

// Removes every extended attribute of the new `file` that `keep` does not
// name: a folder's default access control list is inherited by every file
// made in it, and would widen who may read the hashes.
void removeInherited(const File& file,
                     const std::vector<std::pair<std::string, std::string>>& keep) {
  const int fd = static_cast<int>(file.nativeHandle());
  for (const std::string& name : listAttributeNames(fd, file.path())) {
    const bool kept = std::any_of(keep.begin(), keep.end(),
                                  [&](const auto& attribute) { return attribute.first == name; });
    if (kept || ::fremovexattr(fd, name.c_str()) == 0 || errno == ENODATA) continue;
    // A security label is the system's to give; the old file's, if any,
    // is written over it below.
    if (name.starts_with("security.")) continue;
    throwFileError(
        core::format("remove the extended attribute {} of", string::toPrintableText(name)),
        file.path(), lastSystemError());
  }
}

// Part of the identity: an inode number freed by a removed file can come
// back at once for a new one, which then has another change time.
std::uint64_t changeTime(const struct stat& status) {
  return static_cast<std::uint64_t>(status.st_ctim.tv_sec) * 1000000000U +
         static_cast<std::uint64_t>(status.st_ctim.tv_nsec);
}

}  // namespace

ReplacedFile identityOf(const struct stat& status) {
  ReplacedFile identity;
  identity.volume = static_cast<std::uint64_t>(status.st_dev);
  identity.id = static_cast<std::uint64_t>(status.st_ino);
  identity.changeTime = changeTime(status);
  return identity;
}

ReplacedFile describe(const struct stat& status, int fd, const std::filesystem::path& path) {
  ReplacedFile replaced = identityOf(status);
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
      throwFileError(
          core::format("copy the extended attribute {} to", string::toPrintableText(name)),
          file.path(), lastSystemError());
    }
  }
  if (retryOnInterrupt([&] { return ::fchmod(fd, replaced.mode); }) != 0) {
    throwFileError("set the permissions of", file.path(), lastSystemError());
  }
}

void makePrivate(File& file) {
  removeInherited(file, {});
  file.setPermissions(std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

}  // namespace korvane::utils::io::detail
