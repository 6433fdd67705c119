// consoleKeyCode: the edit loop's key code for one Windows console key event.
//
// The raw line reader on Windows reads console input records and hands each
// key event here; the mapping itself needs no console, so it is shared and
// tested on every system. Rules:
// - Key-up events yield nothing.
// - A Ctrl key down without the left Ctrl and without the right Alt key
//   (state bits 0x8 and 0x1; so in practice the right Ctrl key alone): the
//   upper-case letters A-F, H, K, N, P, T and U become their control codes
//   (A→1 ... U→21); every other key yields nothing.
// - Otherwise the virtual-key code decides: Backspace→8, Enter→13,
//   Escape→3 (cancels like Ctrl+C), End→5, Home→1, Left→2, Up→16, Right→6,
//   Down→14, Delete→4; any other key yields its UTF-16 character, or
//   nothing when it has none.
//
// Thread safety: a pure function.
#pragma once

#include <optional>

#include "lineEdit/Console.h"

namespace korvane::lineEdit {

std::optional<char16_t> consoleKeyCode(const KeyEvent& event) noexcept;

}  // namespace korvane::lineEdit
