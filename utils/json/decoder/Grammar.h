// Grammar: JSON's grammar (RFC 8259, strictly), the token level of the
// decoder's Parser (Parser.h), kept apart from the Parser's bookkeeping of
// views, frames and ids. Whitespace, the byte order mark, strings with
// their escapes and strict UTF-8, numbers, literals, the steps between
// members and elements, nesting and the limits on it are all here, with
// the values skipped unread.
//
// Grammar<Cursor> is the base (CRTP) of the Parser, which supplies the
// cursor over its input and the error hooks inline, as members
// Grammar<Cursor> can reach (it is a friend):
//   int peek();                        the next byte, -1 at the end of the
//                                      input (refills an empty buffer)
//   std::span<const char> buffered();  the bytes buffered at the cursor
//   void consume(std::size_t count);   REQUIRES: count <= buffered().size()
//   bool more();                       REQUIRES: buffered() is empty;
//                                      refills, false at the end
//   std::size_t plainStringLength(const char* begin, const char* end);
//                                      as ScanKernels measure it
//   Mark mark();                       where an error met now is located
//   [[noreturn]] void failFound(const std::string& expected);
//                                      "<expected>, found <next byte>"
//   [[noreturn]] void failAt(const Mark& at, const std::string& message);
//   void countLines(const WhitespaceRun& run);  before `run` is consumed
//   void countContinuations(std::size_t count); UTF-8 bytes consumed
//   static constexpr std::size_t maxNesting;    containers open at most
// The error hooks must not return: they throw the error located at its
// line and column. Messages are built only on the way to an error.
//
// Thread safety: as the Cursor's (one reader, one thread).
#pragma once

#include <algorithm>
#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>

#include "utils/core/Format.h"
#include "utils/json/ScanKernels.h"
#include "utils/string/HexDigit.h"
#include "utils/string/Utf8.h"

namespace korvane::utils::json::decoder::detail {

// Member names longer than this (in bytes, decoded) are errors.
inline constexpr std::size_t maxNameLength = 64 * 1024;

// One decoded character of a string: 1 to 4 UTF-8 bytes.
struct Utf8Unit {
  std::array<char, 4> bytes{};
  std::uint8_t length = 0;
};

inline bool isDigit(int c) noexcept { return c >= '0' && c <= '9'; }

template <typename Cursor>
class Grammar {
 protected:
  explicit Grammar(const json::detail::ScanKernels& kernels) noexcept : kernels_(kernels) {}

  // Skips whitespace. Inline: most whitespace between tokens is none or
  // one space.
  [[gnu::always_inline]] void skipWhitespace() {
    const auto span = in().buffered();
    if (span.size() >= 2) {
      if (static_cast<unsigned char>(span[0]) > ' ') return;
      if (span[0] == ' ' && static_cast<unsigned char>(span[1]) > ' ') {
        in().consume(1);
        return;
      }
    }
    skipWhitespaceRuns();
  }

  // A UTF-8 byte order mark, as some Windows editors write, at the very
  // start; true when there was one (it is then consumed).
  bool skipByteOrderMark() {
    if (in().peek() != 0xEF) return false;
    const auto at = in().mark();
    for (const int expected : {0xEF, 0xBB, 0xBF}) {
      if (in().peek() != expected) in().failAt(at, "expected a value, found '\\xef'");
      in().consume(1);
    }
    return true;
  }

  // Only whitespace may follow the top-level value.
  void expectEndOfInput() {
    skipWhitespace();
    if (in().peek() >= 0) in().failFound("expected the end of the input after the top-level value");
  }

  // The step to the next member (close '}') or element (close ']') of an
  // open container, `started` when it already had one: false when the
  // closing character has been consumed; otherwise the separator is, and
  // the member's name or the element is next (whitespace skipped).
  [[gnu::always_inline]] bool nextItem(bool& started, char close) {
    // The usual steps: ", " or ",\n" and an indentation, and the next item.
    const auto span = in().buffered();
    if (started && span.size() >= 3 && span[0] == ',') {
      if (span[1] == ' ' && static_cast<unsigned char>(span[2]) > ' ') {
        in().consume(2);
        return true;
      }
      if (span[1] == '\n' && passLineAndIndentation(span)) return true;
    }
    skipWhitespace();
    if (in().peek() == close) {
      in().consume(1);
      return false;
    }
    if (started) {
      if (in().peek() != ',') {
        in().failFound(close == '}' ? "expected ',' or '}' after an object member"
                                    : "expected ',' or ']' after an array element");
      }
      in().consume(1);
      skipWhitespace();
    }
    started = true;
    return true;
  }

  // After the ',' that `span` starts with, a line feed and at most 16
  // spaces before the next item, passed with the ',' in one step and the
  // line counted; false, with nothing consumed, for anything else.
  bool passLineAndIndentation(std::span<const char> span) {
    constexpr std::size_t maxIndentation = 16;
    std::size_t at = 2;
    const std::size_t limit = std::min(span.size(), at + maxIndentation);
    while (at != limit && span[at] == ' ') ++at;
    if (at == span.size() || static_cast<unsigned char>(span[at]) <= ' ') return false;
    in().consume(1);
    json::detail::WhitespaceRun run;
    run.length = at - 1;
    run.lineFeeds = 1;
    run.afterLastLineFeed = 1;
    in().countLines(run);
    in().consume(run.length);
    return true;
  }

  // A member's name, quotes included: `sink` is given its decoded bytes in
  // pieces, no more than maxNameLength. Returns whether the name held an
  // escape. REQUIRES: at the name (after nextItem()); expectColon() comes
  // next.
  template <typename Sink>
  bool scanName(Sink&& sink) {
    expectNameQuote();
    // The common case: the whole name buffered, with no special byte.
    const auto span = in().buffered();
    const std::size_t plain = in().plainStringLength(span.data() + 1, span.data() + span.size());
    if (plain + 1 < span.size() && span[plain + 1] == '"' && plain <= maxNameLength) {
      sink(span.data() + 1, plain);
      in().consume(plain + 2);
      return false;
    }
    const auto start = in().mark();
    in().consume(1);
    std::size_t length = 0;
    const bool escaped = scanStringBody([&](const char* bytes, std::size_t count) {
      if (count > maxNameLength - length) {
        in().failAt(start, core::format("member name longer than {} bytes", maxNameLength));
      }
      length += count;
      sink(bytes, count);
    });
    return escaped;
  }

  // The opening quote of a member name.
  void expectNameQuote() {
    if (in().peek() != '"') in().failFound("expected a member name (a string)");
  }

  // The ':' after a member name and the whitespace around it.
  void expectColon() {
    skipWhitespace();
    if (in().peek() != ':') in().failFound("expected ':' after a member name");
    in().consume(1);
    skipWhitespace();
  }

  // A string's characters from just after its opening quote to its
  // closing quote, which is consumed: `sink` is given their decoded bytes
  // in pieces. Returns whether the string held an escape.
  template <typename Sink>
  [[gnu::always_inline]] bool scanStringBody(Sink&& sink) {
    bool escaped = false;
    walkStringBody(sink, [&] {
      Utf8Unit unit;
      escaped = decodeSpecial(unit) || escaped;
      sink(unit.bytes.data(), unit.length);
    });
    return escaped;
  }

  // As scanStringBody(), keeping nothing: what a string skipped holds is
  // checked, and decoded only where checking needs it.
  [[gnu::always_inline]] void skipStringBody() {
    walkStringBody([](const char*, std::size_t) {}, [&] { skipSpecial(); });
  }

  // The walk of both: `onPlain(bytes, count)` for each run of plain
  // characters, `onSpecial()` at each other byte before the closing quote.
  template <typename OnPlain, typename OnSpecial>
  [[gnu::always_inline]] void walkStringBody(OnPlain&& onPlain, OnSpecial&& onSpecial) {
    for (;;) {
      const auto span = in().buffered();
      const char* const begin = span.data();
      const std::size_t count = in().plainStringLength(begin, begin + span.size());
      if (count != 0) {
        onPlain(begin, count);
        in().consume(count);
      }
      if (count == span.size()) {
        if (!in().more()) in().failFound("expected '\"' to end the string");
        continue;
      }
      if (begin[count] == '"') {
        in().consume(1);
        return;
      }
      onSpecial();
    }
  }

  // As decodeSpecial(), keeping nothing: an escape or a UTF-8 sequence
  // that is whole in the buffer and well formed is checked and passed in
  // one step; anything else is left to decodeSpecial, which knows its error.
  [[gnu::noinline]] void skipSpecial() {
    const auto span = in().buffered();
    const std::string_view text(span.data(), span.size());
    if (text[0] == '\\') {
      const std::size_t length = wellFormedEscapeLength(text);
      if (length != 0) {
        in().consume(length);
        return;
      }
    } else {
      const std::size_t length = string::wellFormedMultibyteLength(text);
      if (length != 0) {
        in().consume(length);
        in().countContinuations(length - 1);
        return;
      }
    }
    Utf8Unit unit;
    decodeSpecial(unit);
  }

  // The length of the well-formed escape sequence that `text` starts with,
  // whole (a surrogate pair as one); 0 for anything else.
  // REQUIRES: text starts with a backslash.
  static std::size_t wellFormedEscapeLength(std::string_view text) noexcept {
    if (text.size() < 2) return 0;
    if (simpleEscape(static_cast<unsigned char>(text[1])) != 0) return 2;
    if (text[1] != 'u') return 0;
    const int first = hex4(text.substr(2));
    if (first < 0 || string::isLowSurrogate(static_cast<char32_t>(first))) return 0;
    if (!string::isHighSurrogate(static_cast<char32_t>(first))) return 6;
    if (text.size() < 8 || text[6] != '\\' || text[7] != 'u') return 0;
    const int second = hex4(text.substr(8));
    if (second < 0 || !string::isLowSurrogate(static_cast<char32_t>(second))) return 0;
    return 12;
  }

  // The value of the four hexadecimal digits `text` starts with; -1 when
  // it does not start with four.
  static int hex4(std::string_view text) noexcept {
    if (text.size() < 4) return -1;
    const int a = utils::string::hexDigitValue(static_cast<unsigned char>(text[0]));
    const int b = utils::string::hexDigitValue(static_cast<unsigned char>(text[1]));
    const int c = utils::string::hexDigitValue(static_cast<unsigned char>(text[2]));
    const int d = utils::string::hexDigitValue(static_cast<unsigned char>(text[3]));
    if ((a | b | c | d) < 0) return -1;
    return a << 12 | b << 8 | c << 4 | d;
  }

  // The character at a byte that ends a plain run inside a string and is
  // not its closing quote: an escape or a UTF-8 sequence, decoded into
  // `unit`; anything else is an error. Returns whether it was an escape.
  // REQUIRES: a byte is buffered.
  [[gnu::noinline]] bool decodeSpecial(Utf8Unit& unit) {
    const int c = in().peek();
    if (c == '\\') {
      const auto start = in().mark();
      in().consume(1);
      decodeEscape(unit, start);
      return true;
    }
    if (c >= 0x80) {
      decodeUtf8(unit);
    } else if (c == 0) {
      in().failAt(in().mark(), "a NUL byte is not allowed in a string");
    } else {
      in().failAt(in().mark(),
                  core::format("control character U+{:04X} must be escaped in a string", c));
    }
    return false;
  }

  // Fails where `levels` containers would be open at once, more than the
  // policy allows.
  void checkDepth(std::size_t levels) {
    if (levels > Cursor::maxNesting) {
      in().failFound(core::format("nesting deeper than {} levels", Cursor::maxNesting));
    }
  }

  // Skips the rest of `depth` open containers, the innermost an object
  // when `innermostIsObject` and `started` when it has had a member or
  // element; at depth 0, skips one value. `outside` containers are open
  // around them, for the nesting limit. Iterative: the kinds of the open
  // containers are kept in a bit set, one bit per level, so that no input
  // can exhaust the call stack.
  void skipNested(std::size_t depth, std::size_t outside, bool innermostIsObject, bool started) {
    // Only the levels written since the call are read: nothing to clear.
    auto& isObject = in().containerKinds_;
    isObject[depth] = innermostIsObject;
    bool valueNext = depth == 0;
    for (;;) {
      if (valueNext) {
        skipWhitespace();
        const int c = in().peek();
        if (c == '{' || c == '[') {
          checkDepth(outside + depth + 1);
          in().consume(1);
          isObject[++depth] = c == '{';
          started = false;
          valueNext = false;
          continue;
        }
        skipScalar(c);
        if (depth == 0) return;
        started = true;
      }
      const bool object = isObject[depth];
      if (!nextItem(started, object ? '}' : ']')) {
        if (--depth == 0) return;
        started = true;
        valueNext = false;
        continue;
      }
      if (object && !passShortName()) {
        // The names of skipped members have no limit: nothing keeps them.
        expectNameQuote();
        in().consume(1);
        skipStringBody();
        expectColon();
      }
      valueNext = true;
    }
  }

  // The usual name of a skipped member, passed in one step with its ':':
  // plain and whole in the buffer. Anything else is left to the general
  // path, and nothing is consumed.
  [[gnu::always_inline]] bool passShortName() {
    const auto span = in().buffered();
    if (span.size() < 2 || span[0] != '"') return false;
    const std::size_t end = 1 + in().plainStringLength(span.data() + 1, span.data() + span.size());
    if (end + 2 > span.size() || span[end] != '"' || span[end + 1] != ':') return false;
    in().consume(end + 2);
    return true;
  }

  // A value that is no container, starting with `c`.
  [[gnu::always_inline]] void skipScalar(int c) {
    if (c == '"') {
      in().consume(1);
      skipStringBody();
    } else if (c == '-' || isDigit(c)) {
      skipNumber();
    } else if (c == 't') {
      skipLiteral("true");
    } else if (c == 'f') {
      skipLiteral("false");
    } else if (c == 'n') {
      skipLiteral("null");
    } else {
      in().failFound("expected a value");
    }
  }

  const json::detail::ScanKernels& kernels_;

 private:
  Cursor& in() noexcept { return static_cast<Cursor&>(*this); }

  [[gnu::noinline]] void skipWhitespaceRuns() {
    for (;;) {
      const auto span = in().buffered();
      // Short runs (a line feed and an indentation) end before a wide scan pays.
      constexpr std::size_t shortRun = 16;
      const std::size_t head = std::min(span.size(), shortRun);
      json::detail::WhitespaceRun run;
      while (run.length != head && (span[run.length] == ' ' || span[run.length] == '\n')) {
        if (span[run.length++] == '\n') {
          ++run.lineFeeds;
          run.afterLastLineFeed = run.length;
        }
      }
      if (run.length != head && static_cast<unsigned char>(span[run.length]) > ' ') {
        in().countLines(run);
        in().consume(run.length);
        return;
      }
      run = kernels_.whitespace(span.data(), span.data() + span.size());
      in().countLines(run);
      in().consume(run.length);
      if (run.length != span.size() || !in().more()) return;
    }
  }

  void skipDigits() {
    for (;;) {
      const auto span = in().buffered();
      // Most runs are short: the kernel's call would cost more than they.
      constexpr std::size_t shortRun = 16;
      const std::size_t head = std::min(span.size(), shortRun);
      std::size_t count = 0;
      while (count != head && isDigit(span[count])) ++count;
      if (count == shortRun) {
        count += kernels_.digitLength(span.data() + count, span.data() + span.size());
      }
      in().consume(count);
      if (count != span.size() || !in().more()) return;
    }
  }

  void skipNumber() {
    const auto span = in().buffered();
    const std::size_t whole = wellFormedNumberLength({span.data(), span.size()});
    if (whole != 0) {
      in().consume(whole);
      return;
    }
    if (in().peek() == '-') in().consume(1);
    const int first = in().peek();
    if (first == '0') {
      in().consume(1);
    } else if (isDigit(first)) {
      skipDigits();
    } else {
      in().failFound("expected a digit in a number");
    }
    if (in().peek() == '.') {
      in().consume(1);
      if (!isDigit(in().peek())) in().failFound("expected a digit after the decimal point");
      skipDigits();
    }
    const int e = in().peek();
    if (e == 'e' || e == 'E') {
      in().consume(1);
      const int sign = in().peek();
      if (sign == '+' || sign == '-') in().consume(1);
      if (!isDigit(in().peek())) in().failFound("expected a digit in the exponent");
      skipDigits();
    }
  }

  // The length of the well-formed number that `text` starts with, when a
  // byte that cannot continue it follows in `text`; 0 for anything else
  // (an error, or a number that may go on past the buffer).
  static std::size_t wellFormedNumberLength(std::string_view text) noexcept {
    std::size_t at = 0;
    const auto digitAt = [&](std::size_t i) { return i < text.size() && isDigit(text[i]); };
    const auto passDigits = [&] {
      while (digitAt(at)) ++at;
    };
    if (at < text.size() && text[at] == '-') ++at;
    if (at < text.size() && text[at] == '0') {
      ++at;
    } else if (digitAt(at)) {
      passDigits();
    } else {
      return 0;
    }
    if (at < text.size() && text[at] == '.') {
      if (!digitAt(++at)) return 0;
      passDigits();
    }
    if (at < text.size() && (text[at] == 'e' || text[at] == 'E')) {
      ++at;
      if (at < text.size() && (text[at] == '+' || text[at] == '-')) ++at;
      if (!digitAt(at)) return 0;
      passDigits();
    }
    return at < text.size() ? at : 0;
  }

  void skipLiteral(std::string_view literal) {
    const auto span = in().buffered();
    if (span.size() >= literal.size() &&
        std::memcmp(span.data(), literal.data(), literal.size()) == 0) {
      in().consume(literal.size());
      return;
    }
    const auto start = in().mark();
    for (const char expected : literal) {
      if (in().peek() != static_cast<unsigned char>(expected)) {
        in().failAt(start, core::format("invalid literal, expected {}", literal));
      }
      in().consume(1);
    }
  }

  // After the backslash of an escape that starts at `start`.
  template <typename Mark>
  void decodeEscape(Utf8Unit& unit, const Mark& start) {
    const int c = in().peek();
    const char simple = simpleEscape(c);
    if (simple == 0 && c != 'u') {
      in().failFound("invalid escape sequence: expected one of \" \\ / b f n r t u after '\\'");
    }
    in().consume(1);
    if (c != 'u') {
      unit.bytes[0] = simple;
      unit.length = 1;
      return;
    }
    unsigned codePoint = readHex4();
    if (string::isLowSurrogate(codePoint)) {
      in().failAt(start, core::format("unpaired low surrogate \\u{:04X}", codePoint));
    }
    if (string::isHighSurrogate(codePoint)) {
      const auto second = in().mark();
      for (const char expected : {'\\', 'u'}) {
        if (in().peek() != expected) {
          in().failAt(start, core::format("unpaired high surrogate \\u{:04X}", codePoint));
        }
        in().consume(1);
      }
      const unsigned low = readHex4();
      if (!string::isLowSurrogate(low)) {
        in().failAt(second,
                    core::format("expected a low surrogate after \\u{:04X}, found \\u{:04X}",
                                 codePoint, low));
      }
      codePoint = string::combineSurrogates(codePoint, low);
    }
    unit.length = static_cast<std::uint8_t>(string::encodeUtf8(codePoint, unit.bytes));
  }

  // What the one-character escape `\c` stands for; 0 for none.
  static char simpleEscape(int c) noexcept {
    switch (c) {
      case '"':
        return '"';
      case '\\':
        return '\\';
      case '/':
        return '/';
      case 'b':
        return '\b';
      case 'f':
        return '\f';
      case 'n':
        return '\n';
      case 'r':
        return '\r';
      case 't':
        return '\t';
      default:
        return 0;
    }
  }

  unsigned readHex4() {
    // The common case: four digits buffered, read in one go.
    const auto span = in().buffered();
    const int whole = hex4({span.data(), span.size()});
    if (whole >= 0) {
      in().consume(4);
      return static_cast<unsigned>(whole);
    }
    unsigned value = 0;
    for (int i = 0; i < 4; ++i) {
      const int next = in().peek();  // -1 at the end
      const int digit =
          next < 0 ? -1 : utils::string::hexDigitValue(static_cast<unsigned char>(next));
      if (digit < 0) in().failFound("expected a hexadecimal digit in a \\u escape");
      in().consume(1);
      value = value * 16 + static_cast<unsigned>(digit);
    }
    return value;
  }

  // Strict UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing
  // above U+10FFFF.
  void decodeUtf8(Utf8Unit& unit) {
    const auto start = in().mark();
    const int lead = in().peek();
    if (!string::isUtf8Lead(static_cast<unsigned char>(lead))) {
      in().failAt(start, core::format("invalid UTF-8 byte 0x{:02X} in a string", lead));
    }
    const std::size_t length = string::utf8SequenceLength(static_cast<unsigned char>(lead));
    // The common case: the whole sequence buffered and well formed.
    const auto span = in().buffered();
    if (string::wellFormedMultibyteLength({span.data(), span.size()}) == length) {
      std::copy_n(span.data(), length, unit.bytes.data());
      in().consume(length);
      unit.length = static_cast<std::uint8_t>(length);
      in().countContinuations(length - 1);
      return;
    }
    for (std::size_t i = 0; i < length; ++i) {
      const int c = in().peek();
      if (i > 0 && (c < 0 || !string::isUtf8Continuation(static_cast<unsigned char>(c)))) {
        in().failAt(start, "invalid UTF-8 sequence in a string");
      }
      in().consume(1);
      unit.bytes[i] = static_cast<char>(c);
    }
    if (!string::decodeUtf8({unit.bytes.data(), length}, string::Utf8Malformed::reject)
             .wellFormed) {
      in().failAt(start, "invalid UTF-8 sequence in a string");
    }
    unit.length = static_cast<std::uint8_t>(length);
    in().countContinuations(length - 1);
  }
};

}  // namespace korvane::utils::json::decoder::detail
