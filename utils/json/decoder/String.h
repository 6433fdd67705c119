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
#include <iterator>
#include <string>
#include <string_view>

#include "utils/json/decoder/Parser.h"

namespace korvane::utils::json::decoder {

class String {
 public:
  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using difference_type = std::ptrdiff_t;
    using value_type = char;

    Iterator() = default;

    const char& operator*() const {
      string_->checkCurrent(step_);
      return string_->current_;
    }
    Iterator& operator++() {
      string_->checkCurrent(step_);
      string_->step();
      step_ = string_->steps_;
      return *this;
    }
    void operator++(int) { ++*this; }

    friend bool operator==(const Iterator& it, std::default_sentinel_t) noexcept {
      return it.atEnd();
    }

   private:
    bool atEnd() const noexcept { return string_ == nullptr || string_->done_; }
    friend class String;
    explicit Iterator(String* string) noexcept : string_(string), step_(string->steps_) {}

    String* string_ = nullptr;
    std::uint64_t step_ = 0;
  };

  String(const String&) = delete;
  String& operator=(const String&) = delete;
  ~String();

  // REQUIRES: called once.
  Iterator begin();
  std::default_sentinel_t end() const noexcept { return {}; }

  // Appends the whole string to `out` a run of plain characters at a time
  // rather than character by character; the same text as the walk yields.
  // REQUIRES: instead of begin(), called once.
  void appendTo(std::string& out);

  // Reads the whole string, as appendTo() does, and tells whether it is
  // `expected` byte for byte; it holds none of it, so a string of any
  // length costs no memory. REQUIRES: instead of begin(), called once.
  bool equals(std::string_view expected);

 private:
  friend class Value;
  friend class Iterator;

  String(detail::Parser& parser, std::uint64_t frameId) noexcept
      : parser_(&parser), frameId_(frameId) {}

  // Moves to the next character; false once the closing quote has been read.
  bool step() {
    if (run_ != runEnd_ && parser_->epoch() == epoch_) {
      current_ = *run_++;
      ++steps_;
      return true;
    }
    if (unitIndex_ < unit_.length) {
      current_ = unit_.bytes[unitIndex_++];
      ++steps_;
      return true;
    }
    return stepSlow();
  }
  bool stepSlow();
  void checkCurrent(std::uint64_t step) const {
    if (step != steps_ || done_) failStale();
  }
  [[noreturn]] void failStale() const;

  detail::Parser* parser_;
  std::uint64_t frameId_;
  std::uint64_t steps_ = 0;
  // Plain characters taken from the stream's buffer in one go, still to be
  // yielded; valid while the parser's epoch is epoch_.
  const char* run_ = nullptr;
  const char* runEnd_ = nullptr;
  std::uint64_t epoch_ = 0;
  // A decoded escape or multi-byte character still to be yielded.
  detail::Utf8Unit unit_;
  std::uint8_t unitIndex_ = 0;
  char current_ = 0;
  bool begun_ = false;
  bool done_ = false;
};

}  // namespace korvane::utils::json::decoder
