// FileAttributes: what the POSIX replacement reads of the file it replaces
// and gives the new one: identity (device, inode, change time), owner,
// group, mode bits and every extended attribute (access control lists and
// the security label among them). Only for the _posix sources of this
// library.
//
// Thread safety: reentrant.
#pragma once

#include <sys/stat.h>

#include <filesystem>

#include "utils/io/File.h"
#include "utils/io/ReplacementTarget.h"

namespace korvane::utils::io::detail {

// The identity of the file `status` describes, without attributes.
ReplacedFile identityOf(const struct stat& status);

// The identity and attributes of the open file `fd` that `status`
// describes. An attribute that vanishes between its listing and its
// reading means that another program changed the file during the run.
ReplacedFile describe(const struct stat& status, int fd, const std::filesystem::path& path);

// Whether `status` describes the regular file `replaced` identifies.
bool isSameFile(const struct stat& status, const ReplacedFile& replaced);

// Gives the new `file` the owner and group (when running as root), the
// mode bits and the extended attributes of `replaced`, and no other
// attribute. Fails when one cannot be copied.
void copyAttributes(const File& file, const ReplacedFile& replaced);

// Makes the new `file` private to its owner (mode 0600, no inherited
// access control list), whatever the umask and the folder's defaults.
void makePrivate(File& file);

}  // namespace korvane::utils::io::detail
