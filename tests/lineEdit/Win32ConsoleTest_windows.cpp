// The console writer over Win32Console against the real Win32 console.
//
// These need a console (tests/lineEdit/RealConsole_windows.h): without one
// every test reports itself skipped, unless KORVANE_REQUIRE_CONSOLE is set.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "lineEdit/ConsoleWriter.h"
#include "lineEdit/Win32Console.h"
#include "tests/lineEdit/RealConsole_windows.h"

namespace korvane::lineEdit {
namespace {

using test::bufferInfo;
using test::input;
using test::output;
using test::screenText;

WORD screenAttribute(SHORT column, SHORT row) {
  WORD attribute = 0;
  DWORD read = 0;
  ::ReadConsoleOutputAttribute(output(), &attribute, 1, COORD{column, row}, &read);
  return attribute;
}

class Win32ConsoleTest : public ::testing::Test {
 protected:
  void write(std::string_view bytes) {
    std::size_t consumed = 0;
    EXPECT_TRUE(writer_.write(console_, bytes, consumed));
    EXPECT_EQ(consumed, bytes.size());
  }

  // Clears the screen and homes the cursor through the writer itself.
  void clear() { write("\x1b[2J"); }

  SHORT cursorColumn() { return bufferInfo().dwCursorPosition.X; }
  SHORT cursorRow() { return bufferInfo().dwCursorPosition.Y; }

  Win32Console console_{output()};
  ConsoleWriter writer_;
};

TEST_F(Win32ConsoleTest, WritesTextAtTheCursor) {
  REQUIRE_CONSOLE();
  clear();
  EXPECT_EQ(cursorColumn(), 0);
  EXPECT_EQ(cursorRow(), 0);
  write("hello");
  EXPECT_EQ(screenText(0, 0, 5), L"hello");
  EXPECT_EQ(cursorColumn(), 5);
}

TEST_F(Win32ConsoleTest, Utf8BecomesUtf16OnTheScreen) {
  REQUIRE_CONSOLE();
  clear();
  write(
      "a\xc3\xa9\xe2\x82\xac"
      "b");  // a, e acute, euro sign, b
  EXPECT_EQ(screenText(0, 0, 4), L"a\u00e9\u20acb");
}

TEST_F(Win32ConsoleTest, InvalidUtf8BytesAreDropped) {
  REQUIRE_CONSOLE();
  clear();
  write("x\xff\x80y");
  EXPECT_EQ(screenText(0, 0, 2), L"xy");
}

TEST_F(Win32ConsoleTest, CursorPositioningAndOverwrite) {
  REQUIRE_CONSOLE();
  clear();
  write("hello\x1b[1;1HJ");
  EXPECT_EQ(screenText(0, 0, 5), L"Jello");
  write("\r\x1b[3C");
  EXPECT_EQ(cursorColumn(), 3);
  write("\x1b[3;7H");
  EXPECT_EQ(cursorRow(), 2);
  EXPECT_EQ(cursorColumn(), 6);
}

TEST_F(Win32ConsoleTest, SequenceSplitOverTwoWrites) {
  REQUIRE_CONSOLE();
  clear();
  write("abc\x1b[");
  write("1;2H-");
  EXPECT_EQ(screenText(0, 0, 3), L"a-c");
}

TEST_F(Win32ConsoleTest, EraseInLineFromTheCursor) {
  REQUIRE_CONSOLE();
  clear();
  write("abcdef\r\x1b[3C\x1b[0K");
  EXPECT_EQ(screenText(0, 0, 6), L"abc   ");
  EXPECT_EQ(cursorColumn(), 3);
}

TEST_F(Win32ConsoleTest, InsertAndDeleteCharactersScrollTheRow) {
  REQUIRE_CONSOLE();
  clear();
  write("abcdef\r\x1b[2C\x1b[2P");  // delete "cd"
  EXPECT_EQ(screenText(0, 0, 6), L"abef  ");
  write("\x1b[1@");  // insert one blank before "e"
  EXPECT_EQ(screenText(0, 0, 6), L"ab ef ");
}

TEST_F(Win32ConsoleTest, GraphicRenditionSetsTheAttribute) {
  REQUIRE_CONSOLE();
  clear();
  write("\x1b[31;1mR\x1b[0mN");
  EXPECT_EQ(screenAttribute(0, 0), FOREGROUND_RED | FOREGROUND_INTENSITY);
  EXPECT_EQ(screenAttribute(1, 0), FOREGROUND_RED | FOREGROUND_GREEN | FOREGROUND_BLUE);
}

TEST_F(Win32ConsoleTest, LineDrawingCharactersInShiftOut) {
  REQUIRE_CONSOLE();
  clear();
  write("\x0eqx\x0fq");
  EXPECT_EQ(screenText(0, 0, 3), L"\u2500\u2502q");
}

TEST_F(Win32ConsoleTest, TitleCommand) {
  REQUIRE_CONSOLE();
  write("\x1b]0;Korvane title test\x07");
  wchar_t title[64] = {};
  ::GetConsoleTitleW(title, 64);
  EXPECT_STREQ(title, L"Korvane title test");
}

TEST_F(Win32ConsoleTest, CursorReportArrivesAsTypedInput) {
  REQUIRE_CONSOLE();
  ::FlushConsoleInputBuffer(input());
  clear();
  write("\x1b[4;9H\x1b[6n");
  std::wstring typed;
  INPUT_RECORD records[32];
  DWORD count = 0;
  ASSERT_TRUE(::PeekConsoleInputW(input(), records, 32, &count));
  ASSERT_TRUE(::ReadConsoleInputW(input(), records, count, &count));
  for (DWORD i = 0; i < count; ++i) {
    if (records[i].EventType == KEY_EVENT && records[i].Event.KeyEvent.bKeyDown) {
      typed += records[i].Event.KeyEvent.uChar.UnicodeChar;
    }
  }
  EXPECT_EQ(typed, L"\x1b[4;9R");
}

}  // namespace
}  // namespace korvane::lineEdit
