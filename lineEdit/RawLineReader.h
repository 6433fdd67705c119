// RawLineReader runs one edit loop at the console: it puts the console input
// into raw mode (keys arrive one by one, unechoed, Ctrl+C as a key instead of
// a signal), turns the console's key input into the edit loop's key codes,
// sends the loop's output to the console and restores the console afterwards,
// also when the process exits or is killed by SIGTERM, SIGHUP or SIGQUIT
// meanwhile (POSIX). When standard input is not a console it reads a plain
// line instead, without a prompt.
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
  // (Ctrl+C, Escape) or ended input on an empty line (Ctrl+D, Delete).
  //
  // Standard input not a console: no prompt; the next line of standard input
  // without its "\n", read byte by byte so that nothing after it is consumed,
  // at most 4096 bytes at a time (the rest is left for the next read); an
  // empty line at the end of input. Never a failure.
  //
  // Console input but output not usable as a console: errno ENOTTY and an
  // empty line, reported as success.
  static bool read(std::string_view prompt, const EditSettings& settings,
                   History& history, std::string& line);

  RawLineReader() = delete;
};

}  // namespace korvane::lineEdit
