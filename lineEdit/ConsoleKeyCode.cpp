#include "lineEdit/ConsoleKeyCode.h"

#include <cstdint>

namespace korvane::lineEdit {

namespace {

// Control-key state bits and virtual-key codes of the Windows console.
constexpr std::uint32_t kRightAltPressed = 0x0001;
constexpr std::uint32_t kRightCtrlPressed = 0x0004;
constexpr std::uint32_t kLeftCtrlPressed = 0x0008;

// Ctrl with a letter: the letters that are editing commands become their
// control codes, every other key is dropped.
std::optional<char16_t> controlCodeForLetter(char16_t character) {
  switch (character) {
    case u'A': case u'B': case u'C': case u'D': case u'E': case u'F':
    case u'H': case u'K': case u'N': case u'P': case u'T': case u'U':
      return static_cast<char16_t>(character - u'A' + 1);
    default:
      return std::nullopt;
  }
}

char16_t codeForVirtualKey(std::uint16_t virtualKey) {
  switch (virtualKey) {
    case 0x08: return 8;   // Backspace
    case 0x0D: return 13;  // Enter
    case 0x1B: return 3;   // Escape cancels like Ctrl+C
    case 0x23: return 5;   // End
    case 0x24: return 1;   // Home
    case 0x25: return 2;   // Left
    case 0x26: return 16;  // Up
    case 0x27: return 6;   // Right
    case 0x28: return 14;  // Down
    case 0x2E: return 4;   // Delete
    default: return 0;
  }
}

}  // namespace

std::optional<char16_t> consoleKeyCode(const KeyEvent& event) noexcept {
  if (!event.keyDown) return std::nullopt;
  const std::uint32_t controls = event.controlKeyState;
  // The mask 0x9 (right Alt, left Ctrl) leaves the right Ctrl key alone.
  if ((controls & (kLeftCtrlPressed | kRightCtrlPressed)) != 0 &&
      (controls & (kRightAltPressed | kLeftCtrlPressed)) == 0) {
    return controlCodeForLetter(event.character);
  }
  const char16_t code = codeForVirtualKey(event.virtualKeyCode);
  if (code != 0) return code;
  if (event.character != 0) return event.character;
  return std::nullopt;
}

}  // namespace korvane::lineEdit
