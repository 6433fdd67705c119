#include "utils/core/Uuid.h"

#include <bit>

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {

namespace {

constexpr char hexDigits[] = "0123456789abcdef";

// Offsets of the four hyphens in the text form.
constexpr bool isHyphenPosition(std::size_t i) noexcept {
  return i == 8 || i == 13 || i == 18 || i == 23;
}

constexpr int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::uint64_t mix64(std::uint64_t x) noexcept {
  // splitmix64 finaliser: every input bit affects every output bit.
  x ^= x >> 30;
  x *= 0xbf58476d1ce4e5b9ULL;
  x ^= x >> 27;
  x *= 0x94d049bb133111ebULL;
  x ^= x >> 31;
  return x;
}

std::uint64_t processHashSeed() {
  static const std::uint64_t seed = [] {
    std::uint64_t value = 0;
    fillSystemRandom(std::as_writable_bytes(std::span(&value, 1)));
    return value;
  }();
  return seed;
}

std::uint64_t loadHalf(const Uuid::Bytes& bytes, std::size_t offset) noexcept {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < 8; ++i) value = (value << 8) | bytes[offset + i];
  return value;
}

}  // namespace

Uuid Uuid::create() {
  Bytes bytes;
  fillSystemRandom(std::as_writable_bytes(std::span(bytes)));
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);  // RFC 4122 variant
  return Uuid(bytes);
}

std::size_t Uuid::hash() const noexcept {
  static const std::uint64_t seed = [] {
    try {
      return processHashSeed();
    } catch (...) {
      return std::uint64_t{0x9e3779b97f4a7c15ULL};
    }
  }();
  const std::uint64_t h = mix64(loadHalf(bytes_, 0) ^ mix64(loadHalf(bytes_, 8) ^ seed));
  return static_cast<std::size_t>(h);
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
  Bytes bytes{};
  std::size_t byte = 0;
  for (std::size_t i = 0; i < textLength; ++i) {
    if (isHyphenPosition(i)) {
      if (text[i] != '-') return invalid;
      continue;
    }
    const int high = hexValue(text[i]);
    const int low = hexValue(text[++i]);
    if (high < 0 || low < 0) return invalid;
    bytes[byte++] = static_cast<std::uint8_t>(high << 4 | low);
  }
  return Uuid(bytes);
}

}  // namespace korvane::utils::core
