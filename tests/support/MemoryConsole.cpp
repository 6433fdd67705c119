#include "tests/support/MemoryConsole.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "utils/string/Utf8.h"

namespace korvane::lineEdit {

namespace {

// The control characters the console acts on.
namespace control {
constexpr char16_t bell = 7;
constexpr char16_t backspace = 8;
constexpr char16_t tab = 9;
constexpr char16_t lineFeed = 10;
constexpr char16_t carriageReturn = 13;
}  // namespace control
constexpr int tabWidth = 8;

// The cells' text as UTF-8, a lone surrogate shown as U+FFFD (a cell can
// hold half of a pair).
std::string toUtf8(std::u16string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t codePoint = text[i];
    if (utils::string::isHighSurrogate(codePoint) && i + 1 < text.size() &&
        utils::string::isLowSurrogate(text[i + 1])) {
      codePoint = utils::string::combineSurrogates(codePoint, text[++i]);
    } else if (utils::string::isSurrogate(codePoint)) {
      codePoint = utils::string::replacementCharacter;
    }
    std::array<char, 4> bytes{};
    out.append(bytes.data(), utils::string::encodeUtf8(codePoint, bytes));
  }
  return out;
}

// The intersection of `r` with the rectangle {0, 0, width - 1, height - 1},
// in int coordinates; empty when left > right or top > bottom.
struct Box {
  int left;
  int top;
  int right;
  int bottom;

  bool empty() const noexcept { return left > right || top > bottom; }
  bool contains(int x, int y) const noexcept {
    return x >= left && x <= right && y >= top && y <= bottom;
  }
};

Box clampToBuffer(const Rect& r, int width, int height) {
  return Box{std::max<int>(r.left, 0), std::max<int>(r.top, 0), std::min<int>(r.right, width - 1),
             std::min<int>(r.bottom, height - 1)};
}

}  // namespace

MemoryConsole::MemoryConsole(int width, int height, std::uint16_t attributes)
    : width_(width), height_(height), attributes_(attributes) {
  if (width < 1 || height < 1 || width > 32767 || height > 32767) {
    throw std::invalid_argument(
        "korvane::lineEdit::MemoryConsole::MemoryConsole(): size out of range");
  }
  cells_.assign(static_cast<std::size_t>(width) * static_cast<std::size_t>(height),
                Cell{u' ', attributes});
}

bool MemoryConsole::getScreenBufferInfo(ScreenBufferInfo& info) {
  const auto w = static_cast<std::int16_t>(width_);
  const auto h = static_cast<std::int16_t>(height_);
  info.size = Coord{w, h};
  info.cursorPosition = cursor_;
  info.attributes = attributes_;
  info.window = Rect{0, 0, static_cast<std::int16_t>(w - 1), static_cast<std::int16_t>(h - 1)};
  info.maximumWindowSize = Coord{w, h};
  return true;
}

bool MemoryConsole::setCursorPosition(Coord position) {
  if (!contains(position.x, position.y)) {
    return false;
  }
  cursor_ = position;
  return true;
}

bool MemoryConsole::getCursorInfo(CursorInfo& info) {
  info = cursorInfo_;
  return true;
}

bool MemoryConsole::setCursorInfo(const CursorInfo& info) {
  if (info.size < 1 || info.size > 100) {
    return false;
  }
  cursorInfo_ = info;
  return true;
}

std::span<MemoryConsole::Cell> MemoryConsole::cellsToFill(std::uint32_t length, Coord start) {
  if (!contains(start.x, start.y)) {
    return {};
  }
  const std::size_t first = static_cast<std::size_t>(start.y) * static_cast<std::size_t>(width_) +
                            static_cast<std::size_t>(start.x);
  return std::span<Cell>(cells_).subspan(first,
                                         std::min<std::size_t>(length, cells_.size() - first));
}

std::uint32_t MemoryConsole::fillOutputCharacter(char16_t character, std::uint32_t length,
                                                 Coord start) {
  const std::span<Cell> cells = cellsToFill(length, start);
  for (Cell& cell : cells) {
    cell.character = character;
  }
  return static_cast<std::uint32_t>(cells.size());
}

std::uint32_t MemoryConsole::fillOutputAttribute(std::uint16_t attributes, std::uint32_t length,
                                                 Coord start) {
  const std::span<Cell> cells = cellsToFill(length, start);
  for (Cell& cell : cells) {
    cell.attributes = attributes;
  }
  return static_cast<std::uint32_t>(cells.size());
}

bool MemoryConsole::scrollScreenBuffer(const Rect& scroll, const Rect* clip, Coord destination,
                                       CharInfo fill) {
  // The source is first clipped to the buffer; the destination moves along
  // with the part of the source that was cut off at the top or left.
  const Box source = clampToBuffer(scroll, width_, height_);
  if (source.empty()) {
    return false;
  }
  const Box limit =
      clampToBuffer(clip != nullptr ? *clip : Rect{0, 0, 32767, 32767}, width_, height_);
  const int columns = source.right - source.left + 1;
  const int rows = source.bottom - source.top + 1;
  const int targetLeft = destination.x + (source.left - scroll.left);
  const int targetTop = destination.y + (source.top - scroll.top);
  const Box target{targetLeft, targetTop, targetLeft + columns - 1, targetTop + rows - 1};

  std::vector<Cell> block;
  block.reserve(static_cast<std::size_t>(columns) * static_cast<std::size_t>(rows));
  for (int y = source.top; y <= source.bottom; ++y) {
    for (int x = source.left; x <= source.right; ++x) {
      block.push_back(at(x, y));
    }
  }
  for (int y = source.top; y <= source.bottom; ++y) {
    for (int x = source.left; x <= source.right; ++x) {
      if (limit.contains(x, y) && !target.contains(x, y)) {
        at(x, y) = Cell{fill.character, fill.attributes};
      }
    }
  }
  for (int row = 0; row < rows; ++row) {
    for (int column = 0; column < columns; ++column) {
      const int x = targetLeft + column;
      const int y = targetTop + row;
      if (!limit.empty() && limit.contains(x, y)) {
        at(x, y) = block[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns) +
                         static_cast<std::size_t>(column)];
      }
    }
  }
  return true;
}

bool MemoryConsole::setTextAttribute(std::uint16_t attributes) {
  attributes_ = attributes;
  return true;
}

bool MemoryConsole::writeText(std::u16string_view text) {
  writeSizes_.push_back(text.size());
  cursorVisibleAtLastWrite_ = cursorInfo_.visible;
  for (const char16_t unit : text) {
    switch (unit) {
      case control::bell:
        break;
      case control::backspace:
        if (cursor_.x > 0) {
          --cursor_.x;
        }
        break;
      case control::tab:
        do {
          putCharacter(u' ');
        } while (cursor_.x % tabWidth != 0);
        break;
      case control::lineFeed:
        lineFeed();
        break;
      case control::carriageReturn:
        cursor_.x = 0;
        break;
      default:
        putCharacter(unit);
        break;
    }
  }
  return true;
}

void MemoryConsole::putCharacter(char16_t character) {
  at(cursor_.x, cursor_.y) = Cell{character, attributes_};
  if (cursor_.x + 1 < width_) {
    ++cursor_.x;
  } else {
    lineFeed();
  }
}

void MemoryConsole::lineFeed() {
  cursor_.x = 0;
  if (cursor_.y + 1 < height_) {
    ++cursor_.y;
    return;
  }
  // At the bottom the whole buffer moves up one row.
  std::move(cells_.begin() + width_, cells_.end(), cells_.begin());
  std::fill(cells_.end() - width_, cells_.end(), Cell{u' ', attributes_});
}

bool MemoryConsole::writeInput(std::span<const KeyEvent> events) {
  input_.insert(input_.end(), events.begin(), events.end());
  return true;
}

std::size_t MemoryConsole::getTitle(std::span<char16_t> buffer) {
  if (buffer.empty()) {
    return 0;
  }
  const std::size_t count = std::min(title_.size(), buffer.size() - 1);
  std::copy_n(title_.begin(), count, buffer.begin());
  buffer[count] = 0;
  return count;
}

bool MemoryConsole::setTitle(std::u16string_view title) {
  title_ = title;
  return true;
}

std::size_t MemoryConsole::getEnvironmentVariable(const char16_t* name,
                                                  std::span<char16_t> buffer) {
  const auto found = environment_.find(std::u16string_view(name));
  if (found == environment_.end()) {
    return 0;
  }
  const std::u16string& value = found->second;
  if (value.size() + 1 > buffer.size()) {
    return value.size() + 1;
  }
  std::copy(value.begin(), value.end(), buffer.begin());
  buffer[value.size()] = 0;
  return value.size();
}

const MemoryConsole::Cell& MemoryConsole::cell(int x, int y) const {
  if (!contains(x, y)) {
    throw std::out_of_range(
        "korvane::lineEdit::MemoryConsole::cell(): position outside the buffer");
  }
  return cells_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) +
                static_cast<std::size_t>(x)];
}

void MemoryConsole::setCell(int x, int y, Cell value) {
  if (!contains(x, y)) {
    throw std::out_of_range(
        "korvane::lineEdit::MemoryConsole::setCell(): position outside the buffer");
  }
  at(x, y) = value;
}

std::u16string MemoryConsole::rowText(int y) const {
  std::u16string text;
  text.reserve(static_cast<std::size_t>(width_));
  for (int x = 0; x < width_; ++x) {
    text += cell(x, y).character;
  }
  return text;
}

std::string MemoryConsole::rowString(int y) const {
  std::u16string text = rowText(y);
  text.erase(text.find_last_not_of(u' ') + 1);
  return toUtf8(text);
}

std::u16string MemoryConsole::drainInput() {
  std::u16string text;
  for (const KeyEvent& event : input_) {
    if (event.keyDown) {
      text.append(event.repeatCount, event.character);
    }
  }
  input_.clear();
  return text;
}

void MemoryConsole::setEnvironmentVariable(std::u16string_view name,
                                           std::optional<std::u16string_view> value) {
  if (value) {
    environment_.insert_or_assign(std::u16string(name), std::u16string(*value));
  } else if (const auto found = environment_.find(name); found != environment_.end()) {
    environment_.erase(found);
  }
}

}  // namespace korvane::lineEdit
