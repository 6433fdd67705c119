// RawLineReader runs one edit loop at the console: it puts the console input
// into raw mode (keys arrive one by one, unechoed, Ctrl+C as a key instead of
// a signal), turns the console's key input into the edit loop's key codes,
// sends the loop's output to the console and restores the console afterwards,
// also when the process exits or is killed by SIGTERM, SIGHUP or SIGQUIT
// meanwhile (POSIX). When standard input is not a console it reads a plain
// line instead, without a prompt.
//
// The logic (plain line or edit, the edit buffer, the result and errno) is
// written once, in RawLineReader.cpp; the console itself is RawTerminal, one
// implementation per platform.
//
// Thread safety: none. The console modes are process-wide state; one read at
// a time (LineEditor's callers guarantee this).
#pragma once

#include <string>
#include <string_view>

#include "lineEdit/EditSettings.h"
#include "lineEdit/History.h"

namespace korvane::lineEdit {

class RawLineReader {
 public:
  // Reads one line into line. Returns true on failure: the user cancelled
  // (Ctrl+C, Escape) or ended input on an empty line (Ctrl+D, Delete), or,
  // with errno ENOTTY, there is no console to edit on (below). errno is
  // never ENOTTY after the other failures.
  //
  // Standard input not a console: no prompt; the next line of standard input
  // without its "\n", read byte by byte so that nothing after it is consumed,
  // at most 4096 bytes at a time (the rest is left for the next read); an
  // empty line at the end of input. Never a failure.
  //
  // Standard input a console: the prompt and the echo go to standard output
  // when that is a console too, otherwise to the console itself (POSIX: the
  // terminal of standard input; Windows: the console's own output, CONOUT$).
  // When the console's input or output cannot be used at all: failure with
  // errno ENOTTY, and line empty. An empty line is never made up.
  static bool read(std::string_view prompt, const EditSettings& settings, History& history,
                   std::string& line);

  RawLineReader() = delete;
};

}  // namespace korvane::lineEdit
