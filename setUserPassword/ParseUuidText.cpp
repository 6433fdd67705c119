#include "setUserPassword/ParseUuidText.h"

#include <cstdint>
#include <cstring>

#if defined(__x86_64__) || defined(_M_X64)
#include <emmintrin.h>
#define KORVANE_UUID_SSE2 1
#else
#define KORVANE_UUID_SSE2 0
#endif

namespace korvane::setUserPassword {

namespace {

using utils::core::Uuid;

#if KORVANE_UUID_SSE2

template <typename Word>
Word load(const char* p) noexcept {
  Word word;
  std::memcpy(&word, p, sizeof word);
  return word;
}

// The values of 16 hexadecimal digits, one a byte; *valid gets a bit for
// each byte that is a digit.
__m128i hexValues(__m128i text, unsigned* valid) noexcept {
  const __m128i digit = _mm_sub_epi8(text, _mm_set1_epi8('0'));
  const __m128i isDigit = _mm_cmpeq_epi8(_mm_min_epu8(digit, _mm_set1_epi8(9)), digit);
  const __m128i letter = _mm_sub_epi8(_mm_or_si128(text, _mm_set1_epi8(0x20)), _mm_set1_epi8('a'));
  const __m128i isLetter = _mm_cmpeq_epi8(_mm_min_epu8(letter, _mm_set1_epi8(5)), letter);
  *valid = static_cast<unsigned>(_mm_movemask_epi8(_mm_or_si128(isDigit, isLetter)));
  return _mm_or_si128(_mm_and_si128(digit, isDigit),
                      _mm_and_si128(_mm_add_epi8(letter, _mm_set1_epi8(10)), isLetter));
}

// Each pair of digit values (high, low) as one byte, in 16-bit lanes.
__m128i pairs(__m128i values) noexcept {
  return _mm_or_si128(_mm_slli_epi16(_mm_and_si128(values, _mm_set1_epi16(0x00FF)), 4),
                      _mm_srli_epi16(values, 8));
}

#endif

}  // namespace

std::optional<Uuid> parseUuidText(std::string_view text) noexcept {
#if KORVANE_UUID_SSE2
  if (text.size() != Uuid::textLength) return std::nullopt;
  const char* const t = text.data();
  if (t[8] != '-' || t[13] != '-' || t[18] != '-' || t[23] != '-') return std::nullopt;
  // The 32 digits without the hyphens: 8, 4, 4, 4 and 12 of them.
  const auto head = static_cast<long long>(load<std::uint64_t>(t));
  const auto second = static_cast<long long>(load<std::uint32_t>(t + 9) |
                                             std::uint64_t{load<std::uint32_t>(t + 14)} << 32);
  const auto third = static_cast<long long>(load<std::uint32_t>(t + 19) |
                                            std::uint64_t{load<std::uint32_t>(t + 24)} << 32);
  const auto tail = static_cast<long long>(load<std::uint64_t>(t + 28));
  unsigned validLow = 0;
  unsigned validHigh = 0;
  const __m128i low = hexValues(_mm_set_epi64x(second, head), &validLow);
  const __m128i high = hexValues(_mm_set_epi64x(tail, third), &validHigh);
  if ((validLow & validHigh) != 0xFFFF) return std::nullopt;
  Uuid::Bytes bytes;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes.data()),
                   _mm_packus_epi16(pairs(low), pairs(high)));
  return Uuid(bytes);
#else
  const auto uuid = Uuid::fromString(text);
  if (!uuid) return std::nullopt;
  return *uuid;
#endif
}

}  // namespace korvane::setUserPassword
