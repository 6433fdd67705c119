// RawTerminal: the platform half of RawLineReader. It tells whether standard
// input is a console, reads standard input byte by byte when it is not, and,
// when it is, takes the console for one edit: it chooses where the prompt
// and the echo go, switches the input into raw mode and provides the edit
// loop's EditTerminal over it. One implementation per platform
// (RawTerminal_posix.cpp, RawTerminal_windows.cpp); the logic around it is
// RawLineReader's.
//
// Thread safety: none; the console modes are process-wide state and one edit
// runs at a time.
#pragma once

#include <memory>
#include <system_error>

#include "lineEdit/EditTerminal.h"

namespace korvane::lineEdit {

class RawTerminal : public EditTerminal {
 public:
  // Whether standard input is a console (a terminal).
  static bool inputIsConsole();

  // Reads one byte of standard input with a plain read. On failure, error
  // tells why.
  static ReadResult readInputByte(char& byte, std::error_code& error);

  // Takes the console for one edit: the output is standard output when that
  // is a console, otherwise the console's own output; the input mode is
  // saved and raw mode switched on. Returns null, with errno ENOTTY, when
  // the console's input or output cannot be used.
  // REQUIRES: inputIsConsole(); no other RawTerminal exists.
  static std::unique_ptr<RawTerminal> open();

  RawTerminal() = default;
  RawTerminal(const RawTerminal&) = delete;
  RawTerminal& operator=(const RawTerminal&) = delete;
  // Restores the input mode if finish() has not.
  ~RawTerminal() override = default;

  // Restores the input mode and moves the output to a new line. Nothing
  // may be read or written afterwards.
  virtual void finish() = 0;
};

}  // namespace korvane::lineEdit
