#include "utils/string/Utf8.h"

#include <array>

namespace korvane::utils::string {

namespace {

// The smallest code point that needs a sequence of each length; anything
// below it is an overlong form.
constexpr std::array<char32_t, 5> minimumForLength = {0, 0, 0x80, 0x800, 0x10000};

char toChar(char32_t value) noexcept {
  return static_cast<char>(static_cast<unsigned char>(value));
}

}  // namespace

Utf8Sequence decodeUtf8(std::string_view text, Utf8Malformed malformed) noexcept {
  const auto lead = static_cast<unsigned char>(text[0]);
  const std::size_t length = utf8SequenceLength(lead);
  if (length == 1) return {lead, 1, true};
  const bool anyway = malformed == Utf8Malformed::decodeAnyway;
  if (length == 0) return {anyway ? char32_t{lead} : 0, 1, false};
  if (text.size() < length) return {0, text.size(), false};

  char32_t codePoint = lead & (0x7Fu >> length);
  bool continuationsValid = true;
  for (std::size_t i = 1; i < length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    continuationsValid = continuationsValid && isUtf8Continuation(byte);
    codePoint = (codePoint << 6) | (byte & 0x3Fu);
  }
  const bool wellFormed = continuationsValid && codePoint >= minimumForLength[length] &&
                          codePoint <= maxCodePoint && !isSurrogate(codePoint);
  if (!wellFormed && !anyway) return {0, length, false};
  return {codePoint, length, wellFormed};
}

std::size_t encodeUtf8(char32_t codePoint, std::span<char, 4> out) noexcept {
  if (isSurrogate(codePoint) || codePoint > maxCodePoint) codePoint = replacementCharacter;
  if (codePoint < 0x80) {
    out[0] = toChar(codePoint);
    return 1;
  }
  if (codePoint < 0x800) {
    out[0] = toChar(0xC0 | (codePoint >> 6));
    out[1] = toChar(0x80 | (codePoint & 0x3F));
    return 2;
  }
  if (codePoint < 0x10000) {
    out[0] = toChar(0xE0 | (codePoint >> 12));
    out[1] = toChar(0x80 | ((codePoint >> 6) & 0x3F));
    out[2] = toChar(0x80 | (codePoint & 0x3F));
    return 3;
  }
  out[0] = toChar(0xF0 | (codePoint >> 18));
  out[1] = toChar(0x80 | ((codePoint >> 12) & 0x3F));
  out[2] = toChar(0x80 | ((codePoint >> 6) & 0x3F));
  out[3] = toChar(0x80 | (codePoint & 0x3F));
  return 4;
}

std::size_t encodeUtf16(char32_t codePoint, std::span<char16_t, 2> out) noexcept {
  if (codePoint < 0x10000) {
    out[0] = static_cast<char16_t>(codePoint);
    return 1;
  }
  const char32_t offset = codePoint - 0x10000;
  out[0] = static_cast<char16_t>(0xD800 + (offset >> 10));
  out[1] = static_cast<char16_t>(0xDC00 + (offset & 0x3FF));
  return 2;
}

std::optional<std::u16string> utf8ToUtf16(std::string_view text) {
  std::u16string converted;
  converted.reserve(text.size());
  std::array<char16_t, 2> units{};
  while (!text.empty()) {
    const Utf8Sequence sequence = decodeUtf8(text, Utf8Malformed::reject);
    if (!sequence.wellFormed) return std::nullopt;
    converted.append(units.data(), encodeUtf16(sequence.codePoint, units));
    text.remove_prefix(sequence.length);
  }
  return converted;
}

std::optional<std::string> utf16ToUtf8(std::u16string_view text) {
  std::string converted;
  converted.reserve(text.size());
  std::array<char, 4> bytes{};
  for (std::size_t i = 0; i < text.size(); ++i) {
    char32_t codePoint = text[i];
    if (isHighSurrogate(codePoint) && i + 1 < text.size() && isLowSurrogate(text[i + 1])) {
      codePoint = combineSurrogates(codePoint, text[++i]);
    } else if (isSurrogate(codePoint)) {
      return std::nullopt;
    }
    converted.append(bytes.data(), encodeUtf8(codePoint, bytes));
  }
  return converted;
}

}  // namespace korvane::utils::string
