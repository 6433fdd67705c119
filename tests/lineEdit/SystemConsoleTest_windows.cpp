// SystemConsole against the real Win32 console: which handles are a console,
// the standard streams' UTF-8 text through the console's UTF-16 writer, and
// the raw line reader's edits on it (raw mode, key events, the restored
// mode).
//
// These need a console (tests/lineEdit/RealConsole_windows.h): without one
// every test reports itself skipped, unless KORVANE_REQUIRE_CONSOLE is set.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <io.h>
#include <windows.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "lineEdit/EditSettings.h"
#include "lineEdit/History.h"
#include "lineEdit/RawLineReader.h"
#include "lineEdit/SystemConsole.h"
#include "tests/lineEdit/RealConsole_windows.h"

namespace korvane::lineEdit {
namespace {

using test::bufferInfo;
using test::input;
using test::output;
using test::screenText;

// Blanks the whole screen buffer and homes the cursor, with the console's
// own calls.
void clearScreen() {
  const CONSOLE_SCREEN_BUFFER_INFO info = bufferInfo();
  const auto cells = static_cast<DWORD>(info.dwSize.X) * static_cast<DWORD>(info.dwSize.Y);
  DWORD written = 0;
  ::FillConsoleOutputCharacterW(output(), L' ', cells, COORD{0, 0}, &written);
  ::SetConsoleCursorPosition(output(), COORD{0, 0});
}

// Sets a standard handle for the lifetime of the object.
class ReplacedStandardHandle {
 public:
  ReplacedStandardHandle(DWORD which, HANDLE replacement)
      : which_(which), saved_(::GetStdHandle(which)) {
    ::SetStdHandle(which, replacement);
  }
  ReplacedStandardHandle(const ReplacedStandardHandle&) = delete;
  ReplacedStandardHandle& operator=(const ReplacedStandardHandle&) = delete;
  ~ReplacedStandardHandle() { ::SetStdHandle(which_, saved_); }

 private:
  DWORD which_;
  HANDLE saved_;
};

TEST(SystemConsoleTest, TheConsoleIsAConsole) {
  REQUIRE_CONSOLE();
  EXPECT_TRUE(SystemConsole::inputIsConsole());
  EXPECT_TRUE(SystemConsole::outputIsConsole(SystemConsole::Output::standardOutput));
}

// A pipe is no console: not for input, not for output, and no edit opens on
// it.
TEST(SystemConsoleTest, APipeIsNoConsole) {
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  ASSERT_TRUE(::CreatePipe(&readEnd, &writeEnd, nullptr, 0));
  {
    const ReplacedStandardHandle stdinPipe(STD_INPUT_HANDLE, readEnd);
    const ReplacedStandardHandle stderrPipe(STD_ERROR_HANDLE, writeEnd);
    EXPECT_FALSE(SystemConsole::inputIsConsole());
    EXPECT_FALSE(SystemConsole::outputIsConsole(SystemConsole::Output::standardError));
    SystemConsole console;
    errno = 0;
    EXPECT_EQ(console.open(), -1);
    EXPECT_EQ(errno, ENOTTY);
  }
  ::CloseHandle(readEnd);
  ::CloseHandle(writeEnd);
}

// A message's UTF-8 reaches the console as the characters it encodes,
// whatever the console's code page: also a character whose bytes come in two
// writes; a line feed starts the next row.
TEST(SystemConsoleTest, StandardOutputShowsUtf8Text) {
  REQUIRE_CONSOLE();
  clearScreen();
  const auto print = [](std::string_view text) {
    SystemConsole::print(SystemConsole::Output::standardOutput, text);
  };
  print(
      "Zo\xc3\xab \xc5\x81\xc3\xb3"
      "d\xc5\xba\n");
  print("\xc3");
  print("\xa9!");
  EXPECT_EQ(screenText(0, 0, 8), L"Zo\u00eb \u0141\u00f3d\u017a");
  EXPECT_EQ(screenText(0, 1, 2), L"\u00e9!");
  EXPECT_EQ(bufferInfo().dwCursorPosition.X, 2);
}

// A redirected stream gets a message's UTF-8 bytes through the C runtime's
// stream, not the console's UTF-16 (here a binary descriptor: as they are).
TEST(SystemConsoleTest, ARedirectedStreamGetsTheBytes) {
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  ASSERT_TRUE(::CreatePipe(&readEnd, &writeEnd, nullptr, 0));
  const int descriptor = _open_osfhandle(reinterpret_cast<std::intptr_t>(writeEnd), _O_BINARY);
  ASSERT_GE(descriptor, 0);
  const int saved = _dup(_fileno(stderr));
  ASSERT_EQ(_dup2(descriptor, _fileno(stderr)), 0);
  SystemConsole::print(SystemConsole::Output::standardError, "caf\xc3\xa9\nend");
  ASSERT_EQ(_dup2(saved, _fileno(stderr)), 0);
  _close(saved);
  _close(descriptor);
  std::string received(64, '\0');
  DWORD read = 0;
  ASSERT_TRUE(
      ::ReadFile(readEnd, received.data(), static_cast<DWORD>(received.size()), &read, nullptr));
  received.resize(read);
  ::CloseHandle(readEnd);
  EXPECT_EQ(received, "caf\xc3\xa9\nend");
}

// Key-down and key-up records for the character `c` (virtual key `vk`).
void pushKey(std::vector<INPUT_RECORD>& records, WORD vk, wchar_t c, DWORD controls = 0) {
  for (const BOOL down : {TRUE, FALSE}) {
    INPUT_RECORD record{};
    record.EventType = KEY_EVENT;
    record.Event.KeyEvent.bKeyDown = down;
    record.Event.KeyEvent.wRepeatCount = 1;
    record.Event.KeyEvent.wVirtualKeyCode = vk;
    record.Event.KeyEvent.uChar.UnicodeChar = c;
    record.Event.KeyEvent.dwControlKeyState = controls;
    records.push_back(record);
  }
}

void type(const std::vector<INPUT_RECORD>& records) {
  ::FlushConsoleInputBuffer(input());
  DWORD written = 0;
  ASSERT_TRUE(
      ::WriteConsoleInputW(input(), records.data(), static_cast<DWORD>(records.size()), &written));
  ASSERT_EQ(written, records.size());
}

TEST(SystemConsoleTest, RawLineReaderEditsAMaskedLine) {
  REQUIRE_CONSOLE();
  clearScreen();
  std::vector<INPUT_RECORD> keys;
  pushKey(keys, 'A', L'a');
  pushKey(keys, 'X', L'x');
  pushKey(keys, VK_BACK, L'\b');
  pushKey(keys, 'B', L'b');
  pushKey(keys, VK_HOME, 0);
  pushKey(keys, 'Z', L'z');
  pushKey(keys, VK_RETURN, L'\r');
  type(keys);
  DWORD modeBefore = 0;
  ::GetConsoleMode(input(), &modeBefore);

  EditSettings settings;
  settings.masked = true;
  History history;
  utils::core::SecureString line;
  EXPECT_EQ(RawLineReader::read("Password: ", settings, history, line).end, LineEnd::accepted);
  EXPECT_EQ(line.view(), "zab");
  EXPECT_EQ(screenText(0, 0, 13), L"Password: ***");

  DWORD modeAfter = 0;
  ::GetConsoleMode(input(), &modeAfter);
  EXPECT_EQ(modeAfter, modeBefore);
}

TEST(SystemConsoleTest, RawLineReaderCancelsOnEscapeAndRestoresTheMode) {
  REQUIRE_CONSOLE();
  clearScreen();
  std::vector<INPUT_RECORD> keys;
  pushKey(keys, 'Q', L'q');
  pushKey(keys, VK_ESCAPE, L'\x1b');
  type(keys);
  DWORD modeBefore = 0;
  ::GetConsoleMode(input(), &modeBefore);
  ASSERT_NE(modeBefore & ENABLE_PROCESSED_INPUT, 0u);

  EditSettings settings;
  History history;
  utils::core::SecureString line;
  EXPECT_EQ(RawLineReader::read("> ", settings, history, line).end, LineEnd::cancelled);

  DWORD modeAfter = 0;
  ::GetConsoleMode(input(), &modeAfter);
  EXPECT_EQ(modeAfter, modeBefore);
}

TEST(SystemConsoleTest, RawLineReaderTakesCtrlCAsAKey) {
  REQUIRE_CONSOLE();
  clearScreen();
  std::vector<INPUT_RECORD> keys;
  pushKey(keys, 'C', L'\x03', LEFT_CTRL_PRESSED);
  type(keys);
  EditSettings settings;
  History history;
  utils::core::SecureString line;
  EXPECT_EQ(RawLineReader::read("> ", settings, history, line).end, LineEnd::cancelled);
}

}  // namespace
}  // namespace korvane::lineEdit
