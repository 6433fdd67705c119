// fileExists: whether something exists at a path, following symbolic links
// (and junctions on Windows).
//
// Only the system's "not found" answers mean false: on POSIX ENOENT and
// ENOTDIR; on Windows the error codes 2 (file not found), 3 (path not
// found), 53 (bad network path) and 123 (invalid name). Any other failure,
// such as a parent directory that may not be searched, is thrown as
// std::filesystem::filesystem_error for the operation "exists", its text
// naming the path as toPrintable shows it (the error holds no path
// member, whose raw form what() would show).
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>

namespace korvane::utils::filesystem {

bool fileExists(const std::filesystem::path& path);

}  // namespace korvane::utils::filesystem
