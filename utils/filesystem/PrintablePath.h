// toPrintable: the one conversion of a path to the narrow text that messages
// show. On POSIX the path's bytes as they are. On Windows the path in the
// code page of the file interfaces (UTF-8 when the process's ANSI code page
// is UTF-8, else the ANSI or OEM code page), with every "/" shown as "\".
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <string>

namespace korvane::utils::filesystem {

// Throws std::invalid_argument for a path of 2^31 characters or more and
// std::system_error when the code-page conversion fails (Windows).
std::string toPrintable(const std::filesystem::path& path);

}  // namespace korvane::utils::filesystem
