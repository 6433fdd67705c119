// Utf8: the project's one UTF-8 and UTF-16 codec. It decodes one UTF-8
// sequence, encodes one code point as UTF-8 or UTF-16, splits and joins
// UTF-16 surrogate pairs, and converts whole texts between UTF-8 and UTF-16
// without loss (the Windows command line, paths and console text).
//
// Well-formed UTF-8 is RFC 3629's: a lead byte whose high bits give the
// length (1 to 4 bytes), continuation bytes 10xxxxxx, no overlong form, no
// surrogate code point (U+D800 to U+DFFF), nothing above U+10FFFF. The
// callers differ only in what they make of malformed input, so that is a
// named option of decodeUtf8 (Utf8Malformed):
// - reject: a malformed sequence yields no code point. Its length is the
//   length its lead byte announces (1 for a byte that cannot begin a
//   sequence, the bytes left when the text ends first), so that a caller can
//   drop the sequence whole (the JSON decoder, the console emulation, the
//   terminal key decoder).
// - decodeAnyway: every byte sequence has a code point, so that broken text
//   can still be measured and stepped through (the line editor's column
//   widths): the continuation bytes' low six bits are taken as they are, a
//   byte that cannot begin a sequence stands for itself, and a sequence cut
//   short by the end of the text is U+0000 over the bytes left.
// Neither option reads outside the text it is given.
//
// Thread safety: pure functions, safe from any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace korvane::utils::string {

// What decodeUtf8 makes of malformed input; see the paragraph above.
enum class Utf8Malformed : std::uint8_t { reject, decodeAnyway };

// One decoded sequence.
struct Utf8Sequence {
  char32_t codePoint = 0;  // 0 for a malformed sequence under reject
  std::size_t length = 0;  // bytes taken, at least 1
  bool wellFormed = false;
};

// The largest code point and the one that stands for an unusable one.
inline constexpr char32_t maxCodePoint = 0x10FFFF;
inline constexpr char32_t replacementCharacter = 0xFFFD;

// The length that `lead` announces by its high bits: 1 for 0x00-0x7F, 2 for
// 0xC0-0xDF, 3 for 0xE0-0xEF, 4 for 0xF0-0xF7; 0 for a byte that cannot
// begin a sequence (a continuation byte 0x80-0xBF, or 0xF8-0xFF).
constexpr std::size_t utf8SequenceLength(unsigned char lead) noexcept {
  if (lead < 0x80) return 1;
  if ((lead & 0xE0) == 0xC0) return 2;
  if ((lead & 0xF0) == 0xE0) return 3;
  if ((lead & 0xF8) == 0xF0) return 4;
  return 0;
}

// Whether `lead` begins some well-formed sequence: 0x00-0x7F or 0xC2-0xF4
// (0xC0 and 0xC1 only begin overlong forms, 0xF5-0xF7 only code points
// above U+10FFFF).
constexpr bool isUtf8Lead(unsigned char lead) noexcept {
  return lead < 0x80 || (lead >= 0xC2 && lead <= 0xF4);
}

constexpr bool isUtf8Continuation(unsigned char byte) noexcept { return (byte & 0xC0) == 0x80; }

constexpr bool isSurrogate(char32_t value) noexcept { return value >= 0xD800 && value <= 0xDFFF; }
constexpr bool isHighSurrogate(char32_t value) noexcept {
  return value >= 0xD800 && value <= 0xDBFF;
}
constexpr bool isLowSurrogate(char32_t value) noexcept {
  return value >= 0xDC00 && value <= 0xDFFF;
}

// The code point of a surrogate pair, from the low ten bits of each half.
// REQUIRES: isHighSurrogate(high) and isLowSurrogate(low) for a meaningful
// result (other values are combined by the same formula).
constexpr char32_t combineSurrogates(char32_t high, char32_t low) noexcept {
  return (((high & 0x3FFu) << 10) | (low & 0x3FFu)) + 0x10000u;
}

// The length of the well-formed multibyte sequence that `text` starts
// with, whole; 0 when it starts with anything else (an ASCII byte, a
// malformed or cut-off sequence). Only checks, so that a reader that
// passes over text need not decode it.
constexpr std::size_t wellFormedMultibyteLength(std::string_view text) noexcept {
  if (text.size() < 2) return 0;
  const auto lead = static_cast<unsigned char>(text[0]);
  // The second byte's range excludes overlong forms (after 0xE0 and
  // 0xF0), surrogates (after 0xED) and code points above U+10FFFF (after
  // 0xF4).
  unsigned char low = 0x80;
  unsigned char high = 0xBF;
  std::size_t length = 0;
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  if (text.size() < length) return 0;
  const auto second = static_cast<unsigned char>(text[1]);
  if (second < low || second > high) return 0;
  for (std::size_t i = 2; i < length; ++i) {
    if (!isUtf8Continuation(static_cast<unsigned char>(text[i]))) return 0;
  }
  return length;
}

// Decodes the sequence at the start of `text` as `malformed` says.
// REQUIRES: !text.empty()
Utf8Sequence decodeUtf8(std::string_view text, Utf8Malformed malformed) noexcept;

// Writes codePoint as UTF-8 into `out` and returns the byte count (1 to 4).
// A surrogate or a value above U+10FFFF is written as U+FFFD.
std::size_t encodeUtf8(char32_t codePoint, std::span<char, 4> out) noexcept;

// Writes codePoint as UTF-16 into `out` and returns the unit count: 1, or 2
// (a surrogate pair) above U+FFFF.
// REQUIRES: codePoint <= maxCodePoint
std::size_t encodeUtf16(char32_t codePoint, std::span<char16_t, 2> out) noexcept;

// The UTF-16 form of `text`; nullopt when `text` is not well-formed UTF-8,
// so that nothing is ever converted with a character lost or replaced.
std::optional<std::u16string> utf8ToUtf16(std::string_view text);

// The UTF-8 form of `text`; nullopt when `text` holds a surrogate that is
// not part of a pair (it has no UTF-8 form).
std::optional<std::string> utf16ToUtf8(std::u16string_view text);

}  // namespace korvane::utils::string
