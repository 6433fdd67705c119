// SecureString: the byte string that holds every copy of a password the
// tool makes. It behaves as a growable string whose storage is zeroed
// before it is released: heap blocks through ZeroingAllocator (every byte,
// capacity + 1, on growth, clearing and destruction), and the in-object
// bytes (short-string buffer, length, capacity) by wipe(), one byte at a
// time through a volatile pointer. Destruction and moving from a string
// wipe it; a wiped string is empty.
//
// Thread safety: a value type.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "utils/core/SecureZero.h"
#include "utils/core/ZeroingAllocator.h"

namespace korvane::utils::core {

template <typename Allocator>
class BasicSecureString {
 public:
  using String = std::basic_string<char, std::char_traits<char>, Allocator>;

  BasicSecureString() = default;
  explicit BasicSecureString(std::string_view text) : text_(text) {}
  BasicSecureString(const BasicSecureString& other) : text_(other.text_) {}
  BasicSecureString(BasicSecureString&& other) noexcept : text_(std::move(other.text_)) {
    // A short string is copied, not stolen: its bytes stay in the source.
    other.wipe();
  }
  BasicSecureString& operator=(const BasicSecureString& other) {
    if (this != &other) {
      wipe();
      text_ = other.text_;
    }
    return *this;
  }
  BasicSecureString& operator=(BasicSecureString&& other) noexcept {
    if (this != &other) {
      wipe();
      text_ = std::move(other.text_);
      other.wipe();
    }
    return *this;
  }
  ~BasicSecureString() { wipe(); }

  // Zeroes and releases everything the string holds; it is empty afterwards.
  void wipe() noexcept {
    // The characters first, wherever they are; then the heap block goes
    // back through the zeroing allocator; then the object's own bytes are
    // zeroed and an empty string is made in their place.
    secureZero(text_.data(), text_.capacity());
    std::destroy_at(&text_);
    secureZero(&text_, sizeof text_);
    std::construct_at(&text_);
  }

  void reserve(std::size_t capacity) { text_.reserve(capacity); }
  void push_back(char c) { text_.push_back(c); }
  void append(std::string_view text) { text_.append(text); }

  std::size_t size() const noexcept { return text_.size(); }
  bool empty() const noexcept { return text_.empty(); }
  const char* c_str() const noexcept { return text_.c_str(); }
  std::string_view view() const noexcept { return {text_.data(), text_.size()}; }

  // Same length and same bytes.
  friend bool operator==(const BasicSecureString& a, const BasicSecureString& b) noexcept {
    return a.view() == b.view();
  }

  // The string object itself, for tests that look at its storage.
  const String& storage() const noexcept { return text_; }

 private:
  String text_;
};

using SecureString = BasicSecureString<ZeroingAllocator<char>>;

}  // namespace korvane::utils::core
