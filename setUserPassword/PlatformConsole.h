// What the program needs to know of the platform's console: the arguments
// as UTF-8 text, whether standard input is a console, how an argument
// becomes a file-system path, and keeping a console window open to be read.
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::setUserPassword {

// True when standard input is a character device (Windows: a console
// handle; POSIX: a terminal).
bool standardInputIsConsole() noexcept;

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

// Keeps a console window open long enough to be read: called right before
// the process ends after printing something the user must see. On Windows,
// when this process is the only one attached to its console (it was
// started from Explorer, whose console closes with it), it waits for a key;
// otherwise, and on every other system, it returns at once. It never throws
// and never changes the exit status.
void retainConsole() noexcept;

}  // namespace korvane::setUserPassword
