#include "lineEdit/ConsoleKeyCode.h"

#include <array>
#include <cstdint>

namespace korvane::lineEdit {

namespace {

// Control-key state bits and virtual-key codes of the Windows console.
constexpr std::uint32_t rightAltPressed = 0x0001;
constexpr std::uint32_t rightCtrlPressed = 0x0004;
constexpr std::uint32_t leftCtrlPressed = 0x0008;

// Ctrl with a letter: the letters that are editing commands become their
// control codes, every other key is dropped.
std::optional<KeyCode> controlCodeForLetter(char16_t character) {
  switch (character) {
    case u'A':
    case u'B':
    case u'C':
    case u'D':
    case u'E':
    case u'F':
    case u'H':
    case u'K':
    case u'N':
    case u'P':
    case u'T':
    case u'U':
      return static_cast<KeyCode>(character - u'A' + 1);
    default:
      return std::nullopt;
  }
}

KeyCode codeForVirtualKey(std::uint16_t virtualKey) {
  switch (virtualKey) {
    case 0x08:
      return keys::backspace;
    case 0x0D:
      return keys::enter;
    case 0x1B:
      return keys::cancel;  // Escape cancels like Ctrl+C
    case 0x23:
      return keys::end;
    case 0x24:
      return keys::home;
    case 0x25:
      return keys::left;
    case 0x26:
      return keys::up;
    case 0x27:
      return keys::right;
    case 0x28:
      return keys::down;
    case 0x2E:
      return keys::deleteOrEnd;
    default:
      return 0;
  }
}

// The key an escape sequence stands for, from the bytes after the ESC.
std::optional<KeyCode> escapeSequenceKey(const ReadInputByte& readByte) {
  std::array<char, 3> sequence{};
  if (readByte(sequence[0]) != 1 || readByte(sequence[1]) != 1) return std::nullopt;
  KeyCode key = 0;
  if (sequence[0] == 'O') {
    key = keys::forSingleShiftFinal(sequence[1]);
  } else if (sequence[0] == '[' && sequence[1] >= '0' && sequence[1] <= '9') {
    if (readByte(sequence[2]) != 1) return std::nullopt;
    if (sequence[1] == '3' && sequence[2] == '~') key = keys::deleteCharacter;
  } else if (sequence[0] == '[') {
    key = keys::forControlSequenceFinal(sequence[1]);
  }
  if (key == 0) return std::nullopt;
  return key;
}

}  // namespace

std::optional<KeyCode> consoleKeyCode(const KeyEvent& event, const ReadInputByte& readByte) {
  if (!event.keyDown) return std::nullopt;
  const std::uint32_t controls = event.controlKeyState;
  // The mask 0x9 (right Alt, left Ctrl) leaves the right Ctrl key alone.
  if ((controls & (leftCtrlPressed | rightCtrlPressed)) != 0 &&
      (controls & (rightAltPressed | leftCtrlPressed)) == 0) {
    return controlCodeForLetter(event.character);
  }
  const KeyCode code = codeForVirtualKey(event.virtualKeyCode);
  if (code != 0) return code;
  if (event.character == keys::escape) return escapeSequenceKey(readByte);
  if (event.character != 0) return event.character;
  return std::nullopt;
}

}  // namespace korvane::lineEdit
