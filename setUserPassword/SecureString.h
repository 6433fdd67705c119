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
#include <string>
#include <string_view>

#include "setUserPassword/ZeroingAllocator.h"

namespace korvane::setUserPassword {

class SecureString {
 public:
  using String = std::basic_string<char, std::char_traits<char>, ZeroingAllocator<char>>;

  SecureString() = default;
  explicit SecureString(std::string_view text) : text_(text) {}
  SecureString(const SecureString& other) : text_(other.text_) {}
  SecureString(SecureString&& other) noexcept;
  SecureString& operator=(const SecureString& other);
  SecureString& operator=(SecureString&& other) noexcept;
  ~SecureString() { wipe(); }

  // Zeroes and releases everything the string holds; it is empty afterwards.
  void wipe() noexcept;

  void reserve(std::size_t capacity) { text_.reserve(capacity); }
  void push_back(char c) { text_.push_back(c); }
  void append(std::string_view text) { text_.append(text); }

  std::size_t size() const noexcept { return text_.size(); }
  bool empty() const noexcept { return text_.empty(); }
  const char* c_str() const noexcept { return text_.c_str(); }
  std::string_view view() const noexcept { return {text_.data(), text_.size()}; }

  // Same length and same bytes.
  friend bool operator==(const SecureString& a, const SecureString& b) noexcept {
    return a.view() == b.view();
  }

  // The string object itself, for tests that look at its storage.
  const String& storage() const noexcept { return text_; }

 private:
  String text_;
};

}  // namespace korvane::setUserPassword
