#include <gtest/gtest.h>

#include <optional>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "utils/core/Uuid.h"

namespace korvane::utils::core {
namespace {

const std::string sampleText = "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0";

TEST(UuidTest, DefaultIsNull) {
  const Uuid uuid;
  EXPECT_TRUE(uuid.isNull());
  EXPECT_EQ(uuid.toString().view(), "00000000-0000-0000-0000-000000000000");
}

TEST(UuidTest, EveryByteCountsForEqualityAndNullness) {
  for (std::size_t i = 0; i < 16; ++i) {
    Uuid::Bytes bytes{};
    bytes[i] = 1;
    const Uuid one(bytes);
    EXPECT_FALSE(one.isNull()) << i;
    EXPECT_NE(one, Uuid()) << i;
    EXPECT_EQ(one, Uuid(bytes)) << i;
    bytes[i] = 2;
    EXPECT_NE(one, Uuid(bytes)) << i;
  }
}

TEST(UuidTest, TextRoundTrip) {
  const auto parsed = Uuid::fromString(sampleText);
  ASSERT_TRUE(parsed.has_value());
  EXPECT_FALSE(parsed->isNull());
  EXPECT_EQ(parsed->toString().view(), sampleText);
  EXPECT_EQ(parsed->bytes()[0], 0x0f);
  EXPECT_EQ(parsed->bytes()[15], 0xf0);
}

TEST(UuidTest, ParsesEitherLetterCaseAndWritesLowerCase) {
  const auto upper = Uuid::fromString("0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0");
  ASSERT_TRUE(upper.has_value());
  EXPECT_EQ(*upper, *Uuid::fromString(sampleText));
  EXPECT_EQ(upper->toString().view(), sampleText);
}

TEST(UuidTest, RejectsEveryOtherForm) {
  for (const std::string& text : std::vector<std::string>{
           "", "0f1e2d3c4b5a69788796a5b4c3d2e1f0", "{0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0}",
           " 0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0", "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0 ",
           "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f", "0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1fg",
           "0f1e2d3c_4b5a-6978-8796-a5b4c3d2e1f0", "0f1e2d3-c4b5a-6978-8796-a5b4c3d2e1f0",
           "$schema", std::string("0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f\0", 36)}) {
    const auto parsed = Uuid::fromString(text);
    ASSERT_FALSE(parsed.has_value()) << text;
    EXPECT_EQ(parsed.error(), std::errc::invalid_argument);
  }
}

TEST(UuidTest, EveryHyphenPositionIsChecked) {
  for (const std::size_t at : {8u, 13u, 18u, 23u}) {
    std::string text = sampleText;
    text[at] = '0';
    EXPECT_FALSE(Uuid::fromString(text).has_value()) << at;
  }
}

// An independent reading of the text form, a character at a time.
std::optional<Uuid::Bytes> referenceParse(const std::string& text) {
  if (text.size() != 36) return std::nullopt;
  Uuid::Bytes bytes{};
  std::size_t digits = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (i == 8 || i == 13 || i == 18 || i == 23) {
      if (c != '-') return std::nullopt;
      continue;
    }
    int value = -1;
    if (c >= '0' && c <= '9') value = c - '0';
    if (c >= 'a' && c <= 'f') value = c - 'a' + 10;
    if (c >= 'A' && c <= 'F') value = c - 'A' + 10;
    if (value < 0) return std::nullopt;
    bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] << 4 | value);
    ++digits;
  }
  return bytes;
}

void expectLikeReference(const std::string& text) {
  const auto parsed = Uuid::fromString(text);
  const auto reference = referenceParse(text);
  ASSERT_EQ(parsed.has_value(), reference.has_value()) << text;
  if (reference) {
    ASSERT_EQ(*parsed, Uuid(*reference)) << text;
  }
}

// The digits are read many at a time: every byte value at every place,
// every length, and random texts in mixed letter case.
TEST(UuidTest, EveryByteAtEveryPlace) {
  const std::string valid = "0123abcd-ef45-6789-ABCD-0123456789ef";
  for (std::size_t place = 0; place < valid.size(); ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string text = valid;
      text[place] = static_cast<char>(byte);
      expectLikeReference(text);
    }
  }
}

TEST(UuidTest, OnlyTheExactLength) {
  const std::string valid = "0123abcd-ef45-6789-abcd-0123456789ef0123";
  for (std::size_t length = 0; length <= valid.size(); ++length)
    expectLikeReference(valid.substr(0, length));
}

TEST(UuidTest, RandomTextsInEitherCase) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    Uuid::Bytes bytes;
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    std::string text = Uuid(bytes).toString().str();
    for (char& c : text) {
      if (random() % 2 != 0 && c >= 'a') c = static_cast<char>(c - 'a' + 'A');
    }
    expectLikeReference(text);
    ASSERT_EQ(*Uuid::fromString(text), Uuid(bytes)) << text;
  }
}

TEST(UuidTest, ToStringInternalWritesExactly36Characters) {
  const Uuid uuid = *Uuid::fromString(sampleText);
  char out[40];
  std::fill(std::begin(out), std::end(out), '#');
  uuid.toStringInternal<char>(out);
  EXPECT_EQ(std::string(out, 36), sampleText);
  EXPECT_EQ(out[36], '#');
}

TEST(UuidTest, CreateIsRandomVersion4) {
  std::set<std::string> seen;
  for (int i = 0; i < 1000; ++i) {
    const Uuid uuid = Uuid::create();
    EXPECT_FALSE(uuid.isNull());
    EXPECT_EQ(uuid.bytes()[6] >> 4, 4);
    EXPECT_EQ(uuid.bytes()[8] & 0xC0, 0x80);
    seen.insert(uuid.toString().str());
  }
  EXPECT_EQ(seen.size(), 1000u);
}

TEST(UuidTest, CreatedBitsVary) {
  // Every random bit position takes both values over many UUIDs.
  std::array<int, 128> ones{};
  constexpr int count = 2000;
  for (int i = 0; i < count; ++i) {
    const auto bytes = Uuid::create().bytes();
    for (std::size_t bit = 0; bit < 128; ++bit) ones[bit] += (bytes[bit / 8] >> (7 - bit % 8)) & 1;
  }
  for (std::size_t bit = 0; bit < 128; ++bit) {
    const bool fixed = (bit >= 48 && bit < 52) || bit == 64 || bit == 65;
    if (fixed) continue;
    EXPECT_GT(ones[bit], count / 3) << bit;
    EXPECT_LT(ones[bit], 2 * count / 3) << bit;
  }
}

TEST(UuidTest, FormatsAsItsText) {
  const Uuid uuid = *Uuid::fromString(sampleText);
  EXPECT_EQ(format("user {} here", uuid), "user " + sampleText + " here");
}

TEST(UuidTest, UnterminatedFormatSpecificationIsRefused) {
  const Uuid uuid = *Uuid::fromString(sampleText);
  try {
    (void)formatRuntime("{:x", uuid);
    FAIL() << "no error";
  } catch (const FormatError& error) {
    EXPECT_STREQ(error.what(), "Missing '}' in format string.");
  }
  EXPECT_THROW((void)formatRuntime("{:", uuid), FormatError);
  EXPECT_THROW((void)formatRuntime("{:x}", uuid), FormatError);
  EXPECT_EQ(formatRuntime("{:}", uuid).size(), 36u);
}

}  // namespace
}  // namespace korvane::utils::core
