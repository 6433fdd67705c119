// Name: the name of an object member, decoded to UTF-8 and held whole
// (at most detail::Parser::maxNameLength bytes).
//
// Thread safety: as the Object that owns it.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace korvane::utils::json::decoder {

class Name {
 public:
  Name() = default;
  Name(const Name&) = delete;
  Name& operator=(const Name&) = delete;

  std::string_view view() const noexcept { return text_; }

  // Whether the name held an escape sequence. Without one its text is the
  // input's own bytes, which a JSON writer copies as they are.
  bool escaped() const noexcept { return escaped_; }

  // Moves the name out; the Name is empty afterwards.
  operator std::string() && noexcept { return std::move(text_); }  // NOLINT: conversion by design

  // Sized by `text`, which is usually a literal: the compiler can then
  // compare in place instead of calling memcmp.
  friend bool operator==(const Name& name, std::string_view text) noexcept {
    return name.text_.size() == text.size() &&
           std::char_traits<char>::compare(name.text_.data(), text.data(), text.size()) == 0;
  }

 private:
  friend class Object;
  std::string text_;
  bool escaped_ = false;
};

}  // namespace korvane::utils::json::decoder
