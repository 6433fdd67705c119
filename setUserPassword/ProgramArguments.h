// The program's arguments as the rest of the program reads them: UTF-8
// text, whatever the system's code pages, and the file-system path an
// option value names. The console itself is lineEdit/SystemConsole's.
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::setUserPassword {

// The program's arguments, the program name first. POSIX: argv as it is.
// Windows: the wide command line (argc and argv are not used: the narrow
// ones went through the ANSI code page, which best-fit maps the characters
// it lacks, "Ł" to "L"), each argument in UTF-8; an unpaired surrogate,
// which has no UTF-8 form, throws std::system_error.
std::vector<std::string> commandLineArguments(int argc, const char* const* argv);

// Converts an option value to a path. POSIX: the bytes as they are.
// Windows: from UTF-8, whatever the code pages; invalid UTF-8 throws
// std::system_error, values of 2^31 bytes or more std::invalid_argument.
std::filesystem::path pathFromArgument(std::string_view argument);

}  // namespace korvane::setUserPassword
