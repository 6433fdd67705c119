// KeyCode: what the edit loop reads from its terminal, and the codes of the
// editing keys, in one table for every platform's key function and the edit
// loop.
//
// A key code is a UTF-16 code unit (a typed character, or one half of a
// surrogate pair above U+FFFF), a control code 1 to 31 or 127 for an editing
// key, or an editing command that no code unit stands for (above U+10FFFF,
// so that no typed character can be taken for it). Each platform turns its
// own input into key codes in one function: TerminalKeyDecoder::readKey on
// POSIX terminals, consoleKeyCode on the Windows console. The edit loop
// consumes key codes only.
//
// Thread safety: constants only.
#pragma once

namespace korvane::lineEdit {

using KeyCode = char32_t;

namespace keys {

inline constexpr KeyCode home = 1;            // Ctrl+A
inline constexpr KeyCode left = 2;            // Ctrl+B
inline constexpr KeyCode cancel = 3;          // Ctrl+C, Escape
inline constexpr KeyCode deleteOrEnd = 4;     // Ctrl+D, Delete: ends input on an empty line
inline constexpr KeyCode end = 5;             // Ctrl+E
inline constexpr KeyCode right = 6;           // Ctrl+F
inline constexpr KeyCode backspace = 8;       // Ctrl+H, Backspace
inline constexpr KeyCode killToEnd = 11;      // Ctrl+K
inline constexpr KeyCode clearScreen = 12;    // Ctrl+L
inline constexpr KeyCode enter = 13;          // Ctrl+M, Enter
inline constexpr KeyCode down = 14;           // Ctrl+N
inline constexpr KeyCode up = 16;             // Ctrl+P
inline constexpr KeyCode transpose = 20;      // Ctrl+T
inline constexpr KeyCode killLine = 21;       // Ctrl+U
inline constexpr KeyCode killWord = 23;       // Ctrl+W
inline constexpr KeyCode escape = 27;         // resolved by the platform, never read by the loop
inline constexpr KeyCode backspace127 = 127;  // the Backspace of most terminals

// Deletes the character under the cursor and, unlike deleteOrEnd, does
// nothing on an empty line (the Windows console's ESC [ 3 ~).
inline constexpr KeyCode deleteCharacter = 0x110000;

// Stands for bytes from the terminal that are not well-formed UTF-8. No
// character can be made of them, and skipping them would store another line
// than the one typed, so a line during which they came is refused.
inline constexpr KeyCode notUtf8 = 0x110001;

// The key that ESC [ <final> without parameters stands for on both
// platforms (the cursor keys, Home and End), 0 for none.
constexpr KeyCode forControlSequenceFinal(char final) noexcept {
  switch (final) {
    case 'A':
      return up;
    case 'B':
      return down;
    case 'C':
      return right;
    case 'D':
      return left;
    case 'H':
      return home;
    case 'F':
      return end;
    default:
      return 0;
  }
}

// The key that ESC O <final> stands for (Home and End in a terminal's
// application mode), 0 for none.
constexpr KeyCode forSingleShiftFinal(char final) noexcept {
  if (final == 'H') return home;
  if (final == 'F') return end;
  return 0;
}

}  // namespace keys

}  // namespace korvane::lineEdit
