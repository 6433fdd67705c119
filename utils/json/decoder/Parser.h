// Parser: the scanner behind the decoder's views. It reads the stream's
// buffer in place, keeps the position (line, column, offset), the stack of
// views that are open, and the first error met.
//
// The grammar it enforces is Grammar's (Grammar.h, shared with the Skimmer),
// with the policy that locates each error and throws it: escapes including
// surrogate pairs are decoded to UTF-8; raw control characters, invalid
// UTF-8, unpaired surrogates and NUL bytes are errors; numbers are checked
// against the grammar but never converted; only whitespace may follow the
// top-level value. A UTF-8 byte order mark at the very start is ignored
// (columns of line 1 count from after it).
//
// Runs of plain string characters, whitespace and digits are measured by
// the scan kernels (see ScanKernels.h) of the level current when the Parser
// is made; everything else, errors included, by the same plain code.
//
// Limits that keep hostile input harmless: nesting deeper than maxDepth
// levels and member names longer than maxNameLength bytes are errors.
// Skipping is iterative, so no input can exhaust the call stack.
//
// Errors are sticky: after the first one every operation throws it again.
// Using a view or value after the walk has moved past it throws
// std::logic_error and leaves the parse untouched.
//
// Thread safety: one Parser must not be used from two threads at once.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "utils/core/Uuid.h"
#include "utils/io/InputStream.h"
#include "utils/json/ScanKernels.h"
#include "utils/json/decoder/Grammar.h"
#include "utils/json/decoder/Location.h"

namespace korvane::utils::json::decoder::detail {

// A position in the input, cheap to take at every value.
struct Position {
  std::uint64_t offset = 0;
  std::uint64_t line = 0;
  std::uint64_t column = 0;
};

enum class FrameKind : std::uint8_t { object, array, string };

class Parser : private Grammar<Parser> {
 public:
  static constexpr std::size_t maxDepth = 1000;
  static constexpr std::size_t maxNameLength = detail::maxNameLength;

  Parser(io::InputStream<char>& stream, std::string sourceName);

  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  // Throws the first error again, if there was one.
  void check() const {
    if (error_) std::rethrow_exception(error_);
  }

  Position position() const noexcept {
    const std::uint64_t offset = stream_.offset();
    return {offset, line_, offset - lineStart_ - continuations_ + 1};
  }
  Location locate(const Position& position) const {
    return Location(source_, position.line, position.column, position.offset);
  }

  // The top-level value: skips a byte order mark and whitespace, and makes
  // the value pending. Returns its id.
  std::uint64_t startDocument();

  // REQUIRES for the operations on a value: `id` is the pending value
  // (otherwise std::logic_error).
  void requireValue(std::uint64_t id) const;
  // The first byte of the pending value, or -1 at the end of the input.
  int peekValue(std::uint64_t id);
  // Throws the error for a pending value that starts with no value's character.
  [[noreturn]] void failNotValue() { failFound("expected a value"); }
  void skipValue(std::uint64_t id);
  std::uint64_t openObject(std::uint64_t id);
  std::uint64_t openArray(std::uint64_t id);
  std::uint64_t openString(std::uint64_t id);
  core::Uuid readUuid(std::uint64_t id);

  // The walks. Each returns false when the view's closing character has
  // been consumed; otherwise a new value is pending (its id in *valueId).
  // A member's name is decoded into `name`; `nameEscaped` tells whether it
  // held an escape sequence.
  bool nextMember(std::uint64_t frameId, std::string& name, bool& nameEscaped,
                  std::uint64_t& valueId, Position& valueStart);
  bool nextElement(std::uint64_t frameId, std::uint64_t& valueId, Position& valueStart);
  // Next character of an open string, and whether it was written as an
  // escape sequence; false after the closing quote.
  bool nextStringUnit(std::uint64_t frameId, Utf8Unit& unit, bool& escaped);

  // The plain ASCII characters that come next in an open string, taken in
  // one go (possibly none). The span points into the stream's buffer and
  // stays valid while epoch() is unchanged.
  std::span<const char> takePlainRun(std::uint64_t frameId);

  // Changes whenever a view is closed or the stream's buffer is refilled.
  std::uint64_t epoch() const noexcept { return epoch_; }

  // Consumes everything still open and checks the end of the input.
  void finish();

 private:
  friend class Grammar<Parser>;

  struct Frame {
    std::uint64_t id;
    FrameKind kind;
    bool started;
  };

  // The policy Grammar<Parser> runs with: errors located and thrown.
  static constexpr std::size_t maxNesting = maxDepth;
  std::span<const char> buffered() const noexcept { return stream_.buffered(); }
  void consume(std::size_t count) noexcept { stream_.consume(count); }
  bool more();
  int peek() {
    const auto span = stream_.buffered();
    if (!span.empty()) return static_cast<unsigned char>(span[0]);
    return more() ? static_cast<unsigned char>(stream_.buffered()[0]) : -1;
  }
  // The plain string bytes that [begin, end) starts with; the first 16 are
  // tested inline where that many are buffered.
  std::size_t plainStringLength(const char* begin, const char* end) const noexcept {
    if (end - begin >= 16) return json::detail::measurePlainString<16>(kernels_, begin, end);
    return kernels_.plainStringLength(begin, end);
  }
  Position mark() const noexcept { return position(); }
  [[noreturn]] void failAt(const Position& at, const std::string& message);
  [[noreturn]] void failFound(const std::string& expected);
  void countLines(const json::detail::WhitespaceRun& run) noexcept {
    if (run.lineFeeds == 0) return;
    line_ += run.lineFeeds;
    lineStart_ = stream_.offset() + run.afterLastLineFeed;
    continuations_ = 0;
  }
  void countContinuations(std::size_t count) noexcept { continuations_ += count; }
  // The stream's buffer is refilled whole: no token needs to be kept.
  static void markToken() noexcept {}

  [[noreturn]] void failType(const char* expected);
  std::string describeNext();

  // Positions the parse at `frameId`, closing the views opened inside it.
  Frame& reachFrame(std::uint64_t frameId) {
    if (!frames_.empty() && frames_.back().id == frameId) return frames_.back();
    return reachOuterFrame(frameId);
  }
  Frame& reachOuterFrame(std::uint64_t frameId);
  std::uint64_t openContainer(std::uint64_t id, FrameKind kind);
  void closeTopFrame();
  void popFrame();
  void valueDone();
  void pendingDone(std::uint64_t id);
  void skipPending();
  bool readName(std::string& name);
  void expectEnd();

  io::InputStream<char>& stream_;
  std::shared_ptr<const std::string> source_;
  std::exception_ptr error_;
  std::vector<Frame> frames_;
  std::uint64_t nextId_ = 0;
  std::uint64_t pending_ = 0;
  std::uint64_t line_ = 1;
  std::uint64_t lineStart_ = 0;      // offset of the first byte of the line
  std::uint64_t continuations_ = 0;  // UTF-8 continuation bytes since then
  std::size_t containerFrames_ = 0;  // object and array frames open
  std::uint64_t epoch_ = 0;
  bool started_ = false;
  bool ended_ = false;
};

}  // namespace korvane::utils::json::decoder::detail
