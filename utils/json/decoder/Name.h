// Name: the name of an object member, decoded to UTF-8 and held whole
// (at most detail::Parser::maxNameLength bytes). Most names are short and
// are held in the Name itself; a longer one, or one with an escape
// sequence, in a string it owns.
//
// Thread safety: as the Object that owns it.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

namespace korvane::utils::json::decoder {

namespace detail {
class Parser;
}  // namespace detail

class Name {
 public:
  Name() = default;
  Name(const Name&) = delete;
  Name& operator=(const Name&) = delete;

  std::string_view view() const noexcept { return {data_, size_}; }

  // Whether the name held an escape sequence. Without one its text is the
  // input's own bytes, which a JSON writer copies as they are.
  bool escaped() const noexcept { return escaped_; }

  // The name as a string; the Name is empty afterwards.
  operator std::string() && {  // NOLINT: conversion by design
    std::string text = data_ == long_.data() ? std::move(long_) : std::string(view());
    set(inline_.data(), 0, false);
    return text;
  }

  // Sized by `text`, which is usually a literal: the compiler can then
  // compare in place instead of calling memcmp.
  friend bool operator==(const Name& name, std::string_view text) noexcept {
    return name.size_ == text.size() &&
           std::char_traits<char>::compare(name.data_, text.data(), text.size()) == 0;
  }

 private:
  friend class detail::Parser;

  // Names of fewer than this many bytes may be held inline (a multiple of
  // 16, the width of the scan that measures them).
  static constexpr std::size_t inlineCapacity = 48;

  void set(const char* data, std::size_t size, bool escaped) noexcept {
    data_ = data;
    size_ = size;
    escaped_ = escaped;
  }

  std::array<char, inlineCapacity> inline_{};
  std::string long_;
  const char* data_ = inline_.data();
  std::size_t size_ = 0;
  bool escaped_ = false;
};

}  // namespace korvane::utils::json::decoder
