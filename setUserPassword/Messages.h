// printLine, printText, printError: the program's messages to the user, each
// written at once (see lineEdit::SystemConsole::print), so that it comes before
// whatever the program does next: a prompt, an error, the end of the run.
//
// Thread safety: from the main thread only.
#pragma once

#include <string_view>

#include "lineEdit/SystemConsole.h"

namespace korvane::setUserPassword {

// `text` and a line feed on standard output.
inline void printLine(std::string_view text) noexcept {
  lineEdit::SystemConsole::print(lineEdit::SystemConsole::Output::standardOutput, text, true);
}

// `text` as it is on standard output.
inline void printText(std::string_view text) noexcept {
  lineEdit::SystemConsole::print(lineEdit::SystemConsole::Output::standardOutput, text);
}

// `text` as it is on standard error.
inline void printError(std::string_view text) noexcept {
  lineEdit::SystemConsole::print(lineEdit::SystemConsole::Output::standardError, text);
}

}  // namespace korvane::setUserPassword
