// OutputStream: a buffered sink of characters. Derived classes supply
// writeSome(), which writes everything it is given or throws, and may
// finish that in the background if they supply settleSink() too. They may
// also lend the stream memory of their own to fill instead of its buffer
// (fillInPlace), so that what it hands them is already where it must go.
//
// The first failure is kept: later writes are dropped and flush() throws it
// again, so an error met in a destructor (writeNoThrow) is not lost as long
// as the owner flushes or closes the stream explicitly.
//
// Thread safety: one object must not be used from two threads at once.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <cstring>
#include <exception>
#include <memory>
#include <span>
#include <string_view>

#include "utils/core/SecureZero.h"

namespace korvane::utils::io {

template <typename CharT>
class OutputStream {
  static_assert(sizeof(CharT) == 1, "streams carry bytes");

 public:
  static constexpr std::size_t defaultBufferSize = 64 * 1024;

  OutputStream(const OutputStream&) = delete;
  OutputStream& operator=(const OutputStream&) = delete;

  // Derived classes flush in their own destructor; this one only wipes
  // the part of its own buffer that was ever used.
  virtual ~OutputStream() {
    noteOwnUse();
    core::secureZero(own_.get(), filled_ * sizeof(CharT));
  }

  void write(std::basic_string_view<CharT> text) {
    if (text.size() <= capacity_ - used_) {
      std::memcpy(buffer_ + used_, text.data(), text.size() * sizeof(CharT));
      used_ += text.size();
      return;
    }
    writeSlow(text);
  }

  void put(CharT c) {
    if (used_ == capacity_) flushBuffer();
    buffer_[used_++] = c;
  }

  // As write(), but a failure is kept for the next flush() instead of thrown.
  void writeNoThrow(std::basic_string_view<CharT> text) noexcept {
    try {
      write(text);
    } catch (...) {
      if (!error_) error_ = std::current_exception();
    }
  }

  // Hands everything buffered to the sink and waits until it was written;
  // throws the first failure met.
  void flush() {
    flushBuffer();
    settle();
  }

  // Waits until the sink has written everything handed to it so far, not
  // what is still buffered; throws the first failure met.
  void settle() {
    if (!error_) {
      try {
        settleSink();
      } catch (...) {
        error_ = std::current_exception();
      }
    }
    if (error_) std::rethrow_exception(error_);
  }

 protected:
  // The buffer is not zeroed: a small output touches only the pages it uses.
  explicit OutputStream(std::size_t bufferSize = defaultBufferSize)
      : own_(std::make_unique_for_overwrite<CharT[]>(bufferSize)),
        ownCapacity_(bufferSize),
        buffer_(own_.get()),
        capacity_(bufferSize) {}

  virtual void writeSome(std::span<const CharT> text) = 0;

  // Waits for what writeSome() left to be written in the background and
  // throws its failure; by default nothing is.
  virtual void settleSink() {}

  bool failed() const noexcept { return static_cast<bool>(error_); }

  // From now on the stream buffers into `space` (at most as much of it as
  // its own buffer holds), memory the derived class owns and keeps valid
  // until fillOwnBuffer(): what the stream buffered then reaches
  // writeSome() as a span that starts at space.data(), already in place
  // (a text too large to buffer still comes from the writer's memory).
  // A writeSome() that throws must leave the stream on its own buffer (or
  // the space valid): the stream goes on buffering after a failure.
  // REQUIRES: nothing is buffered, as within writeSome(); `space` is not
  // empty.
  void fillInPlace(std::span<CharT> space) noexcept {
    assert(used_ == 0 && !space.empty());
    noteOwnUse();
    buffer_ = space.data();
    capacity_ = std::min(space.size(), ownCapacity_);
  }

  // Back to the stream's own buffer, with whatever is buffered in the
  // space lent to it moved there.
  void fillOwnBuffer() noexcept {
    if (buffer_ == own_.get()) return;
    if (used_ != 0) std::memcpy(own_.get(), buffer_, used_ * sizeof(CharT));
    buffer_ = own_.get();
    capacity_ = ownCapacity_;
    noteOwnUse();
  }

 private:
  // Out of line, so that write() stays small enough to inline at each call.
  [[gnu::noinline]] void writeSlow(std::basic_string_view<CharT> text) {
    flushBuffer();
    if (text.size() >= capacity_) {
      sink(text);
      return;
    }
    std::memcpy(buffer_, text.data(), text.size() * sizeof(CharT));
    used_ = text.size();
  }

  [[gnu::noinline]] void flushBuffer() {
    noteOwnUse();
    const std::size_t count = used_;
    used_ = 0;
    if (count != 0) sink({buffer_, count});
  }

  // The own buffer's fill only falls when it is handed on or left, so its
  // peak is taken there (and at the end) rather than at every write.
  void noteOwnUse() noexcept {
    if (buffer_ == own_.get()) filled_ = std::max(filled_, used_);
  }

  void sink(std::span<const CharT> text) {
    if (error_) std::rethrow_exception(error_);
    try {
      writeSome(text);
    } catch (...) {
      error_ = std::current_exception();
      throw;
    }
  }

  std::unique_ptr<CharT[]> own_;
  std::size_t ownCapacity_;
  CharT* buffer_;  // own_ or the space lent by fillInPlace
  std::size_t capacity_;
  std::size_t used_ = 0;
  std::size_t filled_ = 0;  // the most of own_ ever in use
  std::exception_ptr error_;
};

}  // namespace korvane::utils::io
