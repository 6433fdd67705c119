#include "utils/json/decoder/Parser.h"

#include <algorithm>
#include <bit>
#include <bitset>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "utils/core/Format.h"
#include "utils/json/decoder/WrappedException.h"
#include "utils/string/PrintableText.h"
#include "utils/string/Utf8.h"

namespace korvane::utils::json::decoder::detail {

namespace {

constexpr const char* movedOn =
    "korvane::utils::json::decoder: a value or view was used after the walk moved past it";

// What a value starting with `c` is, for type errors.
std::string describeValue(int c) {
  switch (c) {
    case '{':
      return "an object";
    case '[':
      return "an array";
    case '"':
      return "a string";
    case 't':
    case 'f':
      return "a boolean";
    case 'n':
      return "null";
    default:
      break;
  }
  if (c == '-' || isDigit(c)) return "a number";
  return {};
}

using json::detail::isPlainStringByte;

}  // namespace

Parser::Parser(io::InputStream<char>& stream, std::string sourceName)
    : Grammar<Parser>(json::detail::scanKernels()),
      stream_(stream),
      source_(std::make_shared<const std::string>(std::move(sourceName))),
      lineStart_(stream.offset()) {}

void Parser::failAt(const Position& at, const std::string& message) {
  error_ = std::make_exception_ptr(
      WrappedException<std::runtime_error>(locate(at), std::runtime_error(message)));
  std::rethrow_exception(error_);
}

std::string Parser::describeNext() {
  const int c = peek();
  if (c < 0) return "end of input";
  if (c == 0) return "a NUL byte";
  if (c == 0x20) return "' '";
  // Any other byte is the file's and is quoted in the one form for outside
  // text: a control byte or one that is not UTF-8 on its own as "\xNN".
  return core::format("'{}'", string::toPrintableText(std::string(1, static_cast<char>(c))));
}

void Parser::failFound(const std::string& expected) {
  const Position at = position();
  failAt(at, expected + ", found " + describeNext());
}

bool Parser::more() {
  ++epoch_;
  try {
    return stream_.ensureBuffer();
  } catch (...) {
    error_ = std::current_exception();
    throw;
  }
}

std::uint64_t Parser::startDocument() {
  check();
  if (started_)
    throw std::logic_error("korvane::utils::json::decoder: the top-level value was already taken");
  started_ = true;
  // Columns of line 1 count from after a byte order mark.
  if (skipByteOrderMark()) lineStart_ = stream_.offset();
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
  expectEndOfInput();
  ended_ = true;
}

void Parser::skipValue(std::uint64_t id) {
  check();
  requireValue(id);
  skipNested(0, containerFrames_, false, false);
  pendingDone(id);
}

void Parser::skipPending() {
  skipNested(0, containerFrames_, false, false);
  pending_ = 0;
}

void Parser::failType(const char* expected) {
  const Position at = position();
  const std::string kind = describeValue(peek());
  failAt(at, core::format("expected {}, found {}", expected, kind.empty() ? describeNext() : kind));
}

std::uint64_t Parser::openContainer(std::uint64_t id, FrameKind kind) {
  check();
  requireValue(id);
  const bool object = kind == FrameKind::object;
  if (peek() != (object ? '{' : '[')) failType(object ? "an object" : "an array");
  checkDepth(containerFrames_ + 1);
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
    if (plainStringLength(text.data(), text.data() + text.size()) == text.size()) {
      const auto uuid = core::Uuid::fromString(text);
      if (!uuid)
        failAt(start,
               "expected a UUID (8-4-4-4-12 hexadecimal digits), found a string that is not one");
      stream_.consume(quoted);
      pendingDone(id);
      return *uuid;
    }
  }
  stream_.consume(1);
  char text[core::Uuid::textLength + 1];
  std::size_t length = 0;
  scanStringBody([&](const char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count && length <= core::Uuid::textLength; ++i)
      text[length++] = bytes[i];
  });
  const auto uuid = core::Uuid::fromString(std::string_view(text, length));
  if (!uuid)
    failAt(start,
           "expected a UUID (8-4-4-4-12 hexadecimal digits), found a string that is not one");
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
    skipNested(1, containerFrames_ - 1, frame.kind == FrameKind::object, frame.started);
  }
  popFrame();
}

void Parser::popFrame() {
  ++epoch_;
  if (frames_.back().kind != FrameKind::string) --containerFrames_;
  frames_.pop_back();
  valueDone();
}

bool Parser::nextMember(std::uint64_t frameId, std::string& name, bool& nameEscaped,
                        std::uint64_t& valueId, Position& valueStart) {
  check();
  Frame& frame = reachFrame(frameId);
  if (pending_ != 0) skipPending();
  if (!nextItem(frame.started, '}')) {
    popFrame();
    return false;
  }
  nameEscaped = readName(name);
  valueStart = position();
  valueId = pending_ = ++nextId_;
  return true;
}

// The name of a member and the ':' after it; whether it held an escape.
bool Parser::readName(std::string& name) {
  name.clear();
  const bool escaped =
      scanName([&](const char* bytes, std::size_t count) { name.append(bytes, count); });
  expectColon();
  return escaped;
}

bool Parser::nextElement(std::uint64_t frameId, std::uint64_t& valueId, Position& valueStart) {
  check();
  Frame& frame = reachFrame(frameId);
  if (pending_ != 0) skipPending();
  if (!nextItem(frame.started, ']')) {
    popFrame();
    return false;
  }
  valueStart = position();
  valueId = pending_ = ++nextId_;
  return true;
}

std::span<const char> Parser::takePlainRun(std::uint64_t frameId) {
  check();
  reachFrame(frameId);
  if (stream_.buffered().empty() && !more()) failFound("expected '\"' to end the string");
  const auto span = stream_.buffered();
  const std::size_t count = plainStringLength(span.data(), span.data() + span.size());
  stream_.consume(count);
  return span.first(count);
}

bool Parser::nextStringUnit(std::uint64_t frameId, Utf8Unit& unit, bool& escaped) {
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
    escaped = false;
    return true;
  }
  escaped = decodeSpecial(unit);
  return true;
}

void Parser::finish() {
  check();
  if (!started_) startDocument();
  while (!frames_.empty()) closeTopFrame();
  if (pending_ != 0) skipValue(pending_);
}

}  // namespace korvane::utils::json::decoder::detail
