// ResolvedPath: a path resolved once, one component at a time, through
// handles of the folders on the way. Every file the program opens by name
// goes through it: the configuration files, the checks that find them, the
// password file's temporary file, its lock and its replace.
//
// The program may run with more rights than the owner of a folder on the
// way (root on a folder that a service account can write), so nothing in
// such a folder may steer it elsewhere:
//   - Each step opens the next component relative to the folder before it
//     without following a link (POSIX openat with O_NOFOLLOW; Windows
//     NtCreateFile with the folder as root directory). A link is opened as
//     itself, examined and read through that same handle, so the link
//     checked is the link read.
//   - A link (a reparse point on Windows) is followed only out of a folder
//     that no account but root (SYSTEM and the Administrators on Windows)
//     and the account running the program can write: its owner is one of
//     them, and neither its group nor others may write it. Whoever owns the
//     link proves nothing, since the folder's owner can rename links inside
//     its folder. Otherwise UntrustedLinkError names the link.
//   - The final component is looked at only to follow a trusted link there;
//     what remains is the folder that holds the final name, kept open, and
//     the name. Later steps work through that folder's handle only.
//
// A folder that does not exist is no error: nothing is at the name then.
//
// Thread safety: immutable after construction; its methods may be called
// from any thread.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>

#include "utils/io/File.h"

namespace korvane::utils::io {

// A link that the program must not follow: it sits in a folder that another
// account can write, so that account chooses where it leads.
class UntrustedLinkError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A name that no longer refers to what the run found there: another program
// changed or replaced the file during the run.
class ChangedDuringRunError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class ResolvedPath {
 public:
  // Resolves `path`. Throws UntrustedLinkError for a link it must not
  // follow, std::runtime_error naming `path` when it ends in a folder
  // ("/", "..", "config/"), and std::system_error for a link loop or a
  // failing query.
  explicit ResolvedPath(const std::filesystem::path& path);
  ~ResolvedPath();
  ResolvedPath(ResolvedPath&& other) noexcept;
  ResolvedPath& operator=(ResolvedPath&&) = delete;
  ResolvedPath(const ResolvedPath&) = delete;
  ResolvedPath& operator=(const ResolvedPath&) = delete;

  // The final target, links resolved, as messages name it.
  const std::filesystem::path& path() const noexcept { return path_; }
  // The folder that holds it, and the final component.
  const std::filesystem::path& folderPath() const noexcept { return folderPath_; }
  const std::filesystem::path& name() const noexcept { return name_; }

  // Whether the folder exists; when it does, its open handle (POSIX: a
  // descriptor open for reading, which can be synced and locked).
  bool folderExists() const noexcept { return folder_ != File::invalidHandle; }
  File::NativeHandle folderHandle() const noexcept { return folder_; }

  // Whether anything is at the final name now (a link there is not
  // followed: it appeared after the resolution).
  bool exists() const;

  // Opens the file now at the final name for reading, never following a
  // link and never blocking. std::nullopt when nothing is there. Anything
  // but a regular file is an error naming it (its type is checked before
  // the file is opened for reading and again on the open file), and nothing
  // is read from it; so is a link that appeared since the resolution.
  std::optional<File> openRegularFile() const;

 private:
  std::filesystem::path path_;
  std::filesystem::path folderPath_;
  std::filesystem::path name_;
  File::NativeHandle folder_ = File::invalidHandle;
};

namespace detail {
// Throws the ChangedDuringRunError of `path`, the same text on every system.
[[noreturn]] void throwChangedDuringRun(const std::filesystem::path& path);
}  // namespace detail

}  // namespace korvane::utils::io
