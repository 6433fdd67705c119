// hexDigitValue: the value of one hexadecimal digit ("0" to "9", "a" to "f",
// "A" to "F"), the one reading of hexadecimal text for UUIDs and for the
// JSON decoder's \u escapes.
//
// Thread safety: a pure function over a constant table.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace korvane::utils::string {

namespace detail {

// Value of each byte as a hexadecimal digit, -1 for any other byte.
inline constexpr std::array<std::int8_t, 256> hexDigitValues = [] {
  std::array<std::int8_t, 256> values{};
  values.fill(-1);
  for (int i = 0; i < 10; ++i)
    values[static_cast<std::size_t>('0' + i)] = static_cast<std::int8_t>(i);
  for (int i = 0; i < 6; ++i) {
    values[static_cast<std::size_t>('a' + i)] = static_cast<std::int8_t>(10 + i);
    values[static_cast<std::size_t>('A' + i)] = static_cast<std::int8_t>(10 + i);
  }
  return values;
}();

}  // namespace detail

// 0 to 15 for a hexadecimal digit, -1 for any other byte.
constexpr int hexDigitValue(unsigned char byte) noexcept { return detail::hexDigitValues[byte]; }

}  // namespace korvane::utils::string
