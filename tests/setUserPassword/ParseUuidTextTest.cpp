// The user search's fast UUID reading accepts exactly the texts that
// Uuid::fromString accepts, with the same value: every byte value at every
// position, every length, both letter cases.
#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <string>

#include "setUserPassword/ParseUuidText.h"

namespace korvane::setUserPassword {
namespace {

using utils::core::Uuid;

void expectLikeFromString(const std::string& text) {
  const auto fast = parseUuidText(text);
  const auto reference = Uuid::fromString(text);
  ASSERT_EQ(fast.has_value(), reference.has_value()) << text;
  if (fast) {
    ASSERT_EQ(*fast, *reference) << text;
  }
}

std::string randomUuidText(std::mt19937& random) {
  Uuid::Bytes bytes;
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
  return Uuid(bytes).toString().str();
}

TEST(ParseUuidTextTest, ReadsEveryDigitOfEitherCase) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    std::string text = randomUuidText(random);
    expectLikeFromString(text);
    for (char& c : text) {
      if (random() % 2 != 0) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    expectLikeFromString(text);
    const auto parsed = parseUuidText(text);
    ASSERT_TRUE(parsed.has_value()) << text;
  }
  EXPECT_EQ(parseUuidText("00000000-0000-0000-0000-000000000000"), Uuid());
  Uuid::Bytes ones;
  ones.fill(0xFF);
  EXPECT_EQ(parseUuidText("ffffffff-FFFF-ffff-FFFF-ffffffffffff"), Uuid(ones));
}

TEST(ParseUuidTextTest, EveryByteAtEveryPosition) {
  const std::string valid = "0123abcd-ef45-6789-ABCD-0123456789ef";
  for (std::size_t position = 0; position < valid.size(); ++position) {
    for (int byte = 0; byte < 256; ++byte) {
      std::string text = valid;
      text[position] = static_cast<char>(byte);
      expectLikeFromString(text);
    }
  }
}

TEST(ParseUuidTextTest, OnlyTheExactLength) {
  const std::string valid = "0123abcd-ef45-6789-abcd-0123456789ef0123";
  for (std::size_t length = 0; length <= valid.size(); ++length) {
    expectLikeFromString(valid.substr(0, length));
  }
  EXPECT_FALSE(parseUuidText("0123abcd-ef45-6789-abcd-0123456789e").has_value());
  EXPECT_FALSE(parseUuidText("0123abcd-ef45-6789-abcd-0123456789ef0").has_value());
  EXPECT_FALSE(parseUuidText("0123abcdef45-6789-abcd-0123456789ef0").has_value());
}

}  // namespace
}  // namespace korvane::setUserPassword
