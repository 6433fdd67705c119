#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <optional>
#include <string>
#include <vector>

#include "utils/string/Utf8.h"

namespace korvane::utils::string {
namespace {

// The well-formed byte sequences as the Unicode standard tabulates them
// (Table 3-7), written out range by range and independently of the codec:
// which second bytes a lead byte allows; every later byte is 0x80-0xBF.
struct SecondByteRange {
  unsigned low;
  unsigned high;
};

SecondByteRange allowedSecondBytes(unsigned lead) {
  if (lead >= 0xC2 && lead <= 0xDF) return {0x80, 0xBF};
  if (lead == 0xE0) return {0xA0, 0xBF};
  if (lead >= 0xE1 && lead <= 0xEC) return {0x80, 0xBF};
  if (lead == 0xED) return {0x80, 0x9F};
  if (lead >= 0xEE && lead <= 0xEF) return {0x80, 0xBF};
  if (lead == 0xF0) return {0x90, 0xBF};
  if (lead >= 0xF1 && lead <= 0xF3) return {0x80, 0xBF};
  if (lead == 0xF4) return {0x80, 0x8F};
  return {1, 0};  // none
}

bool isTail(unsigned byte) { return byte >= 0x80 && byte <= 0xBF; }

// One test input of up to four bytes, held without allocation: the
// exhaustive loops below make millions of them.
struct Input {
  Input(std::initializer_list<unsigned> values) {
    for (const unsigned value : values) {
      bytes[size] = value;
      text[size] = static_cast<char>(value);
      ++size;
    }
  }
  std::string_view view() const { return {text.data(), size}; }

  std::array<unsigned, 4> bytes{};
  std::array<char, 4> text{};
  std::size_t size = 0;
};

bool wellFormed(const Input& input, std::size_t length) {
  const SecondByteRange second = allowedSecondBytes(input.bytes[0]);
  if (length < 2 || input.bytes[1] < second.low || input.bytes[1] > second.high) return false;
  for (std::size_t i = 2; i < length; ++i) {
    if (!isTail(input.bytes[i])) return false;
  }
  return true;
}

// The length a lead byte announces, from its bit pattern.
std::size_t announcedLength(unsigned lead) {
  if (lead <= 0x7F) return 1;
  if (lead >= 0xC0 && lead <= 0xDF) return 2;
  if (lead >= 0xE0 && lead <= 0xEF) return 3;
  if (lead >= 0xF0 && lead <= 0xF7) return 4;
  return 0;
}

// The payload bits of a sequence of `length` bytes, taken as they stand.
char32_t payload(const Input& input, std::size_t length) {
  const std::array<unsigned, 5> leadMask = {0, 0x7F, 0x1F, 0x0F, 0x07};
  char32_t value = input.bytes[0] & leadMask[length];
  for (std::size_t i = 1; i < length; ++i) value = value * 64 + (input.bytes[i] % 64);
  return value;
}

bool same(const Utf8Sequence& a, const Utf8Sequence& b) {
  return a.codePoint == b.codePoint && a.length == b.length && a.wellFormed == b.wellFormed;
}

// Checks both options, and the check alone, on one input against the table
// above and hands back the rejecting decode. Returns the number of failures,
// so that the exhaustive loops stop early instead of printing millions of
// lines.
int checkSequence(const Input& input, Utf8Sequence& rejected) {
  rejected = decodeUtf8(input.view(), Utf8Malformed::reject);
  const Utf8Sequence anyway = decodeUtf8(input.view(), Utf8Malformed::decodeAnyway);
  const std::size_t length = announcedLength(input.bytes[0]);

  Utf8Sequence expectRejected;
  Utf8Sequence expectAnyway;
  if (length == 1) {
    expectRejected = expectAnyway = {input.bytes[0], 1, true};
  } else if (length == 0) {
    expectRejected = {0, 1, false};
    expectAnyway = {input.bytes[0], 1, false};
  } else if (length > input.size) {
    expectRejected = expectAnyway = {0, input.size, false};
  } else {
    const bool valid = wellFormed(input, length);
    expectAnyway = {payload(input, length), length, valid};
    expectRejected = {valid ? payload(input, length) : 0, length, valid};
  }
  // The check alone: the length of a whole, well-formed multibyte sequence.
  const std::size_t expectWhole =
      length >= 2 && length <= input.size && wellFormed(input, length) ? length : 0;
  int failures = 0;
  if (wellFormedMultibyteLength(input.view()) != expectWhole) {
    ++failures;
    ADD_FAILURE() << "wellFormedMultibyteLength, input "
                  << testing::PrintToString(std::string(input.view()));
  }
  if (!same(rejected, expectRejected)) {
    ++failures;
    ADD_FAILURE() << "reject, input " << testing::PrintToString(std::string(input.view()));
  }
  if (!same(anyway, expectAnyway)) {
    ++failures;
    ADD_FAILURE() << "decodeAnyway, input " << testing::PrintToString(std::string(input.view()));
  }
  return failures;
}

int checkSequence(const Input& input) {
  Utf8Sequence rejected;
  return checkSequence(input, rejected);
}

TEST(Utf8Test, EveryOneByteInput) {
  for (unsigned b0 = 0; b0 < 256; ++b0) ASSERT_EQ(checkSequence({b0}), 0);
}

TEST(Utf8Test, EveryTwoByteInput) {
  std::vector<bool> seen(0x800, false);
  for (unsigned b0 = 0; b0 < 256; ++b0) {
    for (unsigned b1 = 0; b1 < 256; ++b1) {
      Utf8Sequence decoded;
      ASSERT_EQ(checkSequence({b0, b1}, decoded), 0);
      if (decoded.wellFormed && decoded.length == 2) {
        ASSERT_FALSE(seen[decoded.codePoint])
            << "decoded twice: " << static_cast<unsigned long>(decoded.codePoint);
        seen[decoded.codePoint] = true;
      }
    }
  }
  // Every code point that takes two bytes, each from exactly one sequence.
  for (char32_t c = 0; c < 0x800; ++c)
    EXPECT_EQ(seen[c], c >= 0x80) << static_cast<unsigned long>(c);
}

TEST(Utf8Test, EveryThreeByteInput) {
  std::vector<bool> seen(0x10000, false);
  int failures = 0;
  for (unsigned b0 = 0; b0 < 256 && failures == 0; ++b0) {
    for (unsigned b1 = 0; b1 < 256 && failures == 0; ++b1) {
      for (unsigned b2 = 0; b2 < 256 && failures == 0; ++b2) {
        Utf8Sequence decoded;
        failures += checkSequence({b0, b1, b2}, decoded);
        if (decoded.wellFormed && decoded.length == 3) {
          if (seen[decoded.codePoint]) ++failures;
          seen[decoded.codePoint] = true;
        }
      }
    }
  }
  ASSERT_EQ(failures, 0);
  // Every code point that takes three bytes except the surrogates, once each.
  for (char32_t c = 0; c < 0x10000; ++c) {
    EXPECT_EQ(seen[c], c >= 0x800 && !(c >= 0xD800 && c <= 0xDFFF))
        << static_cast<unsigned long>(c);
  }
}

// Four-byte sequences: every lead and second byte, with the third and
// fourth bytes at the edges of the continuation range and just outside.
TEST(Utf8Test, FourByteInputsAtEveryBoundary) {
  const std::array<unsigned, 5> tails = {0x00, 0x7F, 0x80, 0xBF, 0xC0};
  int failures = 0;
  for (unsigned b0 = 0xF0; b0 < 0x100; ++b0) {
    for (unsigned b1 = 0; b1 < 256; ++b1) {
      for (const unsigned b2 : tails) {
        for (const unsigned b3 : tails) failures += checkSequence({b0, b1, b2, b3});
      }
    }
  }
  EXPECT_EQ(failures, 0);
}

TEST(Utf8Test, FourByteLimits) {
  const auto decode = [](std::string_view bytes) {
    return decodeUtf8(bytes, Utf8Malformed::reject);
  };
  EXPECT_EQ(decode("\xF0\x90\x80\x80").codePoint, 0x10000u);
  EXPECT_EQ(decode("\xF4\x8F\xBF\xBF").codePoint, 0x10FFFFu);
  EXPECT_FALSE(decode("\xF0\x8F\xBF\xBF").wellFormed);  // U+FFFF, overlong
  EXPECT_FALSE(decode("\xF4\x90\x80\x80").wellFormed);  // U+110000
  EXPECT_FALSE(decode("\xF7\xBF\xBF\xBF").wellFormed);
  EXPECT_EQ(decode("\xF7\xBF\xBF\xBF").length, 4u);
  EXPECT_EQ(decode("\xF8\x88\x80\x80\x80").length, 1u);
  // Cut short by the end of the text: the bytes left, no code point.
  EXPECT_EQ(decode("\xF0\x9F\x98").length, 3u);
  EXPECT_FALSE(decode("\xF0\x9F\x98").wellFormed);
  const Utf8Sequence anyway = decodeUtf8("\xF0\x9F\x98", Utf8Malformed::decodeAnyway);
  EXPECT_EQ(anyway.codePoint, 0u);
  EXPECT_EQ(anyway.length, 3u);
}

TEST(Utf8Test, OnlyTheLeadByteDecidesTheLength) {
  // A valid character after a lead byte: reject drops the announced length.
  const Utf8Sequence decoded = decodeUtf8(
      "\xE2"
      "ab",
      Utf8Malformed::reject);
  EXPECT_EQ(decoded.length, 3u);
  EXPECT_FALSE(decoded.wellFormed);
}

TEST(Utf8Test, EncodeEveryCodePoint) {
  int failures = 0;
  for (char32_t c = 0; c <= 0x110000 && failures == 0; ++c) {
    std::array<char, 4> out{};
    const std::size_t count = encodeUtf8(c, out);
    const bool unusable = (c >= 0xD800 && c <= 0xDFFF) || c > 0x10FFFF;
    const std::size_t expected = unusable ? 3 : c < 0x80 ? 1 : c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    const Utf8Sequence back =
        decodeUtf8(std::string_view(out.data(), count), Utf8Malformed::reject);
    if (count != expected || !back.wellFormed || back.length != count ||
        back.codePoint != (unusable ? replacementCharacter : c)) {
      ++failures;
      ADD_FAILURE() << "code point " << static_cast<unsigned long>(c);
    }
  }
  std::array<char, 4> out{};
  ASSERT_EQ(encodeUtf8(0x20AC, out), 3u);
  EXPECT_EQ(std::string(out.data(), 3), "\xE2\x82\xAC");
  ASSERT_EQ(encodeUtf8(0x1F600, out), 4u);
  EXPECT_EQ(std::string(out.data(), 4), "\xF0\x9F\x98\x80");
  ASSERT_EQ(encodeUtf8(0xFFFFFFFF, out), 3u);
  EXPECT_EQ(std::string(out.data(), 3), "\xEF\xBF\xBD");
}

TEST(Utf8Test, SurrogatePairsForEveryCodePoint) {
  int failures = 0;
  for (char32_t c = 0; c <= maxCodePoint && failures == 0; ++c) {
    std::array<char16_t, 2> units{};
    const std::size_t count = encodeUtf16(c, units);
    if (c < 0x10000) {
      if (count != 1 || units[0] != c) ++failures;
    } else if (count != 2 || !isHighSurrogate(units[0]) || !isLowSurrogate(units[1]) ||
               combineSurrogates(units[0], units[1]) != c) {
      ++failures;
    }
  }
  EXPECT_EQ(failures, 0);
  std::array<char16_t, 2> units{};
  ASSERT_EQ(encodeUtf16(0x1F600, units), 2u);
  EXPECT_EQ(units[0], 0xD83D);
  EXPECT_EQ(units[1], 0xDE00);
}

TEST(Utf8Test, SurrogateClasses) {
  EXPECT_FALSE(isSurrogate(0xD7FF));
  EXPECT_TRUE(isHighSurrogate(0xD800));
  EXPECT_TRUE(isHighSurrogate(0xDBFF));
  EXPECT_FALSE(isHighSurrogate(0xDC00));
  EXPECT_TRUE(isLowSurrogate(0xDC00));
  EXPECT_TRUE(isLowSurrogate(0xDFFF));
  EXPECT_TRUE(isSurrogate(0xDFFF));
  EXPECT_FALSE(isSurrogate(0xE000));
}

TEST(Utf8Test, LeadAndContinuationBytes) {
  int leads = 0;
  for (unsigned b = 0; b < 256; ++b) {
    const auto byte = static_cast<unsigned char>(b);
    EXPECT_EQ(utf8SequenceLength(byte), announcedLength(b)) << b;
    EXPECT_EQ(isUtf8Continuation(byte), isTail(b)) << b;
    leads += isUtf8Lead(byte) ? 1 : 0;
    if (isUtf8Lead(byte) && b >= 0x80) {
      const SecondByteRange second = allowedSecondBytes(b);
      EXPECT_LE(second.low, second.high) << b;
    }
  }
  EXPECT_EQ(leads, 128 + (0xF4 - 0xC2 + 1));
}

TEST(Utf8TextTest, WholeTextsConvertBothWays) {
  // ASCII, Polish, German, Japanese, a combining mark, a code point above
  // U+FFFF (a surrogate pair in UTF-16).
  const std::string utf8 =
      "Lukasz \xc5\x81ukasz J\xc3\xbcrgen \xe5\xb1\xb1\xe7\x94\xb0 "
      "Zoe\xcc\x88 \xf0\x9f\x94\x91";
  const std::u16string utf16 = u"Lukasz \u0141ukasz J\u00fcrgen \u5c71\u7530 Zoe\u0308 \U0001F511";
  EXPECT_EQ(utf8ToUtf16(utf8), utf16);
  EXPECT_EQ(utf16ToUtf8(utf16), utf8);
  EXPECT_EQ(utf8ToUtf16(""), std::u16string());
  EXPECT_EQ(utf16ToUtf8(u""), std::string());
}

TEST(Utf8TextTest, EveryCodePointRoundTrips) {
  std::string utf8;
  std::u16string utf16;
  for (char32_t codePoint = 1; codePoint <= maxCodePoint; ++codePoint) {
    if (isSurrogate(codePoint)) continue;
    std::array<char, 4> bytes{};
    utf8.append(bytes.data(), encodeUtf8(codePoint, bytes));
    std::array<char16_t, 2> units{};
    utf16.append(units.data(), encodeUtf16(codePoint, units));
  }
  EXPECT_EQ(utf8ToUtf16(utf8), utf16);
  EXPECT_EQ(utf16ToUtf8(utf16), utf8);
}

TEST(Utf8TextTest, MalformedUtf8IsRefusedNotReplaced) {
  for (const std::string& bad : {std::string("a\xff"), std::string("\xc3"), std::string("\xc0\xaf"),
                                 std::string("\xed\xa0\x80"), std::string("\xf4\x90\x80\x80"),
                                 std::string("x\x80y"), std::string("\xe5\xb1")}) {
    EXPECT_EQ(utf8ToUtf16(bad), std::nullopt) << ::testing::PrintToString(bad);
  }
}

TEST(Utf8TextTest, UnpairedSurrogatesAreRefusedNotReplaced) {
  for (const std::u16string& bad :
       {std::u16string(u"a") + char16_t(0xD800), std::u16string(1, char16_t(0xDC00)) + u"b",
        std::u16string(u"x") + char16_t(0xDBFF) + u"y",
        std::u16string(1, char16_t(0xDC00)) + char16_t(0xD800)}) {
    EXPECT_EQ(utf16ToUtf8(bad), std::nullopt);
  }
}

}  // namespace
}  // namespace korvane::utils::string
