// OutputStream: a buffered sink of characters. Derived classes supply
// writeSome(), which writes everything it is given or throws, and may
// finish that in the background if they supply settleSink() too.
//
// The first failure is kept: later writes are dropped and flush() throws it
// again, so an error met in a destructor (writeNoThrow) is not lost as long
// as the owner flushes or closes the stream explicitly.
//
// Thread safety: one object must not be used from two threads at once.
#pragma once

#include <algorithm>
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
  // the part of the buffer that was ever used.
  virtual ~OutputStream() { core::secureZero(buffer_.get(), filled_ * sizeof(CharT)); }

  void write(std::basic_string_view<CharT> text) {
    if (text.size() <= capacity_ - used_) {
      std::memcpy(buffer_.get() + used_, text.data(), text.size() * sizeof(CharT));
      used_ += text.size();
      filled_ = std::max(filled_, used_);
      return;
    }
    writeSlow(text);
  }

  void put(CharT c) {
    if (used_ == capacity_) flushBuffer();
    buffer_[used_++] = c;
    filled_ = std::max(filled_, used_);
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
      : buffer_(std::make_unique_for_overwrite<CharT[]>(bufferSize)), capacity_(bufferSize) {}

  virtual void writeSome(std::span<const CharT> text) = 0;

  // Waits for what writeSome() left to be written in the background and
  // throws its failure; by default nothing is.
  virtual void settleSink() {}

  bool failed() const noexcept { return static_cast<bool>(error_); }

 private:
  void writeSlow(std::basic_string_view<CharT> text) {
    flushBuffer();
    if (text.size() >= capacity_) {
      sink(text);
      return;
    }
    std::memcpy(buffer_.get(), text.data(), text.size() * sizeof(CharT));
    used_ = text.size();
    filled_ = std::max(filled_, used_);
  }

  void flushBuffer() {
    const std::size_t count = used_;
    used_ = 0;
    if (count != 0) sink({buffer_.get(), count});
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

  std::unique_ptr<CharT[]> buffer_;
  std::size_t capacity_;
  std::size_t used_ = 0;
  std::size_t filled_ = 0;  // the most of the buffer ever in use
  std::exception_ptr error_;
};

}  // namespace korvane::utils::io
