#include "utils/json/decoder/Skimmer.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "utils/json/decoder/Parser.h"
#include "utils/string/Utf8.h"

namespace korvane::utils::json::decoder {

namespace {

using json::detail::ScanKernels;
using json::detail::ScanLevel;

bool isWhitespace(char c) noexcept { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

bool isDigit(char c) noexcept { return c >= '0' && c <= '9'; }

// The bytes a number may be made of; the grammar is checked on the run.
bool isNumberByte(char c) noexcept {
  return isDigit(c) || c == '-' || c == '+' || c == '.' || c == 'e' || c == 'E';
}

int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The value of four hexadecimal digits, negative when one is not.
int hex4(const char* p) noexcept {
  const int a = hexValue(p[0]);
  const int b = hexValue(p[1]);
  const int c = hexValue(p[2]);
  const int d = hexValue(p[3]);
  if ((a | b | c | d) < 0) return -1;
  return a << 12 | b << 8 | c << 4 | d;
}

// The plain string bytes that [begin, end) starts with: up to 64 of them
// tested inline (the buffer's padding makes the loads safe, and its NUL
// byte at end_ ends every run), since most strings end within them.
std::size_t plainStringLength(const ScanKernels& kernels, const char* begin,
                              const char* end) noexcept {
  return json::detail::measurePlainString<64>(kernels, begin, end);
}

}  // namespace

Skimmer::Skimmer(Reader reader, std::size_t window)
    : reader_(std::move(reader)),
      kernels_(json::detail::scanKernels()),
      wide_(kernels_.level != ScanLevel::plain),
      window_(std::max<std::size_t>(window, 16)),
      buffer_(std::make_unique_for_overwrite<char[]>(window_ + padding)),
      p_(buffer_.get()),
      end_(p_),
      mark_(p_) {
  // Only the padding needs zeroes: reads fill the rest, so a small file
  // touches only the pages it fills.
  std::memset(buffer_.get(), 0, padding);
}

void Skimmer::giveUp() { throw GiveUp{}; }

// Keeps [mark_, end_), moved to the window's front, and reads behind it.
// False at the end of the input.
bool Skimmer::refill() {
  if (ended_) return false;
  char* const begin = buffer_.get();
  const auto keep = static_cast<std::size_t>(end_ - mark_);
  if (keep == window_) giveUp();
  const std::ptrdiff_t shift = mark_ - begin;
  if (shift != 0) {
    std::memmove(begin, mark_, keep);
    p_ -= shift;
    mark_ = begin;
  }
  const std::size_t got = reader_(std::span<char>(begin + keep, window_ - keep));
  if (got > window_ - keep)
    throw std::logic_error("korvane::utils::json::decoder::Skimmer: the reader overran its span");
  char* const end = begin + keep + got;
  std::memset(end, 0, padding);
  end_ = end;
  ended_ = got == 0;
  return got != 0;
}

// Refills with `p` (at most end_) kept in step; false at the end of the input.
bool Skimmer::more(const char*& p) {
  p_ = p;
  const bool got = refill();
  p = p_;
  return got;
}

// At least `count` bytes from `p` on, unless the input ends first (the
// padding's NUL bytes then follow what there is).
void Skimmer::ensure(const char*& p, std::size_t count) {
  while (static_cast<std::size_t>(end_ - p) < count && more(p)) {
  }
}

// Keeps mark_ where it is, so that a token before the whitespace survives
// a refill.
void Skimmer::skipWhitespaceFrom(const char* p) {
  for (;;) {
    // Short runs (a space, a line feed and an indentation) byte by byte;
    // the NUL byte at end_ stops the loop.
    std::size_t length = 0;
    while (length != 16 && isWhitespace(p[length])) ++length;
    p += length;
    if (length == 16) p += kernels_.whitespace(p, end_).length;
    if (p != end_ || !more(p)) break;
  }
  p_ = p;
}

void Skimmer::require(char c) {
  skipWhitespace();
  if (*p_ != c) giveUp();
  ++p_;
}

void Skimmer::startDocument() {
  mark_ = p_;
  const char* p = p_;
  ensure(p, 3);
  p_ = p;
  if (static_cast<unsigned char>(p[0]) == 0xEF) {
    if (static_cast<unsigned char>(p[1]) != 0xBB || static_cast<unsigned char>(p[2]) != 0xBF)
      giveUp();
    p_ += 3;
  }
  skipWhitespace();
}

void Skimmer::openObject() { require('{'); }

void Skimmer::openArray() { require('['); }

bool Skimmer::nextMember(bool& started, SkimmedString& name) {
  skipWhitespace();
  if (*p_ == '}') {
    ++p_;
    return false;
  }
  if (started) {
    if (*p_ != ',') giveUp();
    ++p_;
    skipWhitespace();
  }
  started = true;
  if (*p_ != '"') giveUp();
  mark_ = p_;
  bool escaped = false;
  const char* const close = findClosingQuote(p_ + 1, escaped);
  const auto length = static_cast<std::size_t>(close - (mark_ + 1));
  // The decoder's limit; an escaped name is never shorter raw than decoded.
  if (length > detail::Parser::maxNameLength) giveUp();
  skipWhitespaceFrom(close + 1);
  if (*p_ != ':') giveUp();
  ++p_;
  name = {std::string_view(mark_ + 1, length), escaped};
  return true;
}

bool Skimmer::nextElement(bool& started) {
  skipWhitespace();
  if (*p_ == ']') {
    ++p_;
    return false;
  }
  if (started) {
    if (*p_ != ',') giveUp();
    ++p_;
  }
  started = true;
  return true;
}

SkimmedString Skimmer::readString() {
  skipWhitespace();
  if (*p_ != '"') giveUp();
  mark_ = p_;
  bool escaped = false;
  const char* const close = findClosingQuote(p_ + 1, escaped);
  p_ = close + 1;
  return {std::string_view(mark_ + 1, static_cast<std::size_t>(close - (mark_ + 1))), escaped};
}

void Skimmer::skipString() {
  mark_ = p_;
  bool escaped = false;
  p_ = findClosingQuote(p_ + 1, escaped) + 1;
}

const char* Skimmer::scanStringBody(const char* p, bool& escaped) {
  for (;;) {
    p += plainStringLength(kernels_, p, end_);
    const char c = *p;
    if (c == '"') return p;
    if (c == '\\') {
      escaped = true;
      p = skipEscape(p);
    } else if (static_cast<unsigned char>(c) >= 0x80) {
      p = skipUtf8(p);
    } else if (p != end_ || !more(p)) {
      giveUp();  // a control character, a NUL byte, or the end of the input
    }
  }
}

// One escape sequence, from its backslash; a \u escape of a high surrogate
// must be followed by one of a low surrogate.
const char* Skimmer::skipEscape(const char* p) {
  ensure(p, 12);
  switch (p[1]) {
    case '"':
    case '\\':
    case '/':
    case 'b':
    case 'f':
    case 'n':
    case 'r':
    case 't':
      return p + 2;
    case 'u':
      break;
    default:
      giveUp();
  }
  const int first = hex4(p + 2);
  if (first < 0) giveUp();
  const auto codeUnit = static_cast<char32_t>(first);
  if (string::isLowSurrogate(codeUnit)) giveUp();
  if (!string::isHighSurrogate(codeUnit)) return p + 6;
  if (p[6] != '\\' || p[7] != 'u') giveUp();
  const int second = hex4(p + 8);
  if (second < 0 || !string::isLowSurrogate(static_cast<char32_t>(second))) giveUp();
  return p + 12;
}

// One strictly well-formed UTF-8 sequence of 2 to 4 bytes.
const char* Skimmer::skipUtf8(const char* p) {
  const std::size_t length = string::utf8SequenceLength(static_cast<unsigned char>(*p));
  if (length == 0) giveUp();
  ensure(p, length);
  const auto available = std::min(length, static_cast<std::size_t>(end_ - p));
  const string::Utf8Sequence sequence =
      string::decodeUtf8(std::string_view(p, available), string::Utf8Malformed::reject);
  if (!sequence.wellFormed) giveUp();
  return p + sequence.length;
}

// The run of bytes a number may hold is found first (refilling as needed),
// then checked whole against the grammar: a run that the grammar does not
// take to its end is an error, since no value may follow a number directly.
void Skimmer::skipNumber() {
  mark_ = p_;
  const char* p = p_;
  for (;;) {
    while (isNumberByte(*p)) ++p;
    if (p != end_ || !more(p)) break;
  }
  const char* q = mark_;
  if (*q == '-') ++q;
  if (*q == '0') {
    ++q;
  } else if (isDigit(*q)) {
    while (isDigit(*q)) ++q;
  } else {
    giveUp();
  }
  if (*q == '.') {
    ++q;
    if (!isDigit(*q)) giveUp();
    while (isDigit(*q)) ++q;
  }
  if (*q == 'e' || *q == 'E') {
    ++q;
    if (*q == '+' || *q == '-') ++q;
    if (!isDigit(*q)) giveUp();
    while (isDigit(*q)) ++q;
  }
  if (q != p) giveUp();
  p_ = p;
}

void Skimmer::skipLiteral(std::string_view literal) {
  mark_ = p_;
  const char* p = p_;
  ensure(p, literal.size());
  if (std::memcmp(p, literal.data(), literal.size()) != 0) giveUp();
  p_ = p + literal.size();
}

void Skimmer::skipValue() {
  std::uint64_t objects = 0;  // bit d - 1: whether the container at depth d is an object
  std::size_t depth = 0;
  // The name and colon of a member inside the skipped value.
  const auto skipName = [&] {
    skipWhitespace();
    if (*p_ != '"') giveUp();
    skipString();
    require(':');
  };
  for (;;) {
    skipWhitespace();
    const char c = *p_;
    if (c == '{' || c == '[') {
      if (depth == maxSkipDepth) giveUp();
      ++p_;
      const bool object = c == '{';
      const std::uint64_t bit = std::uint64_t{1} << depth;
      objects = object ? objects | bit : objects & ~bit;
      ++depth;
      skipWhitespace();
      if (*p_ != (object ? '}' : ']')) {
        if (object) skipName();
        continue;
      }
      ++p_;
      --depth;
    } else if (c == '"') {
      skipString();
    } else if (c == '-' || isDigit(c)) {
      skipNumber();
    } else if (c == 't') {
      skipLiteral("true");
    } else if (c == 'f') {
      skipLiteral("false");
    } else if (c == 'n') {
      skipLiteral("null");
    } else {
      giveUp();
    }
    // After a value: close what ends here, then on to the next value.
    for (;;) {
      if (depth == 0) return;
      skipWhitespace();
      const bool object = ((objects >> (depth - 1)) & 1) != 0;
      if (*p_ == ',') {
        ++p_;
        if (object) skipName();
        break;
      }
      if (*p_ != (object ? '}' : ']')) giveUp();
      ++p_;
      --depth;
    }
  }
}

void Skimmer::finish() {
  skipWhitespace();
  if (p_ != end_) giveUp();
}

}  // namespace korvane::utils::json::decoder
