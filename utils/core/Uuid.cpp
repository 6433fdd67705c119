#include "utils/core/Uuid.h"

#include <array>
#include <cstdint>

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {

namespace {

constexpr char hexDigits[] = "0123456789abcdef";

// Offsets of the four hyphens in the text form.
constexpr bool isHyphenPosition(std::size_t i) noexcept {
  return i == 8 || i == 13 || i == 18 || i == 23;
}

// Value of each byte as a hexadecimal digit, -1 for any other byte.
constexpr std::array<std::int8_t, 256> hexValues = [] {
  std::array<std::int8_t, 256> values{};
  values.fill(-1);
  for (int i = 0; i < 10; ++i) values[static_cast<std::size_t>('0' + i)] = static_cast<std::int8_t>(i);
  for (int i = 0; i < 6; ++i) {
    values[static_cast<std::size_t>('a' + i)] = static_cast<std::int8_t>(10 + i);
    values[static_cast<std::size_t>('A' + i)] = static_cast<std::int8_t>(10 + i);
  }
  return values;
}();

// Where the two digits of each of the 16 bytes stand in the text form.
constexpr std::array<std::size_t, 16> digitPositions = {0,  2,  4,  6,  9,  11, 14, 16,
                                                        19, 21, 24, 26, 28, 30, 32, 34};

int hexValue(char c) noexcept { return hexValues[static_cast<unsigned char>(c)]; }

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
  if (text[8] != '-' || text[13] != '-' || text[18] != '-' || text[23] != '-') return invalid;
  // Every digit is looked up and one test at the end sees any bad one (its
  // value is negative), which keeps the loop free of branches.
  Bytes bytes{};
  int bad = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const int high = hexValue(text[digitPositions[i]]);
    const int low = hexValue(text[digitPositions[i] + 1]);
    bad |= high | low;
    bytes[i] = static_cast<std::uint8_t>(high << 4 | low);
  }
  if (bad < 0) return invalid;
  return Uuid(bytes);
}

}  // namespace korvane::utils::core
