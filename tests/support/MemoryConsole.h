// MemoryConsole: a console that lives in memory, for tests and fuzzing: the
// test double of lineEdit/Console.h, kept out of the product library.
//
// It holds a screen buffer of cells (a UTF-16 unit and an attribute each),
// the cursor position and cursor information, the current text attribute,
// an input queue of key events, a title and environment variables. The
// operations follow the Windows console's semantics: text output wraps at
// the end of a row and scrolls the buffer up at its bottom, carriage return,
// line feed (which also returns to column 0), backspace, tab and bell are
// processed, and a scroll moves a rectangle clipped to the buffer and the
// clip rectangle and fills what it uncovers. Each UTF-16 unit takes one
// cell (no double-width cells).
//
// The window is the whole buffer. Accessors below let tests inspect and
// prepare the state.
//
// Thread safety: none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "lineEdit/Console.h"

namespace korvane::lineEdit {

class MemoryConsole final : public Console {
 public:
  struct Cell {
    char16_t character = u' ';
    std::uint16_t attributes = 0;

    friend bool operator==(const Cell&, const Cell&) = default;
  };

  // A buffer of `width` columns by `height` rows, filled with spaces in
  // `attributes`, which is also the current text attribute.
  // REQUIRES: 1 <= width, height <= 32767.
  MemoryConsole(int width, int height, std::uint16_t attributes = 0x07);

  // Console.
  bool getScreenBufferInfo(ScreenBufferInfo& info) override;
  bool setCursorPosition(Coord position) override;
  bool getCursorInfo(CursorInfo& info) override;
  bool setCursorInfo(const CursorInfo& info) override;
  std::uint32_t fillOutputCharacter(char16_t character, std::uint32_t length, Coord start) override;
  std::uint32_t fillOutputAttribute(std::uint16_t attributes, std::uint32_t length,
                                    Coord start) override;
  bool scrollScreenBuffer(const Rect& scroll, const Rect* clip, Coord destination,
                          CharInfo fill) override;
  bool setTextAttribute(std::uint16_t attributes) override;
  bool writeText(std::u16string_view text) override;
  bool writeInput(std::span<const KeyEvent> events) override;
  std::size_t getTitle(std::span<char16_t> buffer) override;
  bool setTitle(std::u16string_view title) override;
  std::size_t getEnvironmentVariable(const char16_t* name, std::span<char16_t> buffer) override;

  int width() const noexcept { return width_; }
  int height() const noexcept { return height_; }

  // REQUIRES: 0 <= x < width(), 0 <= y < height().
  const Cell& cell(int x, int y) const;
  std::uint16_t attributeAt(int x, int y) const { return cell(x, y).attributes; }
  void setCell(int x, int y, Cell value);

  // The characters of row `y`, all width() of them.
  std::u16string rowText(int y) const;
  // The characters of row `y` as UTF-8, trailing spaces removed (for
  // readable test expectations). Units that do not form valid UTF-16 come
  // out as U+FFFD.
  std::string rowString(int y) const;

  Coord cursorPosition() const noexcept { return cursor_; }
  const CursorInfo& cursorInfo() const noexcept { return cursorInfo_; }
  std::uint16_t textAttribute() const noexcept { return attributes_; }
  const std::u16string& title() const noexcept { return title_; }

  // The queued input events, oldest first.
  const std::vector<KeyEvent>& inputEvents() const noexcept { return input_; }
  // The characters of the queued key-down events, which are then removed
  // from the queue.
  std::u16string drainInput();

  // Sets (or, with nullopt, removes) an environment variable.
  void setEnvironmentVariable(std::u16string_view name, std::optional<std::u16string_view> value);

  // The lengths of the writeText calls so far, in UTF-16 units.
  const std::vector<std::size_t>& writeSizes() const noexcept { return writeSizes_; }
  // Whether the cursor was visible during the most recent writeText call.
  bool cursorVisibleAtLastWrite() const noexcept { return cursorVisibleAtLastWrite_; }

 private:
  bool contains(int x, int y) const noexcept {
    return x >= 0 && x < width_ && y >= 0 && y < height_;
  }
  // The cells a fill of `length` cells from `start` covers: up to the end of
  // the buffer, none when start lies outside it.
  std::span<Cell> cellsToFill(std::uint32_t length, Coord start);
  Cell& at(int x, int y) {
    return cells_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                  static_cast<std::size_t>(x)];
  }
  void putCharacter(char16_t character);
  void lineFeed();

  int width_;
  int height_;
  std::vector<Cell> cells_;
  Coord cursor_;
  CursorInfo cursorInfo_;
  std::uint16_t attributes_;
  std::vector<KeyEvent> input_;
  std::u16string title_;
  std::map<std::u16string, std::u16string, std::less<>> environment_;
  std::vector<std::size_t> writeSizes_;
  bool cursorVisibleAtLastWrite_ = true;
};

}  // namespace korvane::lineEdit
