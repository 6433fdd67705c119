// Uuid: a 128-bit universally unique identifier, the identity of a user.
//
// The default value is the null UUID (all zero bits). The text form is the
// 36 characters 8-4-4-4-12 of lower-case hexadecimal digits; the parser
// accepts exactly that form in either letter case and nothing else.
//
// Thread safety: a value type; create() may be called from any thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <system_error>

#include "utils/core/Expected.h"
#include "utils/core/Format.h"
#include "utils/string/BasicFixedString.h"

namespace korvane::utils::core {

class Uuid {
 public:
  static constexpr std::size_t textLength = 36;
  using Bytes = std::array<std::uint8_t, 16>;

  constexpr Uuid() noexcept = default;
  constexpr explicit Uuid(const Bytes& bytes) noexcept : bytes_(bytes) {}

  // A new random (version 4, RFC 4122 variant) UUID from the operating
  // system's random source. Throws std::system_error when the source fails.
  static Uuid create();

  bool isNull() const noexcept { return (half(0) | half(8)) == 0; }
  const Bytes& bytes() const noexcept { return bytes_; }

  // Two word compares rather than a call to memcmp: the user search
  // compares a UUID for every user in the file.
  friend bool operator==(const Uuid& a, const Uuid& b) noexcept {
    return ((a.half(0) ^ b.half(0)) | (a.half(8) ^ b.half(8))) == 0;
  }

  string::BasicFixedString<char, textLength> toString() const;

  // Writes exactly 36 characters, no terminator.
  template <typename CharT>
  void toStringInternal(CharT* out) const;

  // Parses the 36-character text form; std::errc::invalid_argument for any
  // other text.
  template <typename CharT>
  static Expected<Uuid, std::error_code> fromStringInternal(const CharT* text, std::size_t length);

  static Expected<Uuid, std::error_code> fromString(std::string_view text);

 private:
  // Eight bytes from `offset`, in machine order (for comparisons only).
  std::uint64_t half(std::size_t offset) const noexcept {
    std::uint64_t word;
    std::memcpy(&word, bytes_.data() + offset, sizeof word);
    return word;
  }

  Bytes bytes_{};
};

template <>
void Uuid::toStringInternal<char>(char* out) const;
template <>
Expected<Uuid, std::error_code> Uuid::fromStringInternal<char>(const char* text,
                                                               std::size_t length);

inline Expected<Uuid, std::error_code> Uuid::fromString(std::string_view text) {
  return fromStringInternal<char>(text.data(), text.size());
}

}  // namespace korvane::utils::core

// A Uuid formats as its 36 characters. It takes no format specification; an
// unterminated one is refused with the standard library's wording.
template <>
struct korvane::utils::core::fmtlib::formatter<korvane::utils::core::Uuid> {
  // {fmt} hands "{}" an empty range and "{:...}" the text after the colon.
  template <typename ParseContext>
  constexpr auto parse(ParseContext& context) {
    auto it = context.begin();
    if (it == context.end() || *it == '}') return it;
    while (it != context.end() && *it != '}') ++it;
    if (it == context.end()) {
      throw korvane::utils::core::FormatError("Missing '}' in format string.");
    }
    throw korvane::utils::core::FormatError("a Uuid takes no format specification");
  }

  template <typename FormatContext>
  auto format(const korvane::utils::core::Uuid& uuid, FormatContext& context) const {
    char text[korvane::utils::core::Uuid::textLength];
    uuid.toStringInternal<char>(text);
    auto out = context.out();
    for (const char c : text) *out++ = c;
    return out;
  }
};
