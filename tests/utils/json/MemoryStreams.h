// In-memory streams for the JSON tests: an input stream over a string with
// a buffer of any size (tiny buffers force a refill at every point of the
// input), one whose first read stops at a chosen point, and an output stream
// that collects into a string.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <span>
#include <string>
#include <utility>

#include "utils/io/InputStream.h"
#include "utils/io/OutputStream.h"

namespace korvane::utils::json::test {

class MemoryInputStream : public io::InputStream<char> {
 public:
  explicit MemoryInputStream(std::string text, std::size_t bufferSize = defaultBufferSize)
      : io::InputStream<char>(bufferSize), text_(std::move(text)) {}

 protected:
  std::size_t readSome(std::span<char> into) override {
    const std::size_t count = std::min(into.size(), text_.size() - position_);
    std::memcpy(into.data(), text_.data() + position_, count);
    position_ += count;
    return count;
  }

 private:
  std::string text_;
  std::size_t position_ = 0;
};

// An input stream over a string whose first read ends at `split` bytes:
// the buffer then holds the text's head alone, whatever the scan is in the
// middle of, and the next refill brings the rest.
class SplitInputStream : public io::InputStream<char> {
 public:
  SplitInputStream(std::string text, std::size_t split)
      : io::InputStream<char>(std::max<std::size_t>(text.size(), 1)),
        text_(std::move(text)),
        split_(split) {}

 protected:
  std::size_t readSome(std::span<char> into) override {
    const std::size_t limit = position_ < split_ ? std::min(split_, text_.size()) : text_.size();
    const std::size_t count = std::min(into.size(), limit - position_);
    std::memcpy(into.data(), text_.data() + position_, count);
    position_ += count;
    return count;
  }

 private:
  std::string text_;
  std::size_t split_;
  std::size_t position_ = 0;
};

class MemoryOutputStream : public io::OutputStream<char> {
 public:
  explicit MemoryOutputStream(std::size_t bufferSize = defaultBufferSize)
      : io::OutputStream<char>(bufferSize) {}

  // Everything written so far, flushed.
  const std::string& text() {
    flush();
    return text_;
  }

 protected:
  void writeSome(std::span<const char> text) override { text_.append(text.data(), text.size()); }

 private:
  std::string text_;
};

}  // namespace korvane::utils::json::test
