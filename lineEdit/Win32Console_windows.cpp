#include <windows.h>

#include <algorithm>
#include <string>
#include <vector>

#include "lineEdit/Win32Console.h"

namespace korvane::lineEdit {

namespace {

static_assert(sizeof(wchar_t) == sizeof(char16_t),
              "UTF-16 text is handed to the console as wchar_t");

COORD toCoord(Coord c) noexcept { return COORD{c.x, c.y}; }
Coord fromCoord(COORD c) noexcept { return Coord{c.X, c.Y}; }
SMALL_RECT toRect(const Rect& r) noexcept { return SMALL_RECT{r.left, r.top, r.right, r.bottom}; }
Rect fromRect(const SMALL_RECT& r) noexcept { return Rect{r.Left, r.Top, r.Right, r.Bottom}; }

DWORD toDword(std::size_t size) noexcept {
  return static_cast<DWORD>(std::min<std::size_t>(size, MAXDWORD));
}

}  // namespace

bool Win32Console::getScreenBufferInfo(ScreenBufferInfo& info) {
  CONSOLE_SCREEN_BUFFER_INFO native{};
  if (!::GetConsoleScreenBufferInfo(output_, &native)) {
    return false;
  }
  info.size = fromCoord(native.dwSize);
  info.cursorPosition = fromCoord(native.dwCursorPosition);
  info.attributes = native.wAttributes;
  info.window = fromRect(native.srWindow);
  info.maximumWindowSize = fromCoord(native.dwMaximumWindowSize);
  return true;
}

bool Win32Console::setCursorPosition(Coord position) {
  return ::SetConsoleCursorPosition(output_, toCoord(position)) != FALSE;
}

bool Win32Console::getCursorInfo(CursorInfo& info) {
  CONSOLE_CURSOR_INFO native{};
  if (!::GetConsoleCursorInfo(output_, &native)) {
    return false;
  }
  info.size = native.dwSize;
  info.visible = native.bVisible != FALSE;
  return true;
}

bool Win32Console::setCursorInfo(const CursorInfo& info) {
  const CONSOLE_CURSOR_INFO native{info.size, info.visible ? TRUE : FALSE};
  return ::SetConsoleCursorInfo(output_, &native) != FALSE;
}

std::uint32_t Win32Console::fillOutputCharacter(char16_t character, std::uint32_t length,
                                                Coord start) {
  DWORD written = 0;
  if (!::FillConsoleOutputCharacterW(output_, static_cast<WCHAR>(character), length, toCoord(start),
                                     &written)) {
    return 0;
  }
  return written;
}

std::uint32_t Win32Console::fillOutputAttribute(std::uint16_t attributes, std::uint32_t length,
                                                Coord start) {
  DWORD written = 0;
  if (!::FillConsoleOutputAttribute(output_, attributes, length, toCoord(start), &written)) {
    return 0;
  }
  return written;
}

bool Win32Console::scrollScreenBuffer(const Rect& scroll, const Rect* clip, Coord destination,
                                      CharInfo fill) {
  const SMALL_RECT nativeScroll = toRect(scroll);
  SMALL_RECT nativeClip{};
  if (clip != nullptr) {
    nativeClip = toRect(*clip);
  }
  CHAR_INFO nativeFill{};
  nativeFill.Char.UnicodeChar = static_cast<WCHAR>(fill.character);
  nativeFill.Attributes = fill.attributes;
  return ::ScrollConsoleScreenBufferW(output_, &nativeScroll,
                                      clip != nullptr ? &nativeClip : nullptr, toCoord(destination),
                                      &nativeFill) != FALSE;
}

bool Win32Console::setTextAttribute(std::uint16_t attributes) {
  return ::SetConsoleTextAttribute(output_, attributes) != FALSE;
}

// The program's one WriteConsoleW: the line editor's output and the
// standard streams' console output both come here. Older consoles refuse
// a single write of more than about 64 KiB, so long text goes in parts.
bool Win32Console::writeText(std::u16string_view text) {
  constexpr std::size_t partLength = 8192;
  while (!text.empty()) {
    DWORD written = 0;
    if (!::WriteConsoleW(output_, reinterpret_cast<const wchar_t*>(text.data()),
                         toDword(std::min(text.size(), partLength)), &written, nullptr) ||
        written == 0) {
      return false;
    }
    text.remove_prefix(std::min<std::size_t>(written, text.size()));
  }
  return true;
}

bool Win32Console::writeInput(std::span<const KeyEvent> events) {
  if (events.empty()) {
    return true;
  }
  std::vector<INPUT_RECORD> records(events.size());
  for (std::size_t i = 0; i < events.size(); ++i) {
    const KeyEvent& event = events[i];
    INPUT_RECORD& record = records[i];
    record.EventType = KEY_EVENT;
    record.Event.KeyEvent.bKeyDown = event.keyDown ? TRUE : FALSE;
    record.Event.KeyEvent.wRepeatCount = event.repeatCount;
    record.Event.KeyEvent.wVirtualKeyCode = event.virtualKeyCode;
    record.Event.KeyEvent.wVirtualScanCode = event.virtualScanCode;
    record.Event.KeyEvent.uChar.UnicodeChar = static_cast<WCHAR>(event.character);
    record.Event.KeyEvent.dwControlKeyState = event.controlKeyState;
  }
  DWORD written = 0;
  return ::WriteConsoleInputW(::GetStdHandle(STD_INPUT_HANDLE), records.data(),
                              toDword(records.size()), &written) != FALSE;
}

std::size_t Win32Console::getTitle(std::span<char16_t> buffer) {
  if (buffer.empty()) {
    return 0;
  }
  // Older consoles neither terminate a truncated title nor report its
  // length reliably, so the length is taken from the terminated buffer.
  buffer[0] = 0;
  ::GetConsoleTitleW(reinterpret_cast<wchar_t*>(buffer.data()), toDword(buffer.size()));
  buffer.back() = 0;
  return std::char_traits<char16_t>::length(buffer.data());
}

bool Win32Console::setTitle(std::u16string_view title) {
  const std::wstring text(title.begin(), title.end());
  return ::SetConsoleTitleW(text.c_str()) != FALSE;
}

std::size_t Win32Console::getEnvironmentVariable(const char16_t* name, std::span<char16_t> buffer) {
  // Read into scratch space, so that the caller's buffer is untouched when
  // the value does not fit (Windows leaves its content undefined then).
  std::vector<wchar_t> scratch(std::max<std::size_t>(buffer.size(), 1));
  const DWORD length = ::GetEnvironmentVariableW(reinterpret_cast<const wchar_t*>(name),
                                                 scratch.data(), toDword(scratch.size()));
  if (length == 0) {
    // Not set, or set to the empty string.
    if (::GetLastError() != ERROR_ENVVAR_NOT_FOUND && !buffer.empty()) {
      buffer[0] = 0;
    }
    return 0;
  }
  if (length >= buffer.size()) {
    return length;
  }
  std::transform(scratch.begin(), scratch.begin() + length + 1, buffer.begin(),
                 [](wchar_t c) { return static_cast<char16_t>(c); });
  return length;
}

}  // namespace korvane::lineEdit
