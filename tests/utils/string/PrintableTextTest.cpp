#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

#include "utils/string/PrintableText.h"

namespace korvane::utils::string {
namespace {

// "\xNN" for one byte, written out independently of the code under test.
std::string escaped(unsigned byte) {
  static const char* const digits = "0123456789abcdef";
  return std::string("\\x") + digits[byte / 16] + digits[byte % 16];
}

std::string bytes(std::initializer_list<unsigned> values) {
  std::string text;
  for (const unsigned value : values) text += static_cast<char>(value);
  return text;
}

TEST(PrintableTextTest, PrintableAsciiStandsAsItIs) {
  std::string all;
  for (unsigned c = 0x20; c < 0x7F; ++c) all += static_cast<char>(c);
  EXPECT_EQ(toPrintableText(all), all);
  EXPECT_EQ(toPrintableText(""), "");
  EXPECT_EQ(toPrintableText("alice"), "alice");
}

TEST(PrintableTextTest, BackslashIsKept) {
  EXPECT_EQ(toPrintableText("C:\\Korvane\\users.json"), "C:\\Korvane\\users.json");
  EXPECT_EQ(toPrintableText("\\x41"), "\\x41");
}

TEST(PrintableTextTest, EveryC0ByteIsEscaped) {
  for (unsigned c = 0; c < 0x20; ++c) {
    const std::string text = "a" + bytes({c}) + "b";
    EXPECT_EQ(toPrintableText(text), "a" + escaped(c) + "b") << c;
  }
  EXPECT_EQ(toPrintableText(bytes({0x00})), "\\x00");
  EXPECT_EQ(toPrintableText("\n"), "\\x0a");
  EXPECT_EQ(toPrintableText("\r\t"), "\\x0d\\x09");
  EXPECT_EQ(toPrintableText("\x1b"), "\\x1b");
}

TEST(PrintableTextTest, DeleteIsEscaped) { EXPECT_EQ(toPrintableText("x\x7fy"), "x\\x7fy"); }

TEST(PrintableTextTest, C1InUtf8IsEscapedByteByByte) {
  for (unsigned c = 0x80; c <= 0x9F; ++c) {
    // U+0080-U+009F are C2 80 to C2 9F in UTF-8.
    EXPECT_EQ(toPrintableText(bytes({0xC2, c})), escaped(0xC2) + escaped(c)) << c;
  }
  EXPECT_EQ(toPrintableText("a\xc2\x85z"), "a\\xc2\\x85z");
  EXPECT_EQ(toPrintableText("\xc2\x9b"
                            "31m"),
            "\\xc2\\x9b31m");
}

TEST(PrintableTextTest, TheFirstCharactersAfterC1AreKept) {
  // U+00A0 (no-break space) and U+00FF are not control characters.
  EXPECT_EQ(toPrintableText("\xc2\xa0"), "\xc2\xa0");
  EXPECT_EQ(toPrintableText("\xc3\xbf"), "\xc3\xbf");
}

TEST(PrintableTextTest, EveryRawByteFrom0x80IsEscaped) {
  for (unsigned c = 0x80; c <= 0xFF; ++c) {
    // Alone, or before an ASCII letter, no such byte is well-formed UTF-8.
    EXPECT_EQ(toPrintableText(bytes({c})), escaped(c)) << c;
    EXPECT_EQ(toPrintableText(bytes({c, 'A'})), escaped(c) + "A") << c;
  }
  EXPECT_EQ(toPrintableText("pw-\xff.json"), "pw-\\xff.json");
}

TEST(PrintableTextTest, OverlongFormsAreEscaped) {
  EXPECT_EQ(toPrintableText("\xc0\xaf"), "\\xc0\\xaf");  // "/"
  EXPECT_EQ(toPrintableText("\xc1\x9b"), "\\xc1\\x9b");  // ESC
  EXPECT_EQ(toPrintableText("\xe0\x80\xaf"), "\\xe0\\x80\\xaf");
  EXPECT_EQ(toPrintableText("\xf0\x80\x80\xaf"), "\\xf0\\x80\\x80\\xaf");
}

TEST(PrintableTextTest, SurrogatesInUtf8AreEscaped) {
  EXPECT_EQ(toPrintableText("\xed\xa0\x80"), "\\xed\\xa0\\x80");
  EXPECT_EQ(toPrintableText("\xed\xbf\xbf"), "\\xed\\xbf\\xbf");
  // The last code points before and after the surrogates are characters.
  EXPECT_EQ(toPrintableText("\xed\x9f\xbf"), "\xed\x9f\xbf");
  EXPECT_EQ(toPrintableText("\xee\x80\x80"), "\xee\x80\x80");
}

TEST(PrintableTextTest, CodePointsAboveTheLastAreEscaped) {
  EXPECT_EQ(toPrintableText("\xf4\x90\x80\x80"), "\\xf4\\x90\\x80\\x80");
  EXPECT_EQ(toPrintableText("\xf4\x8f\xbf\xbf"), "\xf4\x8f\xbf\xbf");
}

TEST(PrintableTextTest, TruncatedSequencesAtTheEndAreEscaped) {
  EXPECT_EQ(toPrintableText("ab\xc3"), "ab\\xc3");
  EXPECT_EQ(toPrintableText("ab\xe4\xb8"), "ab\\xe4\\xb8");
  EXPECT_EQ(toPrintableText("ab\xf0\x9f\x98"), "ab\\xf0\\x9f\\x98");
}

TEST(PrintableTextTest, ACharacterAfterABrokenSequenceIsKept) {
  // The byte that breaks a sequence begins the next character.
  EXPECT_EQ(toPrintableText("\xe4\xb8"
                            "A"),
            "\\xe4\\xb8A");
  EXPECT_EQ(toPrintableText("\xe4\xc3\xa9"), "\\xe4\xc3\xa9");
  EXPECT_EQ(toPrintableText("\xf0\x9f\x1b"), "\\xf0\\x9f\\x1b");
}

TEST(PrintableTextTest, ValidMultibyteCharactersAreKept) {
  EXPECT_EQ(toPrintableText("caf\xc3\xa9"), "caf\xc3\xa9");            // é
  EXPECT_EQ(toPrintableText("\xe4\xb8\xad"), "\xe4\xb8\xad");          // 中
  EXPECT_EQ(toPrintableText("\xf0\x9f\x98\x80"), "\xf0\x9f\x98\x80");  // 😀
  EXPECT_EQ(toPrintableText("\xc5\x81\xc3\xb3"
                            "d\xc5\xba"),
            "\xc5\x81\xc3\xb3"
            "d\xc5\xba");
}

TEST(PrintableTextTest, ATitleSequenceIsNeutralised) {
  const std::string result = toPrintableText("\x1b]0;owned\x07name");
  EXPECT_EQ(result, "\\x1b]0;owned\\x07name");
  // No byte below 0x20 and no DEL is left to act on a terminal.
  for (const char c : result) {
    const auto byte = static_cast<unsigned char>(c);
    EXPECT_TRUE(byte >= 0x20 && byte != 0x7F) << static_cast<unsigned>(byte);
  }
  EXPECT_EQ(toPrintableText("\x1b[2J\x1b[1A\r"), "\\x1b[2J\\x1b[1A\\x0d");
}

}  // namespace
}  // namespace korvane::utils::string
