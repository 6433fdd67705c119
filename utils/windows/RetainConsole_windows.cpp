#include <windows.h>

#include <cstdio>

#include "utils/windows/RetainConsole.h"

namespace korvane::utils::windows {

namespace {

bool isOnlyProcessOnConsole() {
  DWORD processes[2];
  return ::GetConsoleProcessList(processes, 2) == 1;
}

void waitForKey() {
  const HANDLE input = ::GetStdHandle(STD_INPUT_HANDLE);
  DWORD mode = 0;
  if (input == INVALID_HANDLE_VALUE || !::GetConsoleMode(input, &mode)) return;
  std::fputs("\nPress any key to close this window.", stdout);
  std::fflush(stdout);
  ::FlushConsoleInputBuffer(input);
  INPUT_RECORD record;
  DWORD read = 0;
  while (::ReadConsoleInputW(input, &record, 1, &read) && read == 1) {
    if (record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown) break;
  }
}

}  // namespace

void retainConsole() noexcept {
  if (isOnlyProcessOnConsole()) waitForKey();
}

}  // namespace korvane::utils::windows
