#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <string>

#include "lineEdit/ConsoleKeyCode.h"

namespace korvane::lineEdit {
namespace {

// The Windows values of the virtual-key codes and control-key flags.
constexpr std::uint16_t keyBack = 0x08;
constexpr std::uint16_t keyReturn = 0x0D;
constexpr std::uint16_t keyShift = 0x10;
constexpr std::uint16_t keyEscape = 0x1B;
constexpr std::uint16_t keyEnd = 0x23;
constexpr std::uint16_t keyHome = 0x24;
constexpr std::uint16_t keyLeftArrow = 0x25;
constexpr std::uint16_t keyUpArrow = 0x26;
constexpr std::uint16_t keyRightArrow = 0x27;
constexpr std::uint16_t keyDownArrow = 0x28;
constexpr std::uint16_t keyInsert = 0x2D;
constexpr std::uint16_t keyDelete = 0x2E;
constexpr std::uint16_t keyF1 = 0x70;
constexpr std::uint32_t rightAltPressed = 0x0001;
constexpr std::uint32_t leftAltPressed = 0x0002;
constexpr std::uint32_t rightCtrlPressed = 0x0004;
constexpr std::uint32_t leftCtrlPressed = 0x0008;
constexpr std::uint32_t shiftPressed = 0x0010;

KeyEvent key(std::uint16_t virtualKey, char16_t character, std::uint32_t controls = 0,
             bool down = true) {
  KeyEvent event;
  event.keyDown = down;
  event.virtualKeyCode = virtualKey;
  event.character = character;
  event.controlKeyState = controls;
  return event;
}

// The key code for `event`, with `bytes` as the plain input that follows it.
std::optional<KeyCode> codeOf(const KeyEvent& event, std::string bytes = {}) {
  std::size_t next = 0;
  return consoleKeyCode(event, [&](char& byte) {
    if (next == bytes.size()) return 0;
    byte = bytes[next++];
    return 1;
  });
}

TEST(ConsoleKeyCodeTest, KeyUpEventsYieldNothing) {
  EXPECT_EQ(codeOf(key('A', u'a', 0, false)), std::nullopt);
  EXPECT_EQ(codeOf(key(keyReturn, u'\r', 0, false)), std::nullopt);
}

TEST(ConsoleKeyCodeTest, EditingKeysByVirtualKeyCode) {
  EXPECT_EQ(codeOf(key(keyBack, u'\b')), u'\x08');
  EXPECT_EQ(codeOf(key(keyReturn, u'\r')), u'\x0d');
  EXPECT_EQ(codeOf(key(keyEscape, u'\x1b')), u'\x03');
  EXPECT_EQ(codeOf(key(keyEnd, 0)), u'\x05');
  EXPECT_EQ(codeOf(key(keyHome, 0)), u'\x01');
  EXPECT_EQ(codeOf(key(keyLeftArrow, 0)), u'\x02');
  EXPECT_EQ(codeOf(key(keyUpArrow, 0)), u'\x10');
  EXPECT_EQ(codeOf(key(keyRightArrow, 0)), u'\x06');
  EXPECT_EQ(codeOf(key(keyDownArrow, 0)), u'\x0e');
  EXPECT_EQ(codeOf(key(keyDelete, 0)), u'\x04');
}

TEST(ConsoleKeyCodeTest, OtherKeysYieldTheirCharacter) {
  EXPECT_EQ(codeOf(key('A', u'a')), u'a');
  EXPECT_EQ(codeOf(key('A', u'A', shiftPressed)), u'A');
  EXPECT_EQ(codeOf(key(0, u'\u00e9')), u'\u00e9');
  EXPECT_EQ(codeOf(key(0, u'\xd83d')), u'\xd83d');  // half of a surrogate pair
}

TEST(ConsoleKeyCodeTest, KeysWithoutCharacterAreSkipped) {
  EXPECT_EQ(codeOf(key(keyF1, 0)), std::nullopt);
  EXPECT_EQ(codeOf(key(keyShift, 0, shiftPressed)), std::nullopt);
  EXPECT_EQ(codeOf(key(keyInsert, 0)), std::nullopt);
}

TEST(ConsoleKeyCodeTest, LeftCtrlPassesTheConsolesOwnControlCharacters) {
  // Ctrl+W arrives as 23; Ctrl+arrows act like the plain arrows.
  EXPECT_EQ(codeOf(key('W', u'\x17', leftCtrlPressed)), u'\x17');
  EXPECT_EQ(codeOf(key(keyLeftArrow, 0, leftCtrlPressed)), u'\x02');
  EXPECT_EQ(codeOf(key('C', u'\x03', leftCtrlPressed | rightCtrlPressed)), u'\x03');
}

TEST(ConsoleKeyCodeTest, RightCtrlAloneMapsTheListedUpperCaseLetters) {
  const struct {
    char16_t letter;
    char16_t code;
  } mapped[] = {{u'A', 1}, {u'B', 2},  {u'C', 3},  {u'D', 4},  {u'E', 5},  {u'F', 6},
                {u'H', 8}, {u'K', 11}, {u'N', 14}, {u'P', 16}, {u'T', 20}, {u'U', 21}};
  for (const auto& entry : mapped) {
    EXPECT_EQ(codeOf(key(entry.letter, entry.letter, rightCtrlPressed)), entry.code)
        << static_cast<char>(entry.letter);
  }
  for (const char16_t letter : u"GIJLMOQRSVWXYZ") {
    if (letter == 0) break;
    EXPECT_EQ(codeOf(key(letter, letter, rightCtrlPressed)), std::nullopt)
        << static_cast<char>(letter);
  }
}

TEST(ConsoleKeyCodeTest, RightCtrlSkipsEverythingElseWithoutLookingAtTheKey) {
  // The console's own control code, arrows (character 0) and lower case
  // letters are all ignored; the virtual-key rule is not consulted.
  EXPECT_EQ(codeOf(key('A', u'\x01', rightCtrlPressed)), std::nullopt);
  EXPECT_EQ(codeOf(key('A', u'a', rightCtrlPressed)), std::nullopt);
  EXPECT_EQ(codeOf(key(keyLeftArrow, 0, rightCtrlPressed)), std::nullopt);
  EXPECT_EQ(codeOf(key(keyReturn, u'\r', rightCtrlPressed)), std::nullopt);
  EXPECT_EQ(codeOf(key(keyEscape, u'\x1b', rightCtrlPressed)), std::nullopt);
}

TEST(ConsoleKeyCodeTest, RightAltWithRightCtrlFallsBackToTheVirtualKey) {
  // AltGr is reported as right Alt with Ctrl: its characters are typed text.
  EXPECT_EQ(codeOf(key('E', u'\u20ac', rightCtrlPressed | rightAltPressed)), u'\u20ac');
  EXPECT_EQ(codeOf(key('A', u'A', rightCtrlPressed | rightAltPressed)), u'A');
  EXPECT_EQ(codeOf(key(keyLeftArrow, 0, rightCtrlPressed | rightAltPressed)), u'\x02');
}

TEST(ConsoleKeyCodeTest, LeftAltDoesNotChangeTheCtrlRule) {
  EXPECT_EQ(codeOf(key('B', u'B', rightCtrlPressed | leftAltPressed)), u'\x02');
  EXPECT_EQ(codeOf(key('B', u'b', leftAltPressed)), u'b');
}

TEST(ConsoleKeyCodeTest, EscapeCharacterReadsItsSequence) {
  struct Case {
    std::string bytes;
    std::optional<KeyCode> code;
    std::size_t bytesRead;
  };
  const Case cases[] = {
      {"[A", keys::up, 2},      {"[B", keys::down, 2},    {"[C", keys::right, 2},
      {"[D", keys::left, 2},    {"[H", keys::home, 2},    {"[F", keys::end, 2},
      {"OH", keys::home, 2},    {"OF", keys::end, 2},     {"[3~", keys::deleteCharacter, 3},
      {"[5~", std::nullopt, 3}, {"[1~", std::nullopt, 3},  // only ESC [ 3 ~ acts
      {"[3x", std::nullopt, 3}, {"[Z", std::nullopt, 2},  {"xy", std::nullopt, 2},
      {"OA", std::nullopt, 2},
  };
  const KeyEvent ctrlBracket = key(0xDB, u'\x1b', leftCtrlPressed);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.bytes);
    std::string input = c.bytes + "rest";
    std::size_t next = 0;
    const std::optional<KeyCode> code = consoleKeyCode(ctrlBracket, [&](char& byte) {
      byte = input[next++];
      return 1;
    });
    EXPECT_EQ(code, c.code);
    EXPECT_EQ(next, c.bytesRead);
  }
}

TEST(ConsoleKeyCodeTest, EscapeSequenceCutShortYieldsNothing) {
  const KeyEvent escapeCharacter = key(0, u'\x1b');
  EXPECT_EQ(codeOf(escapeCharacter, ""), std::nullopt);
  EXPECT_EQ(codeOf(escapeCharacter, "["), std::nullopt);
  EXPECT_EQ(codeOf(escapeCharacter, "[3"), std::nullopt);
}

// A read that fails (-1 with errno) ends the sequence like the end of input.
TEST(ConsoleKeyCodeTest, EscapeSequenceCutShortByAFailedReadYieldsNothing) {
  std::size_t reads = 0;
  const std::optional<KeyCode> code = consoleKeyCode(key(0, u'\x1b'), [&](char& byte) {
    if (reads++ == 0) {
      byte = '[';
      return 1;
    }
    errno = EIO;
    return -1;
  });
  EXPECT_EQ(code, std::nullopt);
  EXPECT_EQ(reads, 2u);
}

TEST(ConsoleKeyCodeTest, TheEscapeKeyCancelsWithoutReading) {
  // The Escape key is decided by its virtual-key code: no bytes are read.
  EXPECT_EQ(consoleKeyCode(key(keyEscape, u'\x1b'),
                           [](char&) -> int {
                             ADD_FAILURE() << "read a byte";
                             return 0;
                           }),
            keys::cancel);
}

}  // namespace
}  // namespace korvane::lineEdit
