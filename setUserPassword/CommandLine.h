// The command line of KorvanePassword: its parsed record, the parser, and
// the two exits that answer help and version requests.
//
// parseCommandLine either returns a complete record or ends the process
// itself (help, version, command-line error); it throws only when an option
// value cannot be turned into a path.
//
// Thread safety: call from the main thread; the exits end the process.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::setUserPassword {

struct CommandLine {
  // True when standard input is a character device (a console or terminal):
  // decides whether usage follows an error, whether a removal is confirmed
  // and whether the password is typed or read from redirected input.
  bool stdinIsConsole = false;
  // The positional argument, byte for byte; never empty after a parse.
  std::string userName;
  // One entry per -ConfigDir, in command-line order.
  std::vector<std::filesystem::path> configDirectories;
  std::optional<std::filesystem::path> usersPath;
  std::optional<std::filesystem::path> passwordsPath;
  bool remove = false;
  bool dontRejectInsecurePasswords = false;
};

CommandLine parseCommandLine(int argc, const char* const* argv);

// An empty message asks for help: usage on standard output, status 0.
// Otherwise "COMMAND LINE ERROR: " and the message on standard error,
// followed by the usage when standard input is a console; status 1.
[[noreturn]] void printUsageAndExit(const CommandLine& commandLine, std::string_view message);

// The version banner on standard output; status 0.
[[noreturn]] void printVersionAndExit(const CommandLine& commandLine);

// The usage text, every line ending in "\n".
std::string_view usageText() noexcept;

// The version banner, three lines ending in "\n".
std::string_view versionText() noexcept;

}  // namespace korvane::setUserPassword
