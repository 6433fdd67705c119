#include "setUserPassword/CommandLine.h"

#include <algorithm>
#include <array>

#include "lineEdit/SystemConsole.h"
#include "setUserPassword/Messages.h"
#include "setUserPassword/ProgramArguments.h"
#include "setUserPassword/Version.h"
#include "utils/core/Format.h"
#include "utils/string/PrintableText.h"

namespace korvane::setUserPassword {

namespace {

constexpr std::string_view usage =
    "Usage: KorvanePassword.exe [options] <user name>\n"
    "\n"
    "Options:\n"
    "  -Help, /?                    Show this help and exit\n"
    "  -Version                     Print version information and exit\n"
    "  -Remove                      Remove the password instead of setting a new one\n"
    "  -ConfigDir <path>            Look for the configuration files in the directory <path> "
    "before the default locations. This option can be specified multiple times.\n"
    "                               These directories are not searched for files whose path "
    "has been specified using -Users or -Passwords.\n"
    "  -Users <path>                Load the user configuration from <path>\n"
    "  -Passwords <path>            Modify the password file located at <path>\n"
    "  -DontRejectInsecurePasswords Do not reject weak, insecure passwords\n";

constexpr std::string_view versionHead = "Korvane Password Tool ";
constexpr std::string_view versionTail =
    "\n"
    "Copyright (C) Korvane Software.\n"
    "All rights reserved.\n";

// The banner, joined at compile time around the project's version number.
constexpr auto versionStorage = [] {
  std::array<char, versionHead.size() + versionNumber.size() + versionTail.size()> text{};
  auto out = std::ranges::copy(versionHead, text.begin()).out;
  out = std::ranges::copy(versionNumber, out).out;
  std::ranges::copy(versionTail, out);
  return text;
}();
constexpr std::string_view version(versionStorage.data(), versionStorage.size());

// Ends a parse early: help or version asked for, or the first error.
struct Stop {
  ParsedCommandLine::Request request;
  std::string error;
};

// Walks the arguments once, left to right; the first error ends the parse.
class Parser {
 public:
  Parser(int argc, const char* const* argv) : argc_(argc), argv_(argv) {
    commandLine_.stdinIsConsole = lineEdit::SystemConsole::inputIsConsole();
  }

  ParsedCommandLine parse() {
    try {
      for (index_ = 1; index_ < argc_; ++index_) parseArgument(argv_[index_]);
      if (commandLine_.userName.empty()) fail("no user name specified");
    } catch (Stop& stop) {
      return {stop.request, std::move(commandLine_), std::move(stop.error)};
    }
    return {ParsedCommandLine::Request::run, std::move(commandLine_), {}};
  }

 private:
  void parseArgument(std::string_view argument) {
    if (parseValueOption(argument) || parseFlagOption(argument)) return;
    if (!argument.empty() && (argument.front() == '-' || argument.front() == '/')) {
      fail(utils::core::format("unknown option '{}'", utils::string::toPrintableText(argument)));
    }
    if (!commandLine_.userName.empty()) fail("too many arguments");
    if (argument.empty()) fail("empty string specified as user name");
    commandLine_.userName = argument;
  }

  bool parseValueOption(std::string_view argument) {
    if (argument == "-ConfigDir") {
      const std::string_view value = takeValue();
      if (value.empty()) fail("empty string specified as config directory");
      commandLine_.configDirectories.push_back(pathFromArgument(value));
      return true;
    }
    if (argument == "-Users") {
      setSingle(commandLine_.usersPath, "duplicate user configuration file option",
                "empty string specified for user configuration file");
      return true;
    }
    if (argument == "-Passwords") {
      setSingle(commandLine_.passwordsPath, "duplicate password file option",
                "empty string specified for password file");
      return true;
    }
    return false;
  }

  bool parseFlagOption(std::string_view argument) {
    if (argument == "-Remove") {
      commandLine_.remove = true;
    } else if (argument == "-DontRejectInsecurePasswords") {
      commandLine_.dontRejectInsecurePasswords = true;
    } else if (argument == "-Help" || argument == "/?") {
      throw Stop{ParsedCommandLine::Request::help, {}};
    } else if (argument == "-Version") {
      throw Stop{ParsedCommandLine::Request::version, {}};
    } else {
      return false;
    }
    return true;
  }

  // The duplicate test comes before the empty test, so a second option is
  // a duplicate even when its value is empty.
  void setSingle(std::optional<std::filesystem::path>& target, std::string_view duplicateMessage,
                 std::string_view emptyMessage) {
    const std::string_view value = takeValue();
    if (target) fail(duplicateMessage);
    if (value.empty()) fail(emptyMessage);
    target = pathFromArgument(value);
  }

  // The argument after an option is its value, whatever it looks like; an
  // option in last place has the empty value.
  std::string_view takeValue() {
    if (index_ + 1 >= argc_) return {};
    return argv_[++index_];
  }

  [[noreturn]] static void fail(std::string_view message) {
    throw Stop{ParsedCommandLine::Request::error, std::string(message)};
  }

  int argc_;
  const char* const* argv_;
  int index_ = 1;
  CommandLine commandLine_;
};

}  // namespace

std::string_view usageText() noexcept { return usage; }

std::string_view versionText() noexcept { return version; }

ParsedCommandLine parseCommandLine(int argc, const char* const* argv) {
  return Parser(argc, argv).parse();
}

int answerWithoutRun(const ParsedCommandLine& parsed) {
  int status = 0;
  switch (parsed.request) {
    case ParsedCommandLine::Request::help:
      printText(usage);
      break;
    case ParsedCommandLine::Request::version:
      printText(version);
      break;
    case ParsedCommandLine::Request::error:
    case ParsedCommandLine::Request::run:
      printError(utils::core::format("COMMAND LINE ERROR: {}\n\n{}", parsed.error,
                                     parsed.commandLine.stdinIsConsole ? usage : ""));
      status = 1;
      break;
  }
  lineEdit::SystemConsole::retainConsole();
  return status;
}

}  // namespace korvane::setUserPassword
