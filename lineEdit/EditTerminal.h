// The console as the edit loop sees it: a source of key codes, an output for
// the refreshed line and the width of the screen. SystemConsole implements it
// over the real console; tests and the fuzzer implement it over scripted
// keys and a recorded output.
//
// Key codes (lineEdit/KeyCode.h) are UTF-16 code units: printable characters
// as themselves (a surrogate pair above U+FFFF), control keys as the codes 1
// to 31 and 127 (Enter 13, Ctrl+C and Escape 3, Delete 4, Home 1, End 5,
// Left 2, Right 6, Up 16, Down 14), and the editing commands above U+10FFFF
// in keys::. Escape sequences are resolved into key codes before they get
// here.
//
// Failures follow the POSIX convention, as everywhere in the line editor:
// -1 with the reason in errno.
//
// Thread safety: implementations are used by one edit loop at a time.
#pragma once

#include <string_view>

#include "lineEdit/KeyCode.h"

namespace korvane::lineEdit {

class EditTerminal {
 public:
  virtual ~EditTerminal() = default;

  // Reads the next key code into key. Returns 1 when a key was read, 0 at
  // the end of the input (a terminal that hung up reads as ended), -1 with
  // errno on failure.
  virtual int readKey(KeyCode& key) = 0;

  // Writes every byte to the console output. Returns 0, or -1 with errno.
  virtual int write(std::string_view bytes) = 0;

  // The width of the screen in columns, 80 when the console cannot tell.
  virtual int columns() = 0;
};

}  // namespace korvane::lineEdit
