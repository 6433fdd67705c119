// The command line of KorvanePassword: its parsed record, the parser, and
// the answers to help and version requests and to command-line errors.
//
// parseCommandLine returns what the command line asks for: a run with a
// complete record, or an answer that answerWithoutRun prints (help,
// version, a command-line error) before main ends with its status. It
// throws only when an option value cannot be turned into a path.
//
// Thread safety: call from the main thread.
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

// What a command line asks for.
struct ParsedCommandLine {
  enum class Request { run, help, version, error };
  Request request = Request::run;
  // Complete for a run; for an error, what was parsed up to it.
  CommandLine commandLine;
  // The error's text (Request::error only).
  std::string error;
};

ParsedCommandLine parseCommandLine(int argc, const char* const* argv);

// Answers a request other than a run and returns the exit status: help is
// the usage on standard output, status 0; version the version banner on
// standard output, status 0; an error "COMMAND LINE ERROR: " and its text
// on standard error, followed by the usage when standard input is a
// console, status 1.
// REQUIRES: parsed.request != ParsedCommandLine::Request::run.
int answerWithoutRun(const ParsedCommandLine& parsed);

// The usage text, every line ending in "\n".
std::string_view usageText() noexcept;

// The version banner, three lines ending in "\n".
std::string_view versionText() noexcept;

}  // namespace korvane::setUserPassword
