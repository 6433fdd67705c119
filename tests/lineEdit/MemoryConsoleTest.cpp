#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <string>

#include "tests/support/MemoryConsole.h"

namespace korvane::lineEdit {
namespace {

// A 6 x 4 console whose rows read "abcdef", "ghijkl", "mnopqr", "stuvwx".
class MemoryConsoleTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int y = 0; y < 4; ++y) {
      for (int x = 0; x < 6; ++x) {
        console_.setCell(x, y, MemoryConsole::Cell{static_cast<char16_t>(u'a' + y * 6 + x), 0x07});
      }
    }
  }

  std::string row(int y) const {
    std::string text;
    for (const char16_t c : console_.rowText(y)) {
      text += c == u' ' ? '.' : static_cast<char>(c);
    }
    return text;
  }

  MemoryConsole console_{6, 4};
};

TEST_F(MemoryConsoleTest, ScreenBufferInfoDescribesTheBuffer) {
  console_.setCursorPosition(Coord{2, 3});
  console_.setTextAttribute(0x1F);
  ScreenBufferInfo info;
  ASSERT_TRUE(console_.getScreenBufferInfo(info));
  EXPECT_EQ(info.size, (Coord{6, 4}));
  EXPECT_EQ(info.cursorPosition, (Coord{2, 3}));
  EXPECT_EQ(info.attributes, 0x1F);
  EXPECT_EQ(info.window, (Rect{0, 0, 5, 3}));
}

TEST_F(MemoryConsoleTest, CursorOutsideTheBufferIsRefused) {
  EXPECT_FALSE(console_.setCursorPosition(Coord{6, 0}));
  EXPECT_FALSE(console_.setCursorPosition(Coord{0, -1}));
  EXPECT_TRUE(console_.setCursorPosition(Coord{5, 3}));
  EXPECT_EQ(console_.cursorPosition(), (Coord{5, 3}));
}

TEST_F(MemoryConsoleTest, CursorInfoSizeMustBeAPercentage) {
  EXPECT_FALSE(console_.setCursorInfo(CursorInfo{0, false}));
  EXPECT_TRUE(console_.setCursorInfo(CursorInfo{100, false}));
  CursorInfo info;
  console_.getCursorInfo(info);
  EXPECT_EQ(info.size, 100u);
  EXPECT_FALSE(info.visible);
}

TEST_F(MemoryConsoleTest, FillWrapsRowsAndStopsAtTheEnd) {
  EXPECT_EQ(console_.fillOutputCharacter(u'*', 4, Coord{4, 1}), 4u);
  EXPECT_EQ(row(1), "ghij**");
  EXPECT_EQ(row(2), "**opqr");
  EXPECT_EQ(console_.fillOutputAttribute(0x4E, 100, Coord{3, 3}), 3u);
  EXPECT_EQ(console_.attributeAt(2, 3), 0x07);
  EXPECT_EQ(console_.attributeAt(3, 3), 0x4E);
  EXPECT_EQ(console_.attributeAt(5, 3), 0x4E);
  EXPECT_EQ(console_.fillOutputCharacter(u'*', 4, Coord{6, 0}), 0u);
}

TEST_F(MemoryConsoleTest, ScrollMovesTheBlockAndFillsWhatItUncovers) {
  ASSERT_TRUE(
      console_.scrollScreenBuffer(Rect{1, 0, 3, 1}, nullptr, Coord{2, 1}, CharInfo{u'.', 0x20}));
  EXPECT_EQ(row(0), "a...ef");
  EXPECT_EQ(row(1), "g.bcdl");
  EXPECT_EQ(row(2), "mnhijr");
  EXPECT_EQ(console_.attributeAt(1, 1), 0x20);
  EXPECT_EQ(console_.attributeAt(2, 1), 0x07);
}

TEST_F(MemoryConsoleTest, ScrollClipsTheDestinationToTheBuffer) {
  ASSERT_TRUE(
      console_.scrollScreenBuffer(Rect{0, 0, 5, 3}, nullptr, Coord{0, 2}, CharInfo{u' ', 0x07}));
  EXPECT_EQ(row(0), "......");
  EXPECT_EQ(row(1), "......");
  EXPECT_EQ(row(2), "abcdef");
  EXPECT_EQ(row(3), "ghijkl");
}

TEST_F(MemoryConsoleTest, ScrollClipsTheSourceToTheBuffer) {
  // The part of the source left of column 0 is cut off and the destination
  // moves with it.
  ASSERT_TRUE(
      console_.scrollScreenBuffer(Rect{-2, 0, 1, 0}, nullptr, Coord{2, 0}, CharInfo{u' ', 0x07}));
  EXPECT_EQ(row(0), "..cdab");
}

TEST_F(MemoryConsoleTest, EmptySourceChangesNothing) {
  EXPECT_FALSE(
      console_.scrollScreenBuffer(Rect{3, 0, 2, 0}, nullptr, Coord{0, 0}, CharInfo{u' ', 0x07}));
  EXPECT_FALSE(
      console_.scrollScreenBuffer(Rect{0, 4, 5, 3}, nullptr, Coord{0, 0}, CharInfo{u' ', 0x07}));
  EXPECT_FALSE(
      console_.scrollScreenBuffer(Rect{6, 0, 9, 0}, nullptr, Coord{0, 0}, CharInfo{u' ', 0x07}));
  EXPECT_EQ(row(0), "abcdef");
  EXPECT_EQ(row(3), "stuvwx");
}

TEST_F(MemoryConsoleTest, ClipRectangleLimitsMovedAndFilledCells) {
  const Rect clip{0, 0, 3, 3};
  ASSERT_TRUE(
      console_.scrollScreenBuffer(Rect{0, 0, 5, 0}, &clip, Coord{2, 0}, CharInfo{u'.', 0x07}));
  EXPECT_EQ(row(0), "..abef");
}

TEST_F(MemoryConsoleTest, ScrollFarAwayOnlyFills) {
  ASSERT_TRUE(console_.scrollScreenBuffer(Rect{0, 1, 5, 3}, nullptr, Coord{0, 32767},
                                          CharInfo{u'.', 0x07}));
  EXPECT_EQ(row(0), "abcdef");
  EXPECT_EQ(row(1), "......");
  EXPECT_EQ(row(3), "......");
}

TEST_F(MemoryConsoleTest, WriteTextWrapsAndScrollsAtTheBottom) {
  console_.setCursorPosition(Coord{4, 3});
  console_.setTextAttribute(0x0A);
  console_.writeText(u"123");
  EXPECT_EQ(row(3), "3.....");
  EXPECT_EQ(row(2), "stuv12");
  EXPECT_EQ(row(0), "ghijkl");
  EXPECT_EQ(console_.attributeAt(0, 3), 0x0A);
  EXPECT_EQ(console_.attributeAt(1, 3), 0x0A);
  EXPECT_EQ(console_.cursorPosition(), (Coord{1, 3}));
}

TEST_F(MemoryConsoleTest, WriteTextProcessesControlCharacters) {
  console_.writeText(u"12\r3\n4\t5\b6\a");
  EXPECT_EQ(row(0), "32cdef");
  EXPECT_EQ(row(1), "4.....");
  EXPECT_EQ(row(2), "6nopqr");
  EXPECT_EQ(console_.cursorPosition(), (Coord{1, 2}));
  console_.writeText(u"\b\b\b");
  EXPECT_EQ(console_.cursorPosition(), (Coord{0, 2}));
  EXPECT_EQ(console_.writeSizes(), (std::vector<std::size_t>{11, 3}));
}

TEST_F(MemoryConsoleTest, InputQueueDrainsKeyDownCharacters) {
  const std::array<KeyEvent, 3> events{KeyEvent{true, 1, 0, 0, u'x', 0},
                                       KeyEvent{false, 1, 0, 0, u'y', 0},
                                       KeyEvent{true, 2, 0, 0, u'z', 0}};
  console_.writeInput(events);
  EXPECT_EQ(console_.inputEvents().size(), 3u);
  EXPECT_EQ(console_.drainInput(), u"xzz");
  EXPECT_TRUE(console_.inputEvents().empty());
}

TEST_F(MemoryConsoleTest, TitleIsTruncatedToTheBuffer) {
  console_.setTitle(u"window");
  std::array<char16_t, 4> small{};
  EXPECT_EQ(console_.getTitle(small), 3u);
  EXPECT_EQ(std::u16string(small.data()), u"win");
  std::array<char16_t, 10> large{};
  EXPECT_EQ(console_.getTitle(large), 6u);
  EXPECT_EQ(std::u16string(large.data()), u"window");
  EXPECT_EQ(console_.getTitle(std::span<char16_t>()), 0u);
}

TEST_F(MemoryConsoleTest, EnvironmentVariableFollowsTheWindowsConvention) {
  std::array<char16_t, 4> buffer{u'7', 0, 0, 0};
  EXPECT_EQ(console_.getEnvironmentVariable(u"NAME", buffer), 0u);
  EXPECT_EQ(buffer[0], u'7');
  console_.setEnvironmentVariable(u"NAME", u"abc");
  EXPECT_EQ(console_.getEnvironmentVariable(u"NAME", buffer), 3u);
  EXPECT_EQ(std::u16string(buffer.data()), u"abc");
  console_.setEnvironmentVariable(u"NAME", u"wxyz");
  EXPECT_EQ(console_.getEnvironmentVariable(u"NAME", buffer), 5u);
  EXPECT_EQ(std::u16string(buffer.data()), u"abc");
  console_.setEnvironmentVariable(u"NAME", std::nullopt);
  EXPECT_EQ(console_.getEnvironmentVariable(u"NAME", buffer), 0u);
}

TEST_F(MemoryConsoleTest, RowStringIsUtf8WithoutTrailingBlanks) {
  console_.setCell(0, 0, MemoryConsole::Cell{u'\u00e9', 0x07});
  console_.setCell(1, 0, MemoryConsole::Cell{0xD83D, 0x07});
  console_.setCell(2, 0, MemoryConsole::Cell{0xDE00, 0x07});
  console_.setCell(3, 0, MemoryConsole::Cell{0xDE00, 0x07});
  console_.setCell(4, 0, MemoryConsole::Cell{u' ', 0x07});
  console_.setCell(5, 0, MemoryConsole::Cell{u' ', 0x07});
  EXPECT_EQ(console_.rowString(0), "\u00e9\U0001F600\uFFFD");
}

TEST_F(MemoryConsoleTest, BadSizesAndPositionsThrow) {
  EXPECT_THROW(MemoryConsole(0, 5), std::invalid_argument);
  EXPECT_THROW(MemoryConsole(5, 40000), std::invalid_argument);
  EXPECT_THROW(console_.cell(6, 0), std::out_of_range);
  EXPECT_THROW(console_.setCell(0, 4, MemoryConsole::Cell{}), std::out_of_range);
}

}  // namespace
}  // namespace korvane::lineEdit
