#include "utils/json/decoder/Parser.h"

#include <algorithm>
#include <bit>
#include <bitset>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "utils/core/Format.h"
#include "utils/json/decoder/WrappedException.h"
#include "utils/string/Utf8.h"

namespace korvane::utils::json::decoder::detail {

namespace {

constexpr const char* movedOn =
    "korvane::utils::json::decoder: a value or view was used after the walk moved past it";

bool isDigit(int c) { return c >= '0' && c <= '9'; }

int hexValue(int c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void appendUtf8(Utf8Unit& unit, char32_t codePoint) {
  unit.length = static_cast<std::uint8_t>(string::encodeUtf8(codePoint, unit.bytes));
}

// What a value starting with `c` is, for type errors.
std::string describeValue(int c) {
  switch (c) {
    case '{': return "an object";
    case '[': return "an array";
    case '"': return "a string";
    case 't':
    case 'f': return "a boolean";
    case 'n': return "null";
    default: break;
  }
  if (c == '-' || isDigit(c)) return "a number";
  return {};
}

using json::detail::isPlainStringByte;
using json::detail::ScanKernels;
using json::detail::WhitespaceRun;

// The plain string bytes that [begin, end) starts with; the first 16 are
// tested inline where that many are buffered.
std::size_t plainStringLength(const ScanKernels& kernels, const char* begin, const char* end) noexcept {
  if (end - begin >= 16) return json::detail::measurePlainString<16>(kernels, begin, end);
  return kernels.plainStringLength(begin, end);
}

enum SkipState { valueState, objectFirstState, nameState, arrayFirstState, afterState };

}  // namespace

Parser::Parser(io::InputStream<char>& stream, std::string sourceName)
    : stream_(stream),
      kernels_(json::detail::scanKernels()),
      source_(std::make_shared<const std::string>(std::move(sourceName))),
      lineStart_(stream.offset()) {}

void Parser::fail(const Position& at, const std::string& message) {
  error_ = std::make_exception_ptr(
      WrappedException<std::runtime_error>(locate(at), std::runtime_error(message)));
  std::rethrow_exception(error_);
}

std::string Parser::describeNext() {
  const int c = peek();
  if (c < 0) return "end of input";
  if (c == 0) return "a NUL byte";
  if (c > 0x20 && c < 0x7F) return core::format("'{}'", static_cast<char>(c));
  if (c < 0x20 || c == 0x7F) return core::format("control character U+{:04X}", c);
  if (c == 0x20) return "' '";
  return core::format("byte 0x{:02X}", c);
}

void Parser::failFound(const std::string& expected) {
  const Position at = position();
  fail(at, expected + ", found " + describeNext());
}

bool Parser::more() {
  ++epoch_;
  try {
    return stream_.ensureBuffer(std::nothrow);
  } catch (...) {
    error_ = std::current_exception();
    throw;
  }
}

void Parser::skipWhitespaceSlow() {
  for (;;) {
    const auto span = stream_.buffered();
    // Short runs (a line feed and an indentation) end before a wide scan pays.
    constexpr std::size_t shortRun = 16;
    const std::size_t head = std::min(span.size(), shortRun);
    std::size_t length = 0;
    while (length != head && (span[length] == ' ' || span[length] == '\n')) ++length;
    if (length != head && static_cast<unsigned char>(span[length]) > ' ') {
      for (std::size_t i = 0; i != length; ++i) {
        if (span[i] == '\n') {
          ++line_;
          lineStart_ = stream_.offset() + i + 1;
          continuations_ = 0;
        }
      }
      stream_.consume(length);
      return;
    }
    const WhitespaceRun run = kernels_.whitespace(span.data(), span.data() + span.size());
    if (run.lineFeeds != 0) {
      line_ += run.lineFeeds;
      lineStart_ = stream_.offset() + run.afterLastLineFeed;
      continuations_ = 0;
    }
    stream_.consume(run.length);
    if (run.length != span.size() || !more()) return;
  }
}

std::uint64_t Parser::startDocument() {
  check();
  if (started_) throw std::logic_error("korvane::utils::json::decoder: the top-level value was already taken");
  started_ = true;
  if (peek() == 0xEF) {
    // A UTF-8 byte order mark, as some Windows editors write; ignored.
    const Position at = position();
    stream_.consume(1);
    if (peek() != 0xBB) fail(at, "expected a value, found byte 0xEF");
    stream_.consume(1);
    if (peek() != 0xBF) fail(at, "expected a value, found byte 0xEF");
    stream_.consume(1);
    lineStart_ = stream_.offset();
  }
  skipWhitespace();
  pending_ = ++nextId_;
  return pending_;
}

void Parser::requireValue(std::uint64_t id) const {
  if (id == 0 || pending_ != id) throw std::logic_error(movedOn);
}

int Parser::peekValue(std::uint64_t id) {
  check();
  requireValue(id);
  return peek();
}

void Parser::valueDone() {
  if (frames_.empty()) expectEnd();
}

void Parser::pendingDone(std::uint64_t id) {
  if (pending_ == id) pending_ = 0;
  valueDone();
}

void Parser::expectEnd() {
  skipWhitespace();
  if (peek() >= 0) failFound("expected the end of the input after the top-level value");
  ended_ = true;
}

void Parser::skipValue(std::uint64_t id) {
  check();
  requireValue(id);
  skipStructured(valueState, 0, FrameKind::array);
  pendingDone(id);
}

void Parser::skipPending() {
  skipStructured(valueState, 0, FrameKind::array);
  pending_ = 0;
}

void Parser::failType(const char* expected) {
  const Position at = position();
  const std::string kind = describeValue(peek());
  fail(at, core::format("expected {}, found {}", expected, kind.empty() ? describeNext() : kind));
}

std::uint64_t Parser::openContainer(std::uint64_t id, FrameKind kind) {
  check();
  requireValue(id);
  const bool object = kind == FrameKind::object;
  if (peek() != (object ? '{' : '[')) failType(object ? "an object" : "an array");
  if (containerFrames_ >= maxDepth) failFound(core::format("nesting deeper than {} levels", maxDepth));
  stream_.consume(1);
  frames_.push_back({++nextId_, kind, false});
  ++containerFrames_;
  pending_ = 0;
  return nextId_;
}

std::uint64_t Parser::openObject(std::uint64_t id) { return openContainer(id, FrameKind::object); }

std::uint64_t Parser::openArray(std::uint64_t id) { return openContainer(id, FrameKind::array); }

std::uint64_t Parser::openString(std::uint64_t id) {
  check();
  requireValue(id);
  if (peek() != '"') failType("a string");
  stream_.consume(1);
  frames_.push_back({++nextId_, FrameKind::string, true});
  pending_ = 0;
  return nextId_;
}

core::Uuid Parser::readUuid(std::uint64_t id) {
  check();
  requireValue(id);
  const Position start = position();
  if (peek() != '"') failType("a string holding a UUID");
  const auto span = stream_.buffered();
  constexpr std::size_t quoted = core::Uuid::textLength + 2;
  if (span.size() >= quoted && span[quoted - 1] == '"') {
    // The common case: the whole string is buffered and holds no escapes.
    const std::string_view text(span.data() + 1, core::Uuid::textLength);
    if (plainStringLength(kernels_, text.data(), text.data() + text.size()) == text.size()) {
      const auto uuid = core::Uuid::fromString(text);
      if (!uuid) fail(start, "expected a UUID (8-4-4-4-12 hexadecimal digits), found a string that is not one");
      stream_.consume(quoted);
      pendingDone(id);
      return *uuid;
    }
  }
  stream_.consume(1);
  char text[core::Uuid::textLength + 1];
  std::size_t length = 0;
  scanStringBody([&](const char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count && length <= core::Uuid::textLength; ++i) text[length++] = bytes[i];
  });
  const auto uuid = core::Uuid::fromString(std::string_view(text, length));
  if (!uuid) fail(start, "expected a UUID (8-4-4-4-12 hexadecimal digits), found a string that is not one");
  pendingDone(id);
  return *uuid;
}

Parser::Frame& Parser::reachOuterFrame(std::uint64_t frameId) {
  std::size_t index = frames_.size();
  while (index != 0 && frames_[index - 1].id > frameId) --index;
  if (index == 0 || frames_[index - 1].id != frameId) throw std::logic_error(movedOn);
  while (frames_.size() > index) closeTopFrame();
  return frames_.back();
}

void Parser::closeTopFrame() {
  const Frame frame = frames_.back();
  if (frame.kind == FrameKind::string) {
    scanStringBody([](const char*, std::size_t) {});
  } else {
    if (pending_ != 0) skipPending();
    const bool object = frame.kind == FrameKind::object;
    skipStructured(frame.started ? afterState : (object ? objectFirstState : arrayFirstState), 1,
                   frame.kind);
  }
  popFrame();
}

void Parser::popFrame() {
  ++epoch_;
  if (frames_.back().kind != FrameKind::string) --containerFrames_;
  frames_.pop_back();
  valueDone();
}

bool Parser::nextMember(std::uint64_t frameId, std::string& name, std::uint64_t& valueId,
                        Position& valueStart) {
  check();
  Frame& frame = reachFrame(frameId);
  if (pending_ != 0) skipPending();
  skipWhitespace();
  int c = peek();
  if (c == '}') {
    stream_.consume(1);
    popFrame();
    return false;
  }
  if (frame.started) {
    if (c != ',') failFound("expected ',' or '}' after an object member");
    stream_.consume(1);
    skipWhitespace();
    c = peek();
  }
  frame.started = true;
  if (c != '"') failFound("expected a member name (a string)");
  const Position nameStart = position();
  stream_.consume(1);
  name.clear();
  // The common case: the whole name is buffered and holds no escapes.
  const auto span = stream_.buffered();
  const std::size_t length = plainStringLength(kernels_, span.data(), span.data() + span.size());
  if (length < span.size() && span[length] == '"' && length <= maxNameLength) {
    name.assign(span.data(), length);
    stream_.consume(length + 1);
  } else {
    scanStringBody([&](const char* bytes, std::size_t count) {
      if (count > maxNameLength - name.size()) {
        fail(nameStart, core::format("member name longer than {} bytes", maxNameLength));
      }
      name.append(bytes, count);
    });
  }
  skipWhitespace();
  if (peek() != ':') failFound("expected ':' after a member name");
  stream_.consume(1);
  skipWhitespace();
  valueStart = position();
  valueId = pending_ = ++nextId_;
  return true;
}

bool Parser::nextElement(std::uint64_t frameId, std::uint64_t& valueId, Position& valueStart) {
  check();
  Frame& frame = reachFrame(frameId);
  if (pending_ != 0) skipPending();
  skipWhitespace();
  const int c = peek();
  if (c == ']') {
    stream_.consume(1);
    popFrame();
    return false;
  }
  if (frame.started) {
    if (c != ',') failFound("expected ',' or ']' after an array element");
    stream_.consume(1);
    skipWhitespace();
  }
  frame.started = true;
  valueStart = position();
  valueId = pending_ = ++nextId_;
  return true;
}

std::span<const char> Parser::takePlainRun(std::uint64_t frameId) {
  check();
  reachFrame(frameId);
  if (stream_.buffered().empty() && !more()) failFound("expected '\"' to end the string");
  const auto span = stream_.buffered();
  const std::size_t count = plainStringLength(kernels_, span.data(), span.data() + span.size());
  stream_.consume(count);
  return span.first(count);
}

bool Parser::nextStringUnit(std::uint64_t frameId, Utf8Unit& unit) {
  check();
  reachFrame(frameId);
  const int c = peek();
  if (c < 0) failFound("expected '\"' to end the string");
  if (c == '"') {
    stream_.consume(1);
    popFrame();
    return false;
  }
  if (isPlainStringByte(static_cast<unsigned char>(c))) {
    unit.bytes[0] = static_cast<char>(c);
    unit.length = 1;
    stream_.consume(1);
    return true;
  }
  decodeSpecial(unit);
  return true;
}

void Parser::finish() {
  check();
  if (!started_) startDocument();
  while (!frames_.empty()) closeTopFrame();
  if (pending_ != 0) skipValue(pending_);
}

void Parser::checkDepth(std::size_t depth) {
  if (depth > maxDepth) failFound(core::format("nesting deeper than {} levels", maxDepth));
}

// Skips without recursion: the kinds of the containers open inside the
// skipped value are kept in a bit set, one bit per level.
void Parser::skipStructured(int initialState, std::size_t depth, FrameKind outer) {
  std::bitset<maxDepth + 2> isObject;
  isObject[1] = outer == FrameKind::object;
  const std::size_t base = containerFrames_ - depth;
  int state = initialState;
  for (;;) {
    switch (state) {
      case valueState: {
        skipWhitespace();
        const int c = peek();
        if (c == '{' || c == '[') {
          checkDepth(base + depth + 1);
          stream_.consume(1);
          ++depth;
          isObject[depth] = c == '{';
          state = c == '{' ? objectFirstState : arrayFirstState;
          continue;
        }
        if (c == '"') {
          stream_.consume(1);
          scanStringBody([](const char*, std::size_t) {});
        } else if (c == '-' || isDigit(c)) {
          skipNumber();
        } else if (c == 't') {
          skipLiteral("true");
        } else if (c == 'f') {
          skipLiteral("false");
        } else if (c == 'n') {
          skipLiteral("null");
        } else {
          failFound("expected a value");
        }
        state = afterState;
        continue;
      }
      case objectFirstState:
        skipWhitespace();
        if (peek() == '}') {
          stream_.consume(1);
          --depth;
          state = afterState;
        } else {
          state = nameState;
        }
        continue;
      case nameState:
        skipWhitespace();
        if (peek() != '"') failFound("expected a member name (a string)");
        stream_.consume(1);
        scanStringBody([](const char*, std::size_t) {});
        skipWhitespace();
        if (peek() != ':') failFound("expected ':' after a member name");
        stream_.consume(1);
        state = valueState;
        continue;
      case arrayFirstState:
        skipWhitespace();
        if (peek() == ']') {
          stream_.consume(1);
          --depth;
          state = afterState;
        } else {
          state = valueState;
        }
        continue;
      default: {
        if (depth == 0) return;
        skipWhitespace();
        const int c = peek();
        const bool object = isObject[depth];
        if (c == ',') {
          stream_.consume(1);
          state = object ? nameState : valueState;
        } else if (c == (object ? '}' : ']')) {
          stream_.consume(1);
          --depth;
        } else {
          failFound(object ? "expected ',' or '}' after an object member"
                           : "expected ',' or ']' after an array element");
        }
        continue;
      }
    }
  }
}

void Parser::skipDigits() {
  for (;;) {
    const auto span = stream_.buffered();
    const std::size_t count = kernels_.digitLength(span.data(), span.data() + span.size());
    stream_.consume(count);
    if (count != span.size() || !more()) return;
  }
}

void Parser::skipNumber() {
  if (peek() == '-') stream_.consume(1);
  const int first = peek();
  if (first == '0') {
    stream_.consume(1);
  } else if (isDigit(first)) {
    skipDigits();
  } else {
    failFound("expected a digit in a number");
  }
  if (peek() == '.') {
    stream_.consume(1);
    if (!isDigit(peek())) failFound("expected a digit after the decimal point");
    skipDigits();
  }
  const int e = peek();
  if (e == 'e' || e == 'E') {
    stream_.consume(1);
    const int sign = peek();
    if (sign == '+' || sign == '-') stream_.consume(1);
    if (!isDigit(peek())) failFound("expected a digit in the exponent");
    skipDigits();
  }
}

void Parser::skipLiteral(const char* literal) {
  const std::string_view text(literal);
  const auto span = stream_.buffered();
  if (span.size() >= text.size() && std::string_view(span.data(), text.size()) == text) {
    stream_.consume(text.size());
    return;
  }
  const Position start = position();
  for (const char* p = literal; *p != '\0'; ++p) {
    if (peek() != static_cast<unsigned char>(*p)) {
      fail(start, core::format("invalid literal, expected {}", literal));
    }
    stream_.consume(1);
  }
}

template <typename Sink>
void Parser::scanStringBody(Sink&& sink) {
  for (;;) {
    const auto span = stream_.buffered();
    const char* const begin = span.data();
    const char* const end = begin + span.size();
    const std::size_t count = plainStringLength(kernels_, begin, end);
    const char* const p = begin + count;
    if (count != 0) {
      sink(begin, count);
      stream_.consume(count);
    }
    if (p == end) {
      if (!more()) failFound("expected '\"' to end the string");
      continue;
    }
    if (*p == '"') {
      stream_.consume(1);
      return;
    }
    Utf8Unit unit;
    decodeSpecial(unit);
    sink(unit.bytes.data(), unit.length);
  }
}

void Parser::decodeSpecial(Utf8Unit& unit) {
  const int c = peek();
  if (c == '\\') {
    const Position start = position();
    stream_.consume(1);
    decodeEscape(unit, start);
  } else if (c >= 0x80) {
    decodeUtf8(unit);
  } else if (c == 0) {
    fail(position(), "a NUL byte is not allowed in a string");
  } else {
    fail(position(), core::format("control character U+{:04X} must be escaped in a string", c));
  }
}

void Parser::decodeEscape(Utf8Unit& unit, const Position& start) {
  const int c = peek();
  char simple = 0;
  switch (c) {
    case '"': simple = '"'; break;
    case '\\': simple = '\\'; break;
    case '/': simple = '/'; break;
    case 'b': simple = '\b'; break;
    case 'f': simple = '\f'; break;
    case 'n': simple = '\n'; break;
    case 'r': simple = '\r'; break;
    case 't': simple = '\t'; break;
    case 'u': break;
    default: failFound("invalid escape sequence: expected one of \" \\ / b f n r t u after '\\'");
  }
  stream_.consume(1);
  if (c != 'u') {
    unit.bytes[0] = simple;
    unit.length = 1;
    return;
  }
  unsigned codePoint = readHex4();
  if (string::isLowSurrogate(codePoint)) {
    fail(start, core::format("unpaired low surrogate \\u{:04X}", codePoint));
  }
  if (string::isHighSurrogate(codePoint)) {
    const Position second = position();
    if (peek() != '\\') fail(start, core::format("unpaired high surrogate \\u{:04X}", codePoint));
    stream_.consume(1);
    if (peek() != 'u') fail(start, core::format("unpaired high surrogate \\u{:04X}", codePoint));
    stream_.consume(1);
    const unsigned low = readHex4();
    if (!string::isLowSurrogate(low)) {
      fail(second, core::format("expected a low surrogate after \\u{:04X}, found \\u{:04X}", codePoint, low));
    }
    codePoint = string::combineSurrogates(codePoint, low);
  }
  appendUtf8(unit, codePoint);
}

unsigned Parser::readHex4() {
  unsigned value = 0;
  for (int i = 0; i < 4; ++i) {
    const int digit = hexValue(peek());
    if (digit < 0) failFound("expected a hexadecimal digit in a \\u escape");
    stream_.consume(1);
    value = value * 16 + static_cast<unsigned>(digit);
  }
  return value;
}

// Strict UTF-8 (RFC 3629): no overlong forms, no surrogates, nothing above U+10FFFF.
void Parser::decodeUtf8(Utf8Unit& unit) {
  const Position start = position();
  const int lead = peek();
  if (!string::isUtf8Lead(static_cast<unsigned char>(lead))) {
    fail(start, core::format("invalid UTF-8 byte 0x{:02X} in a string", lead));
  }
  const std::size_t length = string::utf8SequenceLength(static_cast<unsigned char>(lead));
  for (std::size_t i = 0; i < length; ++i) {
    const int c = peek();
    if (i > 0 && (c < 0 || !string::isUtf8Continuation(static_cast<unsigned char>(c)))) {
      fail(start, "invalid UTF-8 sequence in a string");
    }
    stream_.consume(1);
    unit.bytes[i] = static_cast<char>(c);
  }
  if (!string::decodeUtf8({unit.bytes.data(), length}, string::Utf8Malformed::reject).wellFormed) {
    fail(start, "invalid UTF-8 sequence in a string");
  }
  unit.length = static_cast<std::uint8_t>(length);
  continuations_ += length - 1;
}

}  // namespace korvane::utils::json::decoder::detail
