#include "lineEdit/ConsoleKeyCode.h"

#include <windows.h>

#include <gtest/gtest.h>

namespace korvane::lineEdit {
namespace {

KeyEvent key(WORD virtualKey, char16_t character, DWORD controls = 0, bool down = true) {
  KeyEvent event;
  event.keyDown = down;
  event.virtualKeyCode = virtualKey;
  event.character = character;
  event.controlKeyState = controls;
  return event;
}

TEST(ConsoleKeyCodeTest, KeyUpEventsYieldNothing) {
  EXPECT_EQ(consoleKeyCode(key('A', u'a', 0, false)), std::nullopt);
  EXPECT_EQ(consoleKeyCode(key(VK_RETURN, u'\r', 0, false)), std::nullopt);
}

TEST(ConsoleKeyCodeTest, EditingKeysByVirtualKeyCode) {
  EXPECT_EQ(consoleKeyCode(key(VK_BACK, u'\b')), u'\x08');
  EXPECT_EQ(consoleKeyCode(key(VK_RETURN, u'\r')), u'\x0d');
  EXPECT_EQ(consoleKeyCode(key(VK_ESCAPE, u'\x1b')), u'\x03');
  EXPECT_EQ(consoleKeyCode(key(VK_END, 0)), u'\x05');
  EXPECT_EQ(consoleKeyCode(key(VK_HOME, 0)), u'\x01');
  EXPECT_EQ(consoleKeyCode(key(VK_LEFT, 0)), u'\x02');
  EXPECT_EQ(consoleKeyCode(key(VK_UP, 0)), u'\x10');
  EXPECT_EQ(consoleKeyCode(key(VK_RIGHT, 0)), u'\x06');
  EXPECT_EQ(consoleKeyCode(key(VK_DOWN, 0)), u'\x0e');
  EXPECT_EQ(consoleKeyCode(key(VK_DELETE, 0)), u'\x04');
}

TEST(ConsoleKeyCodeTest, OtherKeysYieldTheirCharacter) {
  EXPECT_EQ(consoleKeyCode(key('A', u'a')), u'a');
  EXPECT_EQ(consoleKeyCode(key('A', u'A', SHIFT_PRESSED)), u'A');
  EXPECT_EQ(consoleKeyCode(key(0, u'\u00e9')), u'\u00e9');
  EXPECT_EQ(consoleKeyCode(key(0, u'\xd83d')), u'\xd83d');  // half of a surrogate pair
}

TEST(ConsoleKeyCodeTest, KeysWithoutCharacterAreSkipped) {
  EXPECT_EQ(consoleKeyCode(key(VK_F1, 0)), std::nullopt);
  EXPECT_EQ(consoleKeyCode(key(VK_SHIFT, 0, SHIFT_PRESSED)), std::nullopt);
  EXPECT_EQ(consoleKeyCode(key(VK_INSERT, 0)), std::nullopt);
}

TEST(ConsoleKeyCodeTest, LeftCtrlPassesTheConsolesOwnControlCharacters) {
  // Ctrl+W arrives as 23; Ctrl+arrows act like the plain arrows.
  EXPECT_EQ(consoleKeyCode(key('W', u'\x17', LEFT_CTRL_PRESSED)), u'\x17');
  EXPECT_EQ(consoleKeyCode(key(VK_LEFT, 0, LEFT_CTRL_PRESSED)), u'\x02');
  EXPECT_EQ(consoleKeyCode(key('C', u'\x03', LEFT_CTRL_PRESSED | RIGHT_CTRL_PRESSED)), u'\x03');
}

TEST(ConsoleKeyCodeTest, RightCtrlAloneMapsTheListedUpperCaseLetters) {
  const struct {
    char16_t letter;
    char16_t code;
  } mapped[] = {{u'A', 1}, {u'B', 2},  {u'C', 3},  {u'D', 4},  {u'E', 5},  {u'F', 6},
                {u'H', 8}, {u'K', 11}, {u'N', 14}, {u'P', 16}, {u'T', 20}, {u'U', 21}};
  for (const auto& entry : mapped) {
    EXPECT_EQ(consoleKeyCode(key(entry.letter, entry.letter, RIGHT_CTRL_PRESSED)), entry.code)
        << static_cast<char>(entry.letter);
  }
  for (const char16_t letter : u"GIJLMOQRSVWXYZ") {
    if (letter == 0) break;
    EXPECT_EQ(consoleKeyCode(key(letter, letter, RIGHT_CTRL_PRESSED)), std::nullopt)
        << static_cast<char>(letter);
  }
}

TEST(ConsoleKeyCodeTest, RightCtrlSkipsEverythingElseWithoutLookingAtTheKey) {
  // The console's own control code, arrows (character 0) and lower case
  // letters are all ignored; the virtual-key rule is not consulted.
  EXPECT_EQ(consoleKeyCode(key('A', u'\x01', RIGHT_CTRL_PRESSED)), std::nullopt);
  EXPECT_EQ(consoleKeyCode(key('A', u'a', RIGHT_CTRL_PRESSED)), std::nullopt);
  EXPECT_EQ(consoleKeyCode(key(VK_LEFT, 0, RIGHT_CTRL_PRESSED)), std::nullopt);
  EXPECT_EQ(consoleKeyCode(key(VK_RETURN, u'\r', RIGHT_CTRL_PRESSED)), std::nullopt);
  EXPECT_EQ(consoleKeyCode(key(VK_ESCAPE, u'\x1b', RIGHT_CTRL_PRESSED)), std::nullopt);
}

TEST(ConsoleKeyCodeTest, RightAltWithRightCtrlFallsBackToTheVirtualKey) {
  // AltGr is reported as right Alt with Ctrl: its characters are typed text.
  EXPECT_EQ(consoleKeyCode(key('E', u'\u20ac', RIGHT_CTRL_PRESSED | RIGHT_ALT_PRESSED)), u'\u20ac');
  EXPECT_EQ(consoleKeyCode(key('A', u'A', RIGHT_CTRL_PRESSED | RIGHT_ALT_PRESSED)), u'A');
  EXPECT_EQ(consoleKeyCode(key(VK_LEFT, 0, RIGHT_CTRL_PRESSED | RIGHT_ALT_PRESSED)), u'\x02');
}

TEST(ConsoleKeyCodeTest, LeftAltDoesNotChangeTheCtrlRule) {
  EXPECT_EQ(consoleKeyCode(key('B', u'B', RIGHT_CTRL_PRESSED | LEFT_ALT_PRESSED)), u'\x02');
  EXPECT_EQ(consoleKeyCode(key('B', u'b', LEFT_ALT_PRESSED)), u'b');
}

}  // namespace
}  // namespace korvane::lineEdit
