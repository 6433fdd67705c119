// consoleKeyCode: the edit loop's key code for one Windows console key event.
// It is the Windows console's one key function; portable code, so it is
// built and tested on every system.
//
// The system console on Windows reads console input records and hands each
// key event here, with a way to read the plain input bytes that follow an
// escape character. Rules:
// - Key-up events yield nothing.
// - A Ctrl key down without the left Ctrl and without the right Alt key
//   (state bits 0x8 and 0x1; so in practice the right Ctrl key alone): the
//   upper-case letters A-F, H, K, N, P, T and U become their control codes
//   (A→1 ... U→21); every other key yields nothing.
// - Otherwise the virtual-key code decides: Backspace→8, Enter→13,
//   Escape→3 (cancels like Ctrl+C), End→5, Home→1, Left→2, Up→16, Right→6,
//   Down→14, Delete→4; any other key yields its UTF-16 character, or
//   nothing when it has none.
// - A key whose character is ESC (27), such as Ctrl+[, starts an escape
//   sequence: two more bytes are read with readByte ("[" and a digit: a
//   third). "[A", "[B", "[C", "[D" are Up, Down, Right and Left; "[H" and
//   "OH" Home; "[F" and "OF" End; "[3~" keys::deleteCharacter (which, unlike
//   the Delete key, never ends the input). Any other sequence, or a failed
//   read, yields nothing.
//
// Thread safety: reentrant; readByte is called on the caller's thread.
#pragma once

#include <functional>
#include <optional>

#include "lineEdit/Console.h"
#include "lineEdit/KeyCode.h"

namespace korvane::lineEdit {

// Reads one plain input byte: 1 with the byte, 0 at the end of input, -1
// with errno on failure (SystemConsole::readInputByte's convention).
using ReadInputByte = std::function<int(char& byte)>;

std::optional<KeyCode> consoleKeyCode(const KeyEvent& event, const ReadInputByte& readByte);

}  // namespace korvane::lineEdit
