// BasicStaticString: a string of at most N characters held inline, without
// any heap storage. The characters are always followed by a NUL, so data()
// can be handed to C interfaces that write or read NUL-terminated text.
//
// Thread safety: a value type; distinct objects may be used concurrently,
// one object needs external synchronisation.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace korvane::utils::string {

namespace detail {
[[noreturn]] void throwStaticStringLengthError(std::size_t size, std::size_t capacity);
}  // namespace detail

template <typename CharT, std::size_t N>
class BasicStaticString {
 public:
  using value_type = CharT;
  using size_type = std::size_t;
  using view_type = std::basic_string_view<CharT>;

  constexpr BasicStaticString() noexcept = default;

  // REQUIRES: text.size() <= N, otherwise std::length_error.
  explicit BasicStaticString(view_type text) { assign(text); }

  static constexpr size_type capacity() noexcept { return N; }

  size_type size() const noexcept { return static_cast<size_type>(length_); }
  size_type length() const noexcept { return size(); }
  bool empty() const noexcept { return length_ == 0; }

  CharT* data() noexcept { return chars_.data(); }
  const CharT* data() const noexcept { return chars_.data(); }
  const CharT* c_str() const noexcept { return chars_.data(); }

  CharT& operator[](size_type index) noexcept { return chars_[index]; }
  const CharT& operator[](size_type index) const noexcept { return chars_[index]; }

  const CharT* begin() const noexcept { return chars_.data(); }
  const CharT* end() const noexcept { return chars_.data() + size(); }

  // Sets the length, keeping the characters already in the array, and
  // writes a NUL behind the last one.
  // REQUIRES: size <= N, otherwise std::length_error.
  void setLength(size_type size) {
    if (size > N) detail::throwStaticStringLengthError(size, N);
    length_ = size;
    chars_[size] = CharT();
  }

  // REQUIRES: text.size() <= N, otherwise std::length_error.
  void assign(view_type text) {
    if (text.size() > N) detail::throwStaticStringLengthError(text.size(), N);
    text.copy(chars_.data(), text.size());
    setLength(text.size());
  }

  void clear() noexcept { setLengthUnchecked(0); }

  view_type view() const noexcept { return view_type(chars_.data(), size()); }
  operator view_type() const noexcept { return view(); }  // NOLINT: implicit on purpose
  std::basic_string<CharT> str() const { return std::basic_string<CharT>(view()); }

  friend bool operator==(const BasicStaticString& a, const BasicStaticString& b) noexcept {
    return a.view() == b.view();
  }
  friend bool operator==(const BasicStaticString& a, view_type b) noexcept { return a.view() == b; }

 private:
  void setLengthUnchecked(size_type size) noexcept {
    length_ = size;
    chars_[size] = CharT();
  }

  std::array<CharT, N + 1> chars_{};
  std::uint64_t length_ = 0;
};

template <std::size_t N>
using StaticString = BasicStaticString<char, N>;

}  // namespace korvane::utils::string
