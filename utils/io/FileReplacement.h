// Replacing a file as a whole: a new version is written to a temporary file
// beside the target and then moved over it, so that a reader (or a crash,
// or a power cut) sees either the old file or the new one.
//
// Thread safety: reentrant; concurrent replacements of one file must be
// serialised by the caller.
#pragma once

#include <filesystem>

#include "utils/io/File.h"

namespace korvane::utils::io {

// The file that `path` finally names: symbolic links in its last component
// are followed (relative ones from the link's own directory) until a
// non-link or a missing file is reached, so that replacing the result keeps
// every link pointing at the new content. Throws std::system_error on a
// link loop or a failing query.
std::filesystem::path resolveReplacementTarget(const std::filesystem::path& path);

// Gives the temporary `file` what the replaced file has: its mode bits (and,
// for the superuser, its owner and group); 0600 when `target` does not
// exist yet. Nothing on Windows, where the new file inherits the folder's
// access rules.
void copyAttributesForReplacement(File& file, const std::filesystem::path& target);

// Moves `from` over `to`, replacing it: POSIX rename(2) followed by a sync
// of the directory; Windows MoveFileExW with replace, copy and
// write-through. A failed move throws filesystem_error for "rename" with
// both paths; a failed sync after it, std::system_error saying that the
// new file is in place.
//
// POSIX, when rename(2) fails with EBUSY (`to` is a mount point, as a
// password file bind-mounted into a container) or EXDEV (another file
// system) and `to` is a regular file: the content of `from` is copied over
// `to` in place (from its start, truncated to the new length, synced), so
// `to` keeps its inode, mode and owner, and only then is `from` removed. A failed copy throws
// std::system_error naming both files and the failed step, saying that
// `to` may be incomplete and that the complete `from` remains; a failed
// removal afterwards, std::system_error saying that the new file is in
// place. Readers may see a partly copied `to` while the copy runs.
//
// REQUIRES: `from` is complete and synced, and closed; `to` is not a
// symbolic link (see resolveReplacementTarget).
void replaceFile(const std::filesystem::path& from, const std::filesystem::path& to);

}  // namespace korvane::utils::io
