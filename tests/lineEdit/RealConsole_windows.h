// The real Windows console for the tests that need one (windowsConsoleTests):
// whether the process has one, and what its screen shows.
//
// Run the program under a pseudo-terminal (Wine then gives it a console), or
// from a console window on Windows. Without a console, REQUIRE_CONSOLE()
// reports the test skipped, unless KORVANE_REQUIRE_CONSOLE is set, which
// turns the missing console into a failure.
//
// Thread safety: the console is process-wide state; one test at a time.
#pragma once

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <string>

namespace korvane::lineEdit::test {

inline bool haveConsole() {
  CONSOLE_SCREEN_BUFFER_INFO info;
  DWORD mode = 0;
  return ::GetConsoleScreenBufferInfo(::GetStdHandle(STD_OUTPUT_HANDLE), &info) &&
         ::GetConsoleMode(::GetStdHandle(STD_INPUT_HANDLE), &mode);
}

#define REQUIRE_CONSOLE()                                                      \
  do {                                                                         \
    if (!::korvane::lineEdit::test::haveConsole()) {                           \
      if (std::getenv("KORVANE_REQUIRE_CONSOLE") != nullptr) {                 \
        FAIL() << "no console on standard output and input";                   \
      }                                                                        \
      GTEST_SKIP() << "no console (run under a pseudo-terminal or a console)"; \
    }                                                                          \
  } while (false)

inline HANDLE output() { return ::GetStdHandle(STD_OUTPUT_HANDLE); }
inline HANDLE input() { return ::GetStdHandle(STD_INPUT_HANDLE); }

inline CONSOLE_SCREEN_BUFFER_INFO bufferInfo() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  ::GetConsoleScreenBufferInfo(output(), &info);
  return info;
}

// The characters of `length` cells of the screen from (column, row).
inline std::wstring screenText(SHORT column, SHORT row, DWORD length) {
  std::wstring text(length, L'\0');
  DWORD read = 0;
  ::ReadConsoleOutputCharacterW(output(), text.data(), length, COORD{column, row}, &read);
  text.resize(read);
  return text;
}

}  // namespace korvane::lineEdit::test
