// The console as the edit loop sees it: a source of key codes, the raw bytes
// that follow an escape key, an output for the refreshed line and the width of
// the screen. The raw line reader implements it over the real console; tests
// and the fuzzer implement it over scripted keys and a recorded output.
//
// Key codes are UTF-16 code units: printable characters as themselves (a
// surrogate pair above U+FFFF), control keys as the codes 1 to 31 and 127
// (Enter 13, Ctrl+C and Escape 3, Delete 4, Home 1, End 5, Left 2, Right 6,
// Up 16, Down 14).
//
// Thread safety: implementations are used by one edit loop at a time.
#pragma once

#include <string_view>

namespace korvane::lineEdit {

class EditTerminal {
 public:
  virtual ~EditTerminal() = default;

  // Reads the next key code. Returns false when reading failed or no key
  // could be read (end of input).
  virtual bool readKey(char16_t& key) = 0;

  // Reads one byte from the input with a plain read, for the two or three
  // bytes after the key code 27. Returns false on failure or end of input.
  virtual bool readByte(char& byte) = 0;

  // Writes every byte to the console output. Returns false on failure.
  virtual bool write(std::string_view bytes) = 0;

  // The width of the screen in columns, 80 when the console cannot tell.
  virtual int columns() = 0;
};

}  // namespace korvane::lineEdit
