// InputStream: a buffered source of characters. Derived classes supply
// readSome(), which fills the stream's buffer, or readBlock(), which may
// hand over memory of their own; scanners such as the JSON decoder work
// directly on the buffered span (buffered() / consume()) and refill with
// ensureBuffer().
//
// The buffer is zeroed when the stream goes away, since it may have held a
// password read from redirected standard input.
//
// Thread safety: one object must not be used from two threads at once.
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <span>
#include <string_view>

#include "utils/core/SecureZero.h"

namespace korvane::utils::io {

template <typename CharT>
class InputStream {
  static_assert(sizeof(CharT) == 1, "streams carry bytes");

 public:
  static constexpr std::size_t defaultBufferSize = 64 * 1024;

  InputStream(const InputStream&) = delete;
  InputStream& operator=(const InputStream&) = delete;

  // Only the part of the buffer that reads ever filled needs zeroing.
  virtual ~InputStream() { core::secureZero(buffer_.get(), filled_ * sizeof(CharT)); }

  // Makes sure at least one character is buffered. Returns false at the end
  // of the input. A read failure throws and is never taken for the end of
  // the input, so that a failing source can never pass for a short one.
  bool ensureBuffer() {
    if (position_ != limit_) return true;
    if (ended_) return false;
    return refill();
  }

  // The characters buffered and not yet consumed (possibly none).
  std::span<const CharT> buffered() const noexcept {
    return {data_ + position_, limit_ - position_};
  }

  // REQUIRES: count <= buffered().size().
  void consume(std::size_t count) noexcept { position_ += count; }

  // The next character, or -1 at the end of the input.
  int get() {
    if (!ensureBuffer()) return -1;
    return static_cast<unsigned char>(data_[position_++]);
  }

  // Characters consumed so far since the stream was opened.
  std::size_t offset() const noexcept { return consumedBefore_ + position_; }

 protected:
  // The buffer is not zeroed: a small input touches only the pages it fills.
  explicit InputStream(std::size_t bufferSize = defaultBufferSize)
      : buffer_(std::make_unique_for_overwrite<CharT[]>(bufferSize)), capacity_(bufferSize) {}

  // Ends the input here: what is buffered is dropped (its memory may go
  // away) and nothing more is read.
  void dropBuffered() noexcept {
    consumedBefore_ += position_;
    data_ = buffer_.get();
    position_ = limit_ = 0;
    ended_ = true;
  }

  // Reads at most into.size() characters; returns 0 only at the end of the
  // input. Throws on failure.
  virtual std::size_t readSome(std::span<CharT> into) = 0;

  // The next characters of the input, empty only at its end; they stay
  // valid until the next call. By default read into the stream's buffer.
  virtual std::span<const CharT> readBlock() {
    const std::size_t got = readSome({buffer_.get(), capacity_});
    filled_ = std::max(filled_, got);
    return {buffer_.get(), got};
  }

 private:
  bool refill() {
    consumedBefore_ += limit_;
    position_ = limit_ = 0;
    const std::span<const CharT> block = readBlock();
    if (block.empty()) {
      ended_ = true;
      return false;
    }
    data_ = block.data();
    limit_ = block.size();
    return true;
  }

  std::unique_ptr<CharT[]> buffer_;
  std::size_t capacity_;
  const CharT* data_ = nullptr;  // what buffered() reads from
  std::size_t position_ = 0;
  std::size_t limit_ = 0;
  std::size_t consumedBefore_ = 0;
  std::size_t filled_ = 0;  // the most of the buffer any read filled
  bool ended_ = false;
};

}  // namespace korvane::utils::io
