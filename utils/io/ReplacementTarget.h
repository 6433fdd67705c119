// ReplacementTarget: a file that is replaced as a whole, resolved once.
//
// A new version is written to a temporary file beside the target and then
// moved over it, so that a reader (or a crash, or a power cut) sees either
// the old file or the new one. The tool may run with more rights than the
// owner of the target's folder (root on a folder that a service account
// can write), so nothing in that folder may steer a write elsewhere:
//   - The path is resolved once, when the object is made (see
//     ResolvedPath.h: links are followed only out of folders that no other
//     account can write). Every later step works through the handle of the
//     folder that holds the final target and on the files opened there; a
//     name swapped later for a link, a FIFO or another folder is never
//     followed.
//   - Followed links are kept: the file they finally point to is replaced
//     (or created, for a dangling one).
//   - Only a regular file is read or replaced; anything else at the name is
//     an error naming it, and nothing is read from it.
//   - The replace happens only while the name still refers to the file that
//     was read (its identity, below), or to nothing when nothing was there.
//   - The new file keeps the old one's owner and group (when running as
//     root), mode bits, access control list and extended attributes; a new
//     file is private to its owner.
//
// A replacement has one shape: take the ReplacementLock, open() the file
// to read it, begin() the new version (a Replacement, the temporary file's
// output stream, see Replacement.h), write it, commit() it.
//
// A folder that does not exist is no error here: nothing is at the name,
// and creating the temporary file fails, naming that file.
//
// Thread safety: the object is immutable after construction; its methods
// may be called from any thread, but concurrent replacements of one file
// must be serialised by the caller (see ReplacementLock).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "utils/io/File.h"
#include "utils/io/ResolvedPath.h"

namespace korvane::utils::io {

// What a replacement keeps of the file it replaces, taken from the open file
// that was read, so that the file read is the file replaced.
struct ReplacedFile {
  // The file's identity: device, inode and change time (Windows: volume
  // serial number, file ID and creation time). The time tells a new file
  // apart that took the number of a removed one.
  std::uint64_t volume = 0;
  std::uint64_t id = 0;
  std::uint64_t changeTime = 0;
  // POSIX only: owner, group and mode bits.
  std::uint32_t owner = 0;
  std::uint32_t group = 0;
  std::uint32_t mode = 0;
  // POSIX: every extended attribute (an access control list and a security
  // label among them), name and value. Windows: one entry, the security
  // descriptor's discretionary access control list.
  std::vector<std::pair<std::string, std::string>> attributes;

  bool sameFileAs(const ReplacedFile& other) const noexcept {
    return volume == other.volume && id == other.id && changeTime == other.changeTime;
  }
};

class ReplacementTarget {
 public:
  // Resolves `path` (see above) and opens the folder that holds the final
  // target. Throws what ResolvedPath throws.
  explicit ReplacementTarget(const std::filesystem::path& path) : resolved_(path) {}
  // The target that `resolved` found.
  explicit ReplacementTarget(ResolvedPath&& resolved) noexcept : resolved_(std::move(resolved)) {}
  ReplacementTarget(const ReplacementTarget&) = delete;
  ReplacementTarget& operator=(const ReplacementTarget&) = delete;

  // The final target, links resolved, as messages name it.
  const std::filesystem::path& path() const noexcept { return resolved_.path(); }
  // The folder that holds it.
  const std::filesystem::path& folderPath() const noexcept { return resolved_.folderPath(); }
  // Whether the folder exists; when it does, its open handle.
  bool folderExists() const noexcept { return resolved_.folderExists(); }
  File::NativeHandle folderHandle() const noexcept { return resolved_.folderHandle(); }
  const ResolvedPath& resolved() const noexcept { return resolved_; }

  // Opens the file now at the target's name for reading, without following
  // a link and without blocking (see ResolvedPath::openRegularFile).
  // std::nullopt when nothing is there. Throws std::runtime_error naming the
  // file when it is no regular file (nothing is read from it), and
  // ChangedDuringRunError when a link has appeared at the name since the
  // resolution. `*replaced` receives the file's identity and attributes.
  std::optional<File> open(ReplacedFile* replaced) const;

  // Creates "<name>.<suffix>" beside the target exclusively (anything
  // already at that name, a link included, makes it fail with
  // std::errc::file_exists, and is neither followed nor truncated) and
  // gives it the attributes of `replaced`, or makes it private (POSIX mode
  // 0600) when there is none. Fails when an attribute cannot be copied.
  File createTemporary(std::string_view suffix, const std::optional<ReplacedFile>& replaced) const;

  // Removes the temporary file `temporary` (made by createTemporary, still
  // open) when its name still refers to it, and closes it: what a run
  // wrote and does not use is not left beside the target. Whatever has
  // taken the name meanwhile stays; a failure leaves the file behind.
  void discardTemporary(File temporary) const noexcept;

  // The identity of the open `file` (no attributes), for replace().
  static ReplacedFile identify(const File& file);

  // Moves the complete, synced and closed `temporary` (made by
  // createTemporary; `written` its identity after the last write) over the
  // target, then syncs the folder. Before the move the temporary name must
  // still refer to `written`, and the target's name to the file `replaced`
  // describes, or to nothing when it is std::nullopt; otherwise
  // std::runtime_error says the file was changed or replaced meanwhile, and
  // nothing is replaced. A
  // failed move throws filesystem_error for "rename" with both paths; a
  // failed sync after it, std::system_error saying that the new file is in
  // place.
  //
  // POSIX, when the move fails with EBUSY (the target is a mount point, as
  // a password file bind-mounted into a container) or EXDEV: the content of
  // `temporary` is copied over the target in place (from its start,
  // truncated to the new length, synced), so the target keeps its inode,
  // mode and owner, and only then is `temporary` removed. A target with
  // other names (hard links) is not written. A failed copy
  // throws std::system_error naming both files and the failed step, saying
  // that the target may be incomplete and that the complete `temporary`
  // remains. Readers may see a partly copied target while the copy runs.
  void replace(const std::filesystem::path& temporary, const ReplacedFile& written,
               const std::optional<ReplacedFile>& replaced) const;

 private:
  ResolvedPath resolved_;
};

}  // namespace korvane::utils::io
