// What the command line needs to know of the platform: whether standard
// input is a console, and how a narrow argument becomes a file-system path.
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <string_view>

namespace korvane::setUserPassword {

// True when standard input is a character device (Windows: a console
// handle; POSIX: a terminal).
bool standardInputIsConsole() noexcept;

// Converts an option value to a path. POSIX: the bytes as they are.
// Windows: through the code page the standard library would use (UTF-8,
// ANSI or OEM); invalid byte sequences throw std::system_error, values of
// 2^31 bytes or more std::invalid_argument.
std::filesystem::path pathFromArgument(std::string_view argument);

}  // namespace korvane::setUserPassword
