// The console as the edit loop sees it: a source of key codes, an output for
// the refreshed line and the width of the screen. The raw line reader
// implements it over the real console; tests and the fuzzer implement it over
// scripted keys and a recorded output.
//
// Key codes (lineEdit/KeyCode.h) are UTF-16 code units: printable characters
// as themselves (a surrogate pair above U+FFFF), control keys as the codes 1
// to 31 and 127 (Enter 13, Ctrl+C and Escape 3, Delete 4, Home 1, End 5,
// Left 2, Right 6, Up 16, Down 14), and the editing commands above U+10FFFF
// in keys::. Escape sequences are resolved into key codes before they get
// here.
//
// Thread safety: implementations are used by one edit loop at a time.
#pragma once

#include <string_view>

#include "lineEdit/KeyCode.h"

namespace korvane::lineEdit {

class EditTerminal {
 public:
  virtual ~EditTerminal() = default;

  // Reads the next key code. Returns false when reading failed or no key
  // could be read (end of input).
  virtual bool readKey(KeyCode& key) = 0;

  // Writes every byte to the console output. Returns false on failure.
  virtual bool write(std::string_view bytes) = 0;

  // The width of the screen in columns, 80 when the console cannot tell.
  virtual int columns() = 0;
};

}  // namespace korvane::lineEdit
