// Console: the console operations that the escape-sequence emulation
// (ConsoleWriter) performs, one virtual function per Windows console call.
//
// Two providers implement it: Win32Console, over a real Windows console
// screen buffer, and the tests' MemoryConsole (tests/support), an in-memory
// screen buffer used on every system. The types below are plain portable
// mirrors of the Windows structures (COORD, SMALL_RECT,
// CONSOLE_SCREEN_BUFFER_INFO, CONSOLE_CURSOR_INFO, KEY_EVENT_RECORD) so
// that this header needs no system header. Coordinates are 16-bit like the Windows ones; rectangles
// are inclusive on all four sides.
//
// Results mirror the Windows calls (true on success, counts of cells or
// characters) but the emulation does not depend on them.
//
// Thread safety: none; a console is driven by one thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace korvane::lineEdit {

struct Coord {
  std::int16_t x = 0;
  std::int16_t y = 0;

  friend bool operator==(const Coord&, const Coord&) = default;
};

// Inclusive on every side: {0, 0, 79, 24} is 80 columns by 25 rows.
struct Rect {
  std::int16_t left = 0;
  std::int16_t top = 0;
  std::int16_t right = 0;
  std::int16_t bottom = 0;

  friend bool operator==(const Rect&, const Rect&) = default;
};

struct ScreenBufferInfo {
  Coord size;                    // columns and rows of the whole buffer
  Coord cursorPosition;          // in buffer coordinates
  std::uint16_t attributes = 0;  // attribute that new text is written with
  Rect window;                   // visible part of the buffer
  Coord maximumWindowSize;
};

struct CursorInfo {
  std::uint32_t size = 25;  // percentage of the cell the cursor fills, 1 to 100
  bool visible = true;
};

// A character with its attribute, as used to fill the cells a scroll
// uncovers.
struct CharInfo {
  char16_t character = u' ';
  std::uint16_t attributes = 0;
};

// One keyboard event in the console input queue.
struct KeyEvent {
  bool keyDown = true;
  std::uint16_t repeatCount = 1;
  std::uint16_t virtualKeyCode = 0;
  std::uint16_t virtualScanCode = 0;
  char16_t character = 0;
  std::uint32_t controlKeyState = 0;

  friend bool operator==(const KeyEvent&, const KeyEvent&) = default;
};

class Console {
 public:
  virtual ~Console() = default;

  // GetConsoleScreenBufferInfo.
  virtual bool getScreenBufferInfo(ScreenBufferInfo& info) = 0;

  // SetConsoleCursorPosition. Fails for a position outside the buffer.
  virtual bool setCursorPosition(Coord position) = 0;

  // GetConsoleCursorInfo / SetConsoleCursorInfo.
  virtual bool getCursorInfo(CursorInfo& info) = 0;
  virtual bool setCursorInfo(const CursorInfo& info) = 0;

  // FillConsoleOutputCharacter / FillConsoleOutputAttribute: write `length`
  // cells from `start` on, row after row, stopping at the end of the buffer.
  // Return the number of cells written.
  virtual std::uint32_t fillOutputCharacter(char16_t character, std::uint32_t length,
                                            Coord start) = 0;
  virtual std::uint32_t fillOutputAttribute(std::uint16_t attributes, std::uint32_t length,
                                            Coord start) = 0;

  // ScrollConsoleScreenBuffer: moves the cells of `scroll` so that its
  // top-left corner lands on `destination`. Only cells inside `clip` (the
  // whole buffer when null) change; the cells of `scroll` that the moved
  // block does not cover take `fill`.
  virtual bool scrollScreenBuffer(const Rect& scroll, const Rect* clip, Coord destination,
                                  CharInfo fill) = 0;

  // SetConsoleTextAttribute: the attribute of text written from now on.
  virtual bool setTextAttribute(std::uint16_t attributes) = 0;

  // WriteConsoleW: writes at the cursor, with the console's processing of
  // carriage return, line feed, backspace, tab and bell.
  virtual bool writeText(std::u16string_view text) = 0;

  // WriteConsoleInput on the console's standard input: appends the events to
  // the input queue, where the program's next read finds them.
  virtual bool writeInput(std::span<const KeyEvent> events) = 0;

  // GetConsoleTitleW: copies at most buffer.size() - 1 characters of the
  // title and a NUL; returns the number of characters copied (0 when the
  // buffer is empty or on failure).
  virtual std::size_t getTitle(std::span<char16_t> buffer) = 0;

  // SetConsoleTitleW.
  virtual bool setTitle(std::u16string_view title) = 0;

  // GetEnvironmentVariableW with its result convention: when the value and a
  // NUL fit, copies them and returns the value's length; when they do not
  // fit, leaves the buffer alone and returns the size needed including the
  // NUL; returns 0 when the variable is not set.
  // REQUIRES: `name` is NUL-terminated.
  virtual std::size_t getEnvironmentVariable(const char16_t* name, std::span<char16_t> buffer) = 0;
};

}  // namespace korvane::lineEdit
