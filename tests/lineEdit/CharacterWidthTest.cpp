#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "lineEdit/CharacterWidth.h"

namespace korvane::lineEdit {
namespace {

TEST(CharacterWidthTest, CombiningMarksTakeNoColumn) {
  for (const char32_t mark : {0x0300u, 0x0301u, 0x036Fu, 0x0483u, 0x0488u, 0x20DDu, 0xFE20u,
                              0x1D167u, 0xE0100u, 0xE01EFu}) {
    EXPECT_TRUE(isCombiningMark(mark)) << std::hex << static_cast<unsigned>(mark);
    EXPECT_EQ(codePointColumns(mark), 0u) << std::hex << static_cast<unsigned>(mark);
  }
}

TEST(CharacterWidthTest, SpacingMarksAndLettersTakeOneColumn) {
  // U+0903 is a spacing mark (Mc): it takes a column of its own.
  for (const char32_t c :
       {0x41u, 0xE9u, 0x02FFu, 0x0370u, 0x0903u, 0x20ACu, 0x1F600u, 0xE01F0u, 0x10FFFFu, 0u}) {
    EXPECT_FALSE(isCombiningMark(c)) << std::hex << static_cast<unsigned>(c);
    EXPECT_EQ(codePointColumns(c), 1u) << std::hex << static_cast<unsigned>(c);
  }
}

TEST(CharacterWidthTest, WideRangesTakeTwoColumns) {
  for (const char32_t c : {0x1100u, 0x115Fu, 0x2329u, 0x232Au, 0x3000u, 0x4E2Du, 0xA48Cu, 0xAC00u,
                           0xD7A3u, 0xFF01u, 0xFFE6u, 0x1B000u, 0x1F250u, 0x20000u, 0x3FFFDu}) {
    EXPECT_TRUE(isWideCharacter(c)) << std::hex << static_cast<unsigned>(c);
    EXPECT_EQ(codePointColumns(c), 2u) << std::hex << static_cast<unsigned>(c);
  }
  for (const char32_t c : {0x10FFu, 0x1160u, 0x2E9Au, 0x303Fu, 0x3097u, 0x3098u, 0xFE53u, 0xFFE7u,
                           0x1B002u, 0x3FFFEu}) {
    EXPECT_FALSE(isWideCharacter(c)) << std::hex << static_cast<unsigned>(c);
  }
  // U+3099 is both a combining mark and inside a wide range: no column.
  EXPECT_EQ(codePointColumns(0x3099), 0u);
}

TEST(CharacterWidthTest, CombiningMarksTableIsSortedAndComplete) {
  const auto marks = combiningMarks();
  // Unicode 15.0, general categories Mn and Me.
  EXPECT_EQ(marks.size(), 1998u);
  EXPECT_EQ(marks.front(), 0x0300u);
  EXPECT_EQ(marks.back(), 0xE01EFu);
  for (std::size_t i = 1; i < marks.size(); ++i) {
    ASSERT_LT(marks[i - 1], marks[i]) << i;
  }
}

TEST(CharacterWidthTest, ColumnWidthOfText) {
  EXPECT_EQ(columnWidth(""), 0u);
  EXPECT_EQ(columnWidth("abc"), 3u);
  EXPECT_EQ(columnWidth("e\xcc\x81"), 1u);                 // e + U+0301
  EXPECT_EQ(columnWidth("\xe4\xb8\xad\xe6\x96\x87"), 4u);  // two CJK
  EXPECT_EQ(columnWidth("\xf0\xa0\x80\x80"), 2u);          // U+20000
}

TEST(CharacterWidthTest, EscapeSequencesTakeNoColumns) {
  EXPECT_EQ(columnWidth("\x1b[1;31mab\x1b[0m"), 2u);
  EXPECT_EQ(columnWidth("\x1b[2Kx"), 1u);
  // Too short, or without a final letter: ordinary characters.
  EXPECT_EQ(columnWidth("\x1b["), 2u);
  EXPECT_EQ(columnWidth("\x1b[12"), 4u);
}

TEST(CharacterWidthTest, UnfinishedEscapeSequenceEndsWithTheText) {
  // The text is the start of a longer buffer whose next byte is a final
  // letter: the sequence is still unfinished, since that byte is not part of
  // the text.
  const std::string buffer = "\x1b[12m";
  EXPECT_EQ(columnWidth(std::string_view(buffer).substr(0, 4)), 4u);
  // Alone in a buffer of its exact size, where the AddressSanitizer build
  // reports any read past the end.
  const auto exact = std::make_unique<char[]>(4);
  std::memcpy(exact.get(), "\x1b[1;", 4);
  EXPECT_EQ(columnWidth(std::string_view(exact.get(), 4)), 4u);
}

TEST(CharacterWidthTest, CharacterStepsIncludeCombiningMarks) {
  const std::string text = "ae\xcc\x81\xcc\x82z";  // a, e + 2 marks, z
  EXPECT_EQ(nextCharacterEnd(text, 0), 1u);
  EXPECT_EQ(nextCharacterEnd(text, 1), 6u);
  EXPECT_EQ(nextCharacterEnd(text, 6), 7u);
  EXPECT_EQ(previousCharacterStart(text, 7), 6u);
  EXPECT_EQ(previousCharacterStart(text, 6), 1u);
  EXPECT_EQ(previousCharacterStart(text, 1), 0u);
  // Only marks before the offset: back to the start.
  EXPECT_EQ(previousCharacterStart("\xcc\x81\xcc\x81", 4), 0u);
}

TEST(CharacterWidthTest, StepsOverInvalidUtf8StayInBounds) {
  const std::string text = "\x80\x80\x80\x80\x80\xc3";
  EXPECT_EQ(nextCharacterEnd(text, 5), 6u);
  EXPECT_EQ(previousCharacterStart(text, 6), 5u);
  EXPECT_EQ(previousCharacterStart(text, 5), 1u);  // at most 4 bytes back
  EXPECT_EQ(columnWidth(text), 6u);
}

TEST(CharacterWidthTest, WrappedWidthPushesWideCharacterToNextRow) {
  // Starting at column 9 of 10, a wide character wraps: 1 empty + 2.
  EXPECT_EQ(wrappedColumnWidth("\xe4\xb8\xad", 9, 10), 3u);
  EXPECT_EQ(wrappedColumnWidth("\xe4\xb8\xad", 8, 10), 2u);
  EXPECT_EQ(wrappedColumnWidth("abc", 9, 10), 3u);
  EXPECT_EQ(wrappedColumnWidth("\xe4\xb8\xad", 0, 1), 2u);
}

TEST(CharacterWidthTest, WrappedWidthOnTwoColumnsPushesWideCharacterFromTheLastColumn) {
  // Column 1 is the last of two: the wide character goes to the next row.
  EXPECT_EQ(wrappedColumnWidth("\xe4\xb8\xad", 1, 2), 3u);
  EXPECT_EQ(wrappedColumnWidth("\xe4\xb8\xad", 0, 2), 2u);
  EXPECT_EQ(wrappedColumnWidth("a\xe4\xb8\xad", 0, 2), 4u);
}

}  // namespace
}  // namespace korvane::lineEdit
