#include "lineEdit/ConsoleWriter.h"

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "utils/core/Format.h"
#include "utils/string/Utf8.h"

namespace korvane::lineEdit {

namespace {

constexpr unsigned char bell = 7;
constexpr unsigned char shiftOut = 14;
constexpr unsigned char shiftIn = 15;
constexpr unsigned char escape = 27;

// DEC special graphics for the bytes 0x5F to 0x7E while shift-out is on.
constexpr unsigned char lineDrawingFirst = 0x5F;
constexpr unsigned char lineDrawingLast = 0x7E;
constexpr std::array<char16_t, 32> lineDrawing = {
    u'\u0020', u'\u2666', u'\u2592', u'\u2409', u'\u240C', u'\u240D', u'\u240A', u'\u00B0',
    u'\u00B1', u'\u2424', u'\u240B', u'\u2518', u'\u2510', u'\u250C', u'\u2514', u'\u253C',
    u'\u00AF', u'\u25AC', u'\u2500', u'\u005F', u'\u005F', u'\u251C', u'\u2524', u'\u2534',
    u'\u252C', u'\u2502', u'\u2264', u'\u2265', u'\u03C0', u'\u2260', u'\u00A3', u'\u00B7',
};

// Console attribute bits of the ANSI colour indexes (black, red, green,
// yellow, blue, magenta, cyan, white). The table is its own inverse, so it
// also maps attribute bits back to indexes.
constexpr std::array<std::uint16_t, 8> foreground = {0, 4, 2, 6, 1, 5, 3, 7};
constexpr std::array<std::uint16_t, 8> background = {0x00, 0x40, 0x20, 0x60,
                                                     0x10, 0x50, 0x30, 0x70};
constexpr std::uint16_t bold = 0x08;
constexpr std::uint16_t underline = 0x80;

// Longest title the 't' report carries.
constexpr std::size_t maxTitleReport = 515;

constexpr bool isDigit(unsigned char byte) noexcept { return byte >= '0' && byte <= '9'; }

// The console's 16-bit coordinates; arithmetic is done in 64 bits and
// brought back here, so that huge parameters cannot wrap around.
std::int16_t toShort(std::int64_t value) noexcept {
  return static_cast<std::int16_t>(std::clamp<std::int64_t>(
      value, std::numeric_limits<std::int16_t>::min(), std::numeric_limits<std::int16_t>::max()));
}

std::uint32_t toCount(std::int64_t value) noexcept {
  return static_cast<std::uint32_t>(
      std::clamp<std::int64_t>(value, 0, std::numeric_limits<std::uint32_t>::max()));
}

// Clamps into 0..limit - 1 (0 when the limit is not positive).
std::int64_t clampIndex(std::int64_t value, std::int64_t limit) noexcept {
  return std::max<std::int64_t>(0, std::min(value, limit - 1));
}

// Reads the default-colours setting (NUL-terminated) as a base-16 number:
// leading white space, an optional sign, an optional "0x", then hexadecimal
// digits up to the first other character; 0 when there are none, and the
// largest 32-bit value when there are more digits than fit. No setting is
// refused: whatever the variable holds gives some attribute, so a mistyped
// value changes colours but never stops the program's output.
std::int32_t parseHex(std::span<const char16_t> text) noexcept {
  std::size_t i = 0;
  const auto at = [&](std::size_t index) -> char16_t {
    return index < text.size() ? text[index] : char16_t{0};
  };
  while (at(i) == u' ' || (at(i) >= u'\t' && at(i) <= u'\r')) {
    ++i;
  }
  bool negative = false;
  if (at(i) == u'+' || at(i) == u'-') {
    negative = at(i) == u'-';
    ++i;
  }
  if (at(i) == u'0' && (at(i + 1) == u'x' || at(i + 1) == u'X')) {
    i += 2;
  }
  std::int64_t value = 0;
  for (;; ++i) {
    const char16_t c = at(i);
    int digit = 0;
    if (c >= u'0' && c <= u'9') {
      digit = c - u'0';
    } else if (c >= u'a' && c <= u'f') {
      digit = c - u'a' + 10;
    } else if (c >= u'A' && c <= u'F') {
      digit = c - u'A' + 10;
    } else {
      break;
    }
    value = std::min<std::int64_t>(value * 16 + digit, std::numeric_limits<std::int32_t>::max());
  }
  return static_cast<std::int32_t>(negative ? -value : value);
}

std::u16string asciiToUtf16(std::string_view text) {
  return std::u16string(text.begin(), text.end());
}

// The screen as a control sequence finds it, and the three operations the
// sequences are made of.
struct Screen {
  Console& console;
  ScreenBufferInfo info;
  std::int64_t width;
  std::int64_t height;
  std::int64_t x;
  std::int64_t y;

  void moveTo(std::int64_t column, std::int64_t row) const {
    console.setCursorPosition(
        Coord{toShort(clampIndex(column, width)), toShort(clampIndex(row, height))});
  }
  void fill(std::int64_t count, std::int64_t column, std::int64_t row) const {
    const Coord start{toShort(column), toShort(row)};
    console.fillOutputCharacter(u' ', toCount(count), start);
    console.fillOutputAttribute(info.attributes, toCount(count), start);
  }
  void scroll(std::int64_t left, std::int64_t top, std::int64_t right, std::int64_t bottom,
              std::int64_t toColumn, std::int64_t toRow) const {
    const Rect rect{toShort(left), toShort(top), toShort(right), toShort(bottom)};
    console.scrollScreenBuffer(rect, nullptr, Coord{toShort(toColumn), toShort(toRow)},
                               CharInfo{u' ', info.attributes});
  }
};

Screen screenOf(Console& console) {
  ScreenBufferInfo info{};
  console.getScreenBufferInfo(info);
  return Screen{
      console, info, info.size.x, info.size.y, info.cursorPosition.x, info.cursorPosition.y};
}

// The sequences that move the cursor by or to `n`; false for any other.
bool moveCursor(const Screen& screen, unsigned char final, std::int64_t n) {
  const std::int64_t x = screen.x;
  const std::int64_t y = screen.y;
  switch (final) {
    case 'A':
    case 'k':
      screen.moveTo(x, y - n);
      return true;
    case 'B':
    case 'e':
      screen.moveTo(x, y + n);
      return true;
    case 'C':
    case 'a':
      screen.moveTo(x + n, y);
      return true;
    case 'D':
    case 'j':
      screen.moveTo(x - n, y);
      return true;
    case 'E':
      screen.moveTo(0, y + n);
      return true;
    case 'F':
      screen.moveTo(0, y - n);
      return true;
    case 'G':
    case '`':
      screen.moveTo(n - 1, y);
      return true;
    case 'd':
      screen.moveTo(x, n - 1);
      return true;
    default:
      return false;
  }
}

// The sequences that blank cells (mode or count `n`); false for any other.
bool eraseCells(const Screen& screen, unsigned char final, std::int64_t n) {
  const std::int64_t x = screen.x;
  const std::int64_t y = screen.y;
  const std::int64_t width = screen.width;
  switch (final) {
    case 'J':
      // Mode 0 leaves the buffer's very last cell alone, on purpose.
      if (n == 0) {
        screen.fill((screen.height - y) * width - x - 1, x, y);
      } else if (n == 1) {
        screen.fill(width * y + x + 1, 0, 0);
      } else if (n == 2) {
        screen.fill(width * screen.height, 0, 0);
        screen.console.setCursorPosition(Coord{0, 0});
      }
      return true;
    case 'K':
      // Mode 0 fills one cell more than the rest of the row, the first cell
      // of the next row with it; the count is fixed so that every screen
      // the emulation draws stays cell for cell the same.
      if (n == 0) {
        screen.fill(width - x + 1, x, y);
      } else if (n == 1) {
        screen.fill(x + 1, 0, y);
      } else if (n == 2) {
        screen.fill(width, 0, y);
      }
      return true;
    case 'X':
      screen.fill(n, x, y);
      return true;
    default:
      return false;
  }
}

// The sequences that insert or delete `n` cells or rows, moving the rest;
// false for any other.
bool shiftCells(const Screen& screen, unsigned char final, std::int64_t n) {
  const std::int64_t x = screen.x;
  const std::int64_t y = screen.y;
  const std::int64_t width = screen.width;
  const std::int64_t height = screen.height;
  const std::int64_t cellsInRow = x + n > width - 1 ? width - x : n;
  switch (final) {
    case '@':
      screen.scroll(x, y, width - cellsInRow - 1, y, x + cellsInRow, y);
      return true;
    case 'P':
      screen.scroll(x + cellsInRow, y, width - 1, y, x, y);
      return true;
    case 'L':
      screen.scroll(0, y, width - 1, height - 1, 0, y + n);
      return true;
    case 'M': {
      const std::int64_t rows = std::min(n, height - y);
      screen.scroll(0, y + rows, width - 1, height - 1, 0, y);
      return true;
    }
    default:
      return false;
  }
}

}  // namespace

bool ConsoleWriter::write(Console& console, std::string_view bytes, std::size_t& consumed) {
  if (&console != console_) {
    console_ = &console;
    state_ = State::normal;
    shiftOut_ = false;
  }
  // The cursor is hidden while the text is drawn so that it does not flicker
  // across the screen; a cursor-visibility sequence changes what is restored.
  cursorInfo_ = CursorInfo{};
  console.getCursorInfo(cursorInfo_);
  CursorInfo hidden = cursorInfo_;
  hidden.visible = false;
  console.setCursorInfo(hidden);

  for (std::size_t index = 0; index < bytes.size();) {
    index = feed(console, bytes, index);
  }

  flush(console);
  console.setCursorInfo(cursorInfo_);
  consumed = bytes.size();
  return true;
}

std::size_t ConsoleWriter::feed(Console& console, std::string_view bytes, std::size_t index) {
  const auto byte = static_cast<unsigned char>(bytes[index]);
  switch (state_) {
    case State::normal:
      if (byte == escape) {
        state_ = State::escape;
      } else if (byte == shiftOut) {
        shiftOut_ = true;
      } else if (byte == shiftIn) {
        shiftOut_ = false;
      } else {
        return feedText(console, bytes, index);
      }
      break;
    case State::escape:
      feedEscape(console, byte);
      break;
    case State::introducer:
      feedIntroducer(console, byte);
      break;
    case State::parameters:
      feedParameters(console, byte);
      break;
    case State::osString:
      feedString(console, byte);
      break;
    case State::skipOne:
      state_ = State::normal;
      break;
  }
  return index + 1;
}

std::size_t ConsoleWriter::feedText(Console& console, std::string_view bytes, std::size_t index) {
  const auto lead = static_cast<unsigned char>(bytes[index]);
  if (shiftOut_ && lead >= lineDrawingFirst && lead <= lineDrawingLast) {
    append(console, std::u16string_view(&lineDrawing[lead - lineDrawingFirst], 1));
    return index + 1;
  }
  if (lead < 0x80) {
    const char16_t unit = lead;
    append(console, std::u16string_view(&unit, 1));
    return index + 1;
  }
  // A malformed sequence is dropped whole: a stray continuation byte or an
  // impossible lead byte alone, a sequence cut short by the end of this
  // call's input with the rest of the input, any other one over the length
  // its lead byte announces.
  const utils::string::Utf8Sequence sequence =
      utils::string::decodeUtf8(bytes.substr(index), utils::string::Utf8Malformed::reject);
  if (sequence.wellFormed) {
    std::array<char16_t, 2> units{};
    const std::size_t count = utils::string::encodeUtf16(sequence.codePoint, units);
    append(console, std::u16string_view(units.data(), count));
  }
  return index + sequence.length;
}

void ConsoleWriter::feedEscape(Console& console, unsigned char byte) {
  if (byte == escape) {
    return;
  }
  if (byte == '[' || byte == ']') {
    flush(console);
    introducer_ = byte;
    prefix_ = 0;
    parameterIndex_ = 0;
    parameterCount_ = 0;
    parameters_.fill(0);
    stringLength_ = 0;
    string_[0] = 0;
    stringAfterEscape_ = false;
    state_ = State::introducer;
  } else if (byte == '(' || byte == ')') {
    state_ = State::skipOne;
  } else {
    state_ = State::normal;
  }
}

void ConsoleWriter::feedIntroducer(Console& console, unsigned char byte) {
  if (isDigit(byte)) {
    parameterIndex_ = 0;
    parameters_[0] = byte - '0';
    state_ = State::parameters;
  } else if (byte == ';') {
    // An empty first parameter, and the second one begun.
    parameterIndex_ = 1;
    parameters_[0] = 0;
    parameters_[1] = 0;
    state_ = State::parameters;
  } else if (byte == '>' || byte == '?') {
    prefix_ = byte;
  } else {
    final_ = byte;
    parameterCount_ = 0;
    state_ = State::normal;
    interpret(console);
  }
}

void ConsoleWriter::feedParameters(Console& console, unsigned char byte) {
  if (isDigit(byte)) {
    // Saturates instead of wrapping, so a huge value stays huge.
    std::uint32_t& value = parameters_[parameterIndex_];
    value = static_cast<std::uint32_t>(std::min<std::uint64_t>(
        std::uint64_t{value} * 10 + (byte - '0'), std::numeric_limits<std::uint32_t>::max()));
  } else if (byte == ';') {
    if (parameterIndex_ + 1 < maxParameters) {
      ++parameterIndex_;
    }
    parameters_[parameterIndex_] = 0;
    if (introducer_ == ']') {
      parameterCount_ = parameterIndex_;
      state_ = State::osString;
    }
  } else {
    final_ = byte;
    parameterCount_ = parameterIndex_ + 1;
    state_ = State::normal;
    interpret(console);
  }
}

void ConsoleWriter::feedString(Console& console, unsigned char byte) {
  const bool afterEscape = stringAfterEscape_;
  stringAfterEscape_ = byte == escape;
  if (byte == bell || (byte == '\\' && afterEscape)) {
    if (byte == '\\' && stringLength_ > 0 && string_[stringLength_ - 1] == escape) {
      string_[--stringLength_] = 0;
    }
    state_ = State::normal;
    interpretOperatingSystemCommand(console);
    return;
  }
  // Bytes are stored one to one as 16-bit characters; a full buffer drops
  // the rest of the string. (An ESC dropped that way still ends the string
  // together with the following '\', so an over-long title cannot swallow
  // the output after it.)
  if (stringLength_ < maxStringLength) {
    string_[stringLength_++] = byte;
    string_[stringLength_] = 0;
  }
}

void ConsoleWriter::append(Console& console, std::u16string_view units) {
  if (outputLength_ + units.size() > output_.size()) {
    flush(console);
  }
  std::copy(units.begin(), units.end(),
            output_.begin() + static_cast<std::ptrdiff_t>(outputLength_));
  outputLength_ += units.size();
}

void ConsoleWriter::flush(Console& console) {
  if (outputLength_ > 0) {
    console.writeText(std::u16string_view(output_.data(), outputLength_));
    outputLength_ = 0;
  }
}

void ConsoleWriter::interpret(Console& console) {
  if (introducer_ != '[') {
    return;  // ']' ended by a final byte instead of BEL or ESC \ does nothing
  }
  if (prefix_ == '?') {
    interpretPrivate();
  } else if (prefix_ == 0) {
    interpretControl(console);
  }
}

void ConsoleWriter::interpretOperatingSystemCommand(Console& console) {
  if (prefix_ != 0 || parameterCount_ != 1 || parameters_[0] != 0) {
    return;
  }
  const std::u16string_view text(string_.data(), stringLength_);
  console.setTitle(text.substr(0, text.find(char16_t{0})));
}

void ConsoleWriter::interpretPrivate() {
  if ((final_ == 'h' || final_ == 'l') && parameterCount_ == 1 && parameters_[0] == 25) {
    cursorInfo_.visible = final_ == 'h';
  }
}

void ConsoleWriter::interpretControl(Console& console) {
  const bool takesTwo = final_ == 'H' || final_ == 'f';
  if ((parameterCount_ > 1 && !takesTwo && final_ != 'm') || (parameterCount_ > 2 && takesTwo)) {
    return;
  }
  const Screen screen = screenOf(console);
  const bool erase = final_ == 'J' || final_ == 'K';
  const std::int64_t n = parameterCount_ == 0 ? (erase ? 0 : 1) : std::int64_t{parameters_[0]};
  if (takesTwo) {
    const std::int64_t row = parameterCount_ >= 1 ? std::int64_t{parameters_[0]} : 1;
    const std::int64_t column = parameterCount_ >= 2 ? std::int64_t{parameters_[1]} : 1;
    screen.moveTo(column - 1, row - 1);
    return;
  }
  if (moveCursor(screen, final_, n) || eraseCells(screen, final_, n) ||
      shiftCells(screen, final_, n)) {
    return;
  }
  interpretStateControl(console, screen.info.cursorPosition, n);
}

void ConsoleWriter::interpretStateControl(Console& console, Coord cursor, std::int64_t n) {
  switch (final_) {
    case 'm':
      selectGraphicRendition(console);
      break;
    case 'n':
      if (n == 5) {
        pushInput(console, u"\x1b[0n");
      } else if (n == 6) {
        pushInput(console,
                  asciiToUtf16(utils::core::format("\x1b[{};{}R", cursor.y + 1, cursor.x + 1)));
      }
      break;
    case 's':
      if (parameterCount_ == 0) savedCursor_ = cursor;
      break;
    case 'u':
      if (parameterCount_ == 0) console.setCursorPosition(savedCursor_);
      break;
    case 't':
      if (parameterCount_ == 1 && parameters_[0] == 21) reportTitle(console);
      break;
    default:
      break;
  }
}

void ConsoleWriter::reportTitle(Console& console) {
  std::array<char16_t, maxTitleReport + 1> title{};
  const std::size_t length = std::min(console.getTitle(title), maxTitleReport);
  std::u16string reply = u"\x1b]l";
  reply.append(title.data(), length);
  reply += u"\x1b\\";
  pushInput(console, reply);
}

void ConsoleWriter::selectGraphicRendition(Console& console) {
  if (parameterCount_ == 0) {
    parameterCount_ = 1;
    parameters_[0] = 0;
  }
  for (std::size_t i = 0; i < parameterCount_; ++i) {
    const std::uint32_t p = parameters_[i];
    if (p >= 30 && p <= 37) {
      foreground_ = static_cast<std::uint8_t>(p - 30);
    } else if (p >= 40 && p <= 47) {
      background_ = static_cast<std::uint8_t>(p - 40);
    } else if (p == 1) {
      bold_ = bold;
    } else if (p == 21 || p == 22) {
      bold_ = 0;
    } else if (p == 4 || p == 5) {
      underline_ = underline;
    } else if (p == 24 || p == 25) {
      underline_ = 0;
    } else if (p == 7) {
      reverse_ = true;
    } else if (p == 27) {
      reverse_ = false;
    } else if (p == 8) {
      concealed_ = true;
    } else if (p == 28) {
      concealed_ = false;
    } else if (p == 0 || p == 39 || p == 49) {
      const auto value = static_cast<std::uint32_t>(readDefaultAttribute(console));
      if (p != 49) {
        foreground_ = static_cast<std::uint8_t>(foreground[value & 7]);
      }
      if (p != 39) {
        background_ = static_cast<std::uint8_t>(foreground[(value >> 4) & 7]);
      }
      if (p == 0) {
        const bool only = parameterCount_ == 1;
        bold_ = only ? static_cast<std::uint16_t>(value & bold) : 0;
        underline_ = only ? static_cast<std::uint16_t>(value & underline) : 0;
        reverse_ = false;
        concealed_ = false;
      }
    }
  }
  console.setTextAttribute(composeAttribute());
}

std::int32_t ConsoleWriter::readDefaultAttribute(Console& console) {
  std::array<char16_t, 4> text{u'7', 0, 0, 0};
  if (console.getEnvironmentVariable(u"KORVANE_CONSOLE_DEF", text) >= text.size()) {
    text = {u'7', 0, 0, 0};  // too long to fit: the preset stands
  }
  std::int32_t value = parseHex(text);
  if (value < 0) {
    // A negative default asks for the colours swapped, for consoles set up
    // with dark text on a light background.
    defaultReversed_ = true;
    value = -value;
  }
  return value;
}

std::uint16_t ConsoleWriter::composeAttribute() const {
  std::uint16_t attribute = 0;
  if (concealed_ && reverse_) {
    attribute = background[foreground_] | foreground[foreground_];
    if (bold_ != 0) attribute |= bold | underline;
  } else if (concealed_) {
    attribute = background[background_] | foreground[background_];
    if (underline_ != 0) attribute |= bold | underline;
  } else if (reverse_) {
    attribute = foreground[background_] | background[foreground_];
    if (bold_ != 0) attribute |= underline;
    if (underline_ != 0) attribute |= bold;
  } else {
    attribute = background[background_] | foreground[foreground_] | underline_ | bold_;
  }
  if (defaultReversed_) {
    attribute = static_cast<std::uint16_t>(((attribute >> 4) & 0x0F) | ((attribute & 0x0F) << 4));
  }
  return attribute;
}

void ConsoleWriter::pushInput(Console& console, std::u16string_view text) {
  std::vector<KeyEvent> events;
  events.reserve(text.size());
  for (const char16_t c : text) {
    KeyEvent event;
    event.keyDown = true;
    event.repeatCount = 1;
    event.character = c;
    events.push_back(event);
  }
  console.writeInput(events);
}

}  // namespace korvane::lineEdit
