#include "utils/core/Uuid.h"

#include <array>
#include <cstdint>
#include <cstring>

#include "utils/core/Processor.h"
#include "utils/string/HexDigit.h"

#if KORVANE_X86_64
#include <emmintrin.h>
#define KORVANE_UUID_SSE2 1
#else
#define KORVANE_UUID_SSE2 0
#endif

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {

namespace {

constexpr char hexDigits[] = "0123456789abcdef";

// Offsets of the four hyphens in the text form.
constexpr bool isHyphenPosition(std::size_t i) noexcept {
  return i == 8 || i == 13 || i == 18 || i == 23;
}

#if !KORVANE_UUID_SSE2

// Where the two digits of each of the 16 bytes stand in the text form.
constexpr std::array<std::size_t, 16> digitPositions = {0,  2,  4,  6,  9,  11, 14, 16,
                                                        19, 21, 24, 26, 28, 30, 32, 34};

// The 32 digits of a text with its hyphens in place, a byte at a time.
bool readDigits(const char* text, Uuid::Bytes& bytes) noexcept {
  // Every digit is looked up and one test at the end sees any bad one (its
  // value is negative), which keeps the loop free of branches.
  int bad = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high =
        utils::string::hexDigitValue(static_cast<unsigned char>(text[digitPositions[i]]));
    const int low =
        utils::string::hexDigitValue(static_cast<unsigned char>(text[digitPositions[i] + 1]));
    bad |= high | low;
    bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return bad >= 0;
}

#else

template <typename Word>
Word load(const char* p) noexcept {
  Word word;
  std::memcpy(&word, p, sizeof word);
  return word;
}

// The values of 16 hexadecimal digits, one a byte; *valid gets a bit for
// each byte that is a digit.
__m128i hexValues16(__m128i text, unsigned* valid) noexcept {
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

// The 32 digits of a text with its hyphens in place, 16 at a time (every
// x86-64 processor has SSE2): the user search reads one UUID for every
// user in the file.
bool readDigits(const char* text, Uuid::Bytes& bytes) noexcept {
  // The 32 digits without the hyphens: 8, 4, 4, 4 and 12 of them.
  const auto head = static_cast<long long>(load<std::uint64_t>(text));
  const auto second = static_cast<long long>(load<std::uint32_t>(text + 9) |
                                             std::uint64_t{load<std::uint32_t>(text + 14)} << 32);
  const auto third = static_cast<long long>(load<std::uint32_t>(text + 19) |
                                            std::uint64_t{load<std::uint32_t>(text + 24)} << 32);
  const auto tail = static_cast<long long>(load<std::uint64_t>(text + 28));
  unsigned validLow = 0;
  unsigned validHigh = 0;
  const __m128i low = hexValues16(_mm_set_epi64x(second, head), &validLow);
  const __m128i high = hexValues16(_mm_set_epi64x(tail, third), &validHigh);
  if ((validLow & validHigh) != 0xFFFF) return false;
  _mm_storeu_si128(reinterpret_cast<__m128i*>(bytes.data()),
                   _mm_packus_epi16(pairs(low), pairs(high)));
  return true;
}

#endif

}  // namespace

Uuid Uuid::create() {
  Bytes bytes;
  fillSystemRandom(std::as_writable_bytes(std::span(bytes)));
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  return Uuid(bytes);
}

string::BasicFixedString<char, Uuid::textLength> Uuid::toString() const {
  string::BasicFixedString<char, textLength> text;
  toStringInternal<char>(text.data());
  return text;
}

template <>
void Uuid::toStringInternal<char>(char* out) const {
  std::size_t byte = 0;
  for (std::size_t i = 0; i < textLength; ++i) {
    if (isHyphenPosition(i)) {
      out[i] = '-';
      continue;
    }
    out[i] = hexDigits[bytes_[byte] >> 4];
    out[++i] = hexDigits[bytes_[byte] & 0x0F];
    ++byte;
  }
}

template <>
Expected<Uuid, std::error_code> Uuid::fromStringInternal<char>(const char* text,
                                                               std::size_t length) {
  const auto invalid = makeUnexpected(std::make_error_code(std::errc::invalid_argument));
  if (length != textLength) return invalid;
  if (text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-') return invalid;
  Bytes bytes;
  if (!readDigits(text, bytes)) return invalid;
  return Uuid(bytes);
}

}  // namespace korvane::utils::core
