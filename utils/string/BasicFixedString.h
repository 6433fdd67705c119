// BasicFixedString: exactly N characters held inline, followed by a NUL.
// Used for texts whose length never varies, such as the 36 characters of a
// UUID's text form.
//
// Thread safety: a value type.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace korvane::utils::string {

template <typename CharT, std::size_t N>
class BasicFixedString {
 public:
  using view_type = std::basic_string_view<CharT>;

  // All N characters are CharT() until written through data().
  constexpr BasicFixedString() noexcept = default;

  static constexpr std::size_t size() noexcept { return N; }
  static constexpr std::size_t length() noexcept { return N; }

  CharT* data() noexcept { return chars_.data(); }
  const CharT* data() const noexcept { return chars_.data(); }
  const CharT* c_str() const noexcept { return chars_.data(); }
  const CharT* begin() const noexcept { return chars_.data(); }
  const CharT* end() const noexcept { return chars_.data() + N; }

  view_type view() const noexcept { return view_type(chars_.data(), N); }
  operator view_type() const noexcept { return view(); }  // NOLINT: implicit on purpose
  std::basic_string<CharT> str() const { return std::basic_string<CharT>(view()); }

  friend bool operator==(const BasicFixedString& a, const BasicFixedString& b) noexcept {
    return a.view() == b.view();
  }
  friend bool operator==(const BasicFixedString& a, view_type b) noexcept { return a.view() == b; }

 private:
  std::array<CharT, N + 1> chars_{};  // the last one stays NUL
};

}  // namespace korvane::utils::string
