// ConsoleWriter: writes UTF-8 text to a console that does not interpret
// terminal escape sequences itself, and performs those sequences with the
// console's own operations.
//
// The writer is a byte-stream state machine: its state (parser, graphic
// rendition, saved cursor position, shift-out) survives between calls, so a
// sequence split over two writes is still recognised. A program keeps one
// writer for the whole process and hands every output call to it. The
// Console passed to a call stands for the console handle: when a call brings
// a different Console than the previous one, the parser returns to normal
// text and shift-out is cleared.
//
// Understood: CSI sequences (ESC [) for cursor movement ('A' to 'H', 'a',
// 'd', 'e', 'f', 'j', 'k', '`'), erasing ('J', 'K', 'X'), inserting and
// deleting ('@', 'L', 'M', 'P'), graphic rendition ('m'), device status
// ('n'), cursor save and restore ('s', 'u'), the title report ("21t") and
// cursor visibility ("?25h", "?25l"); the title command ESC ] 0 ; text,
// ended by BEL or ESC \; SO and SI for the line-drawing character set.
// Replies are pushed into the console input as typed keys. The default
// colours come from the environment variable KORVANE_CONSOLE_DEF (hexadecimal
// console attribute, negative for reversed; "7" when unset).
//
// The graphic rendition starts as black on black without attributes until
// the first "m" sequence; the tool's own output never changes colours.
//
// Thread safety: none; one thread writes at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "lineEdit/Console.h"

namespace korvane::lineEdit {

class ConsoleWriter {
 public:
  static constexpr std::size_t maxParameters = 16;
  static constexpr std::size_t maxStringLength = 519;
  static constexpr std::size_t outputBufferSize = 2048;

  ConsoleWriter() = default;
  ConsoleWriter(const ConsoleWriter&) = delete;
  ConsoleWriter& operator=(const ConsoleWriter&) = delete;

  // Writes `bytes` (UTF-8 text with escape sequences) to `console`. Console
  // failures are not reported: returns true and sets `consumed` to
  // bytes.size(), always.
  bool write(Console& console, std::string_view bytes, std::size_t& consumed);

 private:
  enum class State : std::uint8_t {
    normal = 1,
    escape = 2,
    introducer = 3,
    parameters = 4,
    osString = 5,
    skipOne = 6,
  };

  // Consumes the byte at bytes[index] (and, for a UTF-8 sequence, the bytes
  // after it); returns the index of the next byte to read.
  std::size_t feed(Console& console, std::string_view bytes, std::size_t index);
  std::size_t feedText(Console& console, std::string_view bytes, std::size_t index);
  void feedEscape(Console& console, unsigned char byte);
  void feedIntroducer(Console& console, unsigned char byte);
  void feedParameters(Console& console, unsigned char byte);
  void feedString(Console& console, unsigned char byte);

  void append(Console& console, std::u16string_view units);
  void flush(Console& console);

  void interpret(Console& console);
  void interpretOperatingSystemCommand(Console& console);
  void interpretPrivate();
  void interpretControl(Console& console);
  // The sequences that change the writer's state or answer through the
  // input queue: colours, reports, the saved cursor.
  void interpretStateControl(Console& console, Coord cursor, std::int64_t n);
  void reportTitle(Console& console);
  void selectGraphicRendition(Console& console);
  std::int32_t readDefaultAttribute(Console& console);
  std::uint16_t composeAttribute() const;
  void pushInput(Console& console, std::u16string_view text);

  const Console* console_ = nullptr;  // identity only, never dereferenced
  State state_ = State::normal;
  unsigned char introducer_ = 0;
  unsigned char prefix_ = 0;
  unsigned char final_ = 0;
  std::array<std::uint32_t, maxParameters> parameters_{};
  std::size_t parameterIndex_ = 0;
  std::size_t parameterCount_ = 0;
  std::array<char16_t, maxStringLength + 1> string_{};
  std::size_t stringLength_ = 0;
  bool stringAfterEscape_ = false;
  std::array<char16_t, outputBufferSize> output_{};
  std::size_t outputLength_ = 0;
  bool shiftOut_ = false;

  // Graphic rendition: colour indexes in ANSI order (0 black, 1 red, ...).
  std::uint8_t foreground_ = 0;
  std::uint8_t background_ = 0;
  std::uint16_t bold_ = 0;       // 0 or 0x08
  std::uint16_t underline_ = 0;  // 0 or 0x80
  bool reverse_ = false;
  bool concealed_ = false;
  bool defaultReversed_ = false;

  Coord savedCursor_;
  CursorInfo cursorInfo_;  // saved at the start of a call, restored at its end
};

}  // namespace korvane::lineEdit
