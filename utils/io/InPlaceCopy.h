// InPlaceCopy: the POSIX replacement's way over a target that cannot be
// renamed over (a mount point, as a password file bind-mounted into a
// container, or another file system): the complete, synced temporary
// file's content is written over the target from its start, the target is
// truncated to the new length and synced, and only then is the temporary
// file removed. The target keeps its inode, mode and owner. Only for the
// _posix sources of this library.
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <system_error>

#include "utils/io/ReplacementTarget.h"

namespace korvane::utils::io::detail {

// What an in-place copy works on: the two files as messages name them, why
// the rename failed, and the two names in the folder.
struct InPlaceCopy {
  const std::filesystem::path& from;
  const std::filesystem::path& to;
  std::error_code renameError;
  int folder;
  const std::filesystem::path& fromName;
  const std::filesystem::path& toName;
};

// Copies `copy.from` (identified by `written`) over `copy.to` (identified
// by `replaced`). Both must still be the files written and read; a target
// with other names (hard links) is not written, since the copy would reach
// them too. A failed step throws std::system_error naming both files,
// saying that the target may be incomplete and that the complete temporary
// file remains.
void copyInPlace(const InPlaceCopy& copy, const ReplacedFile& written,
                 const ReplacedFile& replaced);

}  // namespace korvane::utils::io::detail
