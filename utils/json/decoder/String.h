// String: a JSON string being read, walked once, forwards, one decoded
// UTF-8 byte (char) at a time; escapes are resolved. Streaming: a string of
// any length is read in constant memory.
//     std::string text;
//     for (const char c : value.asString()) text += c;
// The same rules as for Object apply (see Object.h).
//
// Thread safety: as the Document it belongs to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "utils/json/decoder/Parser.h"
#include "utils/json/decoder/Walk.h"

namespace korvane::utils::json::decoder {

class String : public detail::Walk<String, const char> {
 public:
  static constexpr const char* walkName = "String";

  ~String();

  // Appends the whole string to `out` a run of plain characters at a time
  // rather than character by character; the same text as the walk yields.
  // REQUIRES: instead of begin(), called once.
  void appendTo(std::string& out);

  // Hands the whole string to `onPiece(std::string_view piece, bool
  // escaped)` in pieces, each a run of plain characters or one decoded
  // escape or character, so that a string of any length passes in constant
  // memory. `escaped` tells a piece that an escape sequence stood for; any
  // other piece is the input's own bytes, which hold nothing a JSON writer
  // escapes. A piece is valid only during the call. REQUIRES: instead of
  // begin(), called once.
  template <typename OnPiece>
  void forEachPiece(OnPiece&& onPiece) {
    beginWhole();
    for (;;) {
      const std::span<const char> run = parser().takePlainRun(frameId());
      if (!run.empty()) {
        onPiece(std::string_view(run.data(), run.size()), false);
        continue;
      }
      bool escaped = false;
      if (!parser().nextStringUnit(frameId(), unit_, escaped)) {
        unit_.length = 0;
        finishWhole();
        return;
      }
      onPiece(std::string_view(unit_.bytes.data(), unit_.length), escaped);
    }
  }

  // Reads the whole string, as appendTo() does, and tells whether it is
  // `expected` byte for byte; it holds none of it, so a string of any
  // length costs no memory. REQUIRES: instead of begin(), called once.
  bool equals(std::string_view expected);

 private:
  friend class Value;
  friend class detail::Walk<String, const char>;

  String(detail::Parser& parser, std::uint64_t frameId) noexcept : Walk(parser, frameId) {}

  // The walk's step: moves to the next character; false once the closing
  // quote has been read.
  bool step() {
    if (run_ != runEnd_ && parser().epoch() == epoch_) {
      current_ = *run_++;
      return true;
    }
    if (unitIndex_ < unit_.length) {
      current_ = unit_.bytes[unitIndex_++];
      return true;
    }
    return stepSlow();
  }
  bool stepSlow();
  const char& current() const noexcept { return current_; }

  // Plain characters taken from the stream's buffer in one go, still to be
  // yielded; valid while the parser's epoch is epoch_.
  const char* run_ = nullptr;
  const char* runEnd_ = nullptr;
  std::uint64_t epoch_ = 0;
  // A decoded escape or multi-byte character still to be yielded.
  detail::Utf8Unit unit_;
  std::uint8_t unitIndex_ = 0;
  char current_ = 0;
};

}  // namespace korvane::utils::json::decoder
