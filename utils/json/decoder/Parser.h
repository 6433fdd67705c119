// Parser: the scanner behind the decoder's views, the one pass over a JSON
// text. It reads the stream's buffer in place, counts lines and columns as
// the bytes go by (line feeds only stand in whitespace, so only whitespace
// runs count them), keeps the stack of views that are open, and the first
// error met.
//
// The grammar it enforces is Grammar's (Grammar.h), each error located at
// its line and column and thrown: escapes including
// surrogate pairs are decoded to UTF-8; raw control characters, invalid
// UTF-8, unpaired surrogates and NUL bytes are errors; numbers are checked
// against the grammar but never converted; only whitespace may follow the
// top-level value. A UTF-8 byte order mark at the very start is ignored
// (columns of line 1 count from after it).
//
// Runs of plain string characters, whitespace and digits are measured by
// the scan kernels (see ScanKernels.h) of the level current when the Parser
// is made (a short member name, taken in one step, by SSE2 where the build
// has it, whatever the level: every level counts alike); everything else,
// errors included, by the same plain code. The
// usual member (", " or ",\n" and up to 16 spaces, a short plain name,
// ": "), the step to an array element on the next line and the usual
// string (plain, whole in the buffer) are taken in one step each, and so
// are, when skipped, a plain name with its ':', a number, an escape and a
// UTF-8 sequence that are whole in the buffer; anything else by the
// general path, byte by byte where it must.
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
#include <bit>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "utils/core/Uuid.h"
#include "utils/io/InputStream.h"
#include "utils/json/ScanKernels.h"
#include "utils/json/decoder/Grammar.h"
#include "utils/json/decoder/Location.h"
#include "utils/json/decoder/Name.h"

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

  ~Parser();
  Parser(const Parser&) = delete;
  Parser& operator=(const Parser&) = delete;

  // Throws the first error again, if there was one.
  void check() const {
    if (error_) std::rethrow_exception(error_);
  }

  Position position() const noexcept { return positionAt(offset(), continuations_); }
  Location locate(const Position& position) const {
    return Location(source_, position.line, position.column, position.offset);
  }

  // The top-level value: skips a byte order mark and whitespace, and makes
  // the value pending. Returns its id.
  std::uint64_t startDocument();

  // For a stream that starts inside a document, just after an element of
  // an array that is the value of a member of the top-level object: opens
  // that object and that array, both past their first item, and returns
  // their frame ids. REQUIRES: nothing was read yet.
  std::pair<std::uint64_t, std::uint64_t> resumeInMemberArray();

  // Bytes consumed since the stream was opened.
  std::uint64_t consumed() const noexcept { return offset(); }

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
  bool nextMember(std::uint64_t frameId, Name& name, std::uint64_t& valueId, Position& valueStart);
  bool nextElement(std::uint64_t frameId, std::uint64_t& valueId, Position& valueStart);
  // Next character of an open string, and whether it was written as an
  // escape sequence; false after the closing quote.
  bool nextStringUnit(std::uint64_t frameId, Utf8Unit& unit, bool& escaped);

  // Reads the pending value, which must be a string, and tells whether it
  // is `text` byte for byte, holding none of it.
  bool stringEquals(std::uint64_t id, std::string_view text);
  // The pending value, which must be a string, taken whole when it is
  // plain (only bytes 0x20 to 0x7F other than '"' and '\\'), whole in the
  // buffer and not the top-level value: its text, valid until the next call on the
  // Parser. Otherwise nothing is consumed and the result is std::nullopt.
  std::optional<std::string_view> takePlainString(std::uint64_t id);

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
  std::span<const char> buffered() const noexcept {
    return {p_, static_cast<std::size_t>(end_ - p_)};
  }
  void consume(std::size_t count) noexcept { p_ += count; }
  // Hands what was consumed back to the stream and refills it; false at
  // the end of the input.
  [[gnu::noinline]] bool more();
  [[gnu::always_inline]] int peek() {
    if (p_ != end_) return static_cast<unsigned char>(*p_);
    return more() ? static_cast<unsigned char>(*p_) : -1;
  }
  // The plain string bytes that [begin, end) starts with. Most runs (names,
  // short values) end within their first 16 bytes, tested inline.
  [[gnu::always_inline]] std::size_t plainStringLength(const char* begin,
                                                       const char* end) const noexcept {
#if KORVANE_JSON_SSE2
    if (wide_ && end - begin >= 16) {
      const unsigned special = json::detail::specialStringBytes16(begin);
      if (special != 0) return static_cast<std::size_t>(std::countr_zero(special));
    }
#endif
    return longPlainStringLength(begin, end);
  }
  [[gnu::noinline]] std::size_t longPlainStringLength(const char* begin,
                                                      const char* end) const noexcept;
  // A mark keeps the offset and the UTF-8 continuation bytes counted so
  // far: no line feed falls between a mark and an error located there (both
  // are within a token), so the line and column are found when the error is.
  struct Mark {
    std::uint64_t offset;
    std::uint64_t continuations;
  };
  Mark mark() const noexcept { return {offset(), continuations_}; }
  Position positionAt(std::uint64_t at, std::uint64_t continuations) const noexcept {
    return {at, line_, at - lineStart_ - continuations + 1};
  }
  [[noreturn]] void failAt(const Mark& at, const std::string& message);
  [[noreturn]] void failAt(const Position& at, const std::string& message);
  [[noreturn]] void failFound(const std::string& expected);
  void countLines(const json::detail::WhitespaceRun& run) noexcept {
    if (run.lineFeeds == 0) return;
    line_ += run.lineFeeds;
    lineStart_ = offset() + run.afterLastLineFeed;
    continuations_ = 0;
  }
  void countContinuations(std::size_t count) noexcept { continuations_ += count; }

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
  [[gnu::always_inline]] inline bool takeShortMember(bool& started, Name& name) noexcept;
  [[gnu::noinline]] bool nextMemberSlowly(std::uint64_t frameId, Name& name, std::uint64_t& valueId,
                                          Position& valueStart);
  void readName(Name& name);
  void expectEnd();

  // Bytes consumed since the stream was opened.
  std::uint64_t offset() const noexcept {
    return spanOffset_ + static_cast<std::uint64_t>(p_ - spanStart_);
  }
  void load() noexcept;
  void handBack() noexcept;

  io::InputStream<char>& stream_;
  [[maybe_unused]] const bool wide_;  // the kernels are SSE2 or wider (read on x86-64)
  // Whether each container open in a skip is an object, by level.
  std::bitset<maxDepth + 2> containerKinds_;
  // The stream's buffered bytes are read in place through a cursor of the
  // Parser's own, [p_, end_), which the hot loops keep in registers; the
  // stream is told what was consumed (handBack) only before it refills.
  const char* spanStart_ = nullptr;
  std::uint64_t spanOffset_ = 0;  // the stream's offset at spanStart_
  const char* p_ = nullptr;
  const char* end_ = nullptr;
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
