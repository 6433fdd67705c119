// RawLineReader runs one edit loop at the console: it puts the console input
// into raw mode (keys arrive one by one, unechoed, Ctrl+C as a key instead of
// a signal), turns the console's key input into the edit loop's key codes,
// sends the loop's output to the console and restores the console afterwards,
// also when the process exits or is ended by a signal meanwhile (POSIX: every
// signal whose default action ends the process, unless it is ignored). When
// standard input is not a console it reads a plain line instead, without a
// prompt.
//
// The logic (plain line or edit, the edit buffer, the result) is written
// once, in RawLineReader.cpp; the console itself is SystemConsole, one
// implementation per platform.
//
// Thread safety: none. The console modes are process-wide state; one read at
// a time (LineEditor's callers guarantee this).
#pragma once

#include <string>
#include <string_view>

#include "lineEdit/EditSettings.h"
#include "lineEdit/History.h"
#include "lineEdit/LineResult.h"
#include "utils/core/SecureString.h"

namespace korvane::lineEdit {

class RawLineReader {
 public:
  // Reads one line into line. The result is accepted with the line in line,
  // or tells why there is none (line is then empty):
  //
  // Standard input not a console: no prompt; the next line of standard input
  // without its "\n", read byte by byte so that nothing after it is consumed,
  // at most 4096 bytes at a time (the rest is left for the next read). At the
  // end of input the bytes read so far are the line; with none read, the
  // input has ended (inputEnded). A read error is readFailed, with errno.
  //
  // Standard input a console: the prompt and the echo go to standard output
  // when that is a console too, otherwise to the console itself (POSIX: the
  // terminal of standard input; Windows: the console's own output, CONOUT$).
  // When the console's input or output cannot be used at all: noConsole.
  // Otherwise the edit loop's result (EditLoop::run): a line is accepted
  // only on Enter; readFailed and writeFailed leave the reason in errno.
  static LineResult read(std::string_view prompt, const EditSettings& settings, History& history,
                         utils::core::SecureString& line);

  RawLineReader() = delete;
};

}  // namespace korvane::lineEdit
