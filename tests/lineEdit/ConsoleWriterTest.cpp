#include <gtest/gtest.h>

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "lineEdit/ConsoleWriter.h"
#include "tests/support/MemoryConsole.h"

namespace korvane::lineEdit {
namespace {

constexpr int width = 10;
constexpr int height = 5;

class ConsoleWriterTest : public ::testing::Test {
 protected:
  void write(std::string_view bytes) { write(console_, bytes); }

  void write(MemoryConsole& console, std::string_view bytes) {
    std::size_t consumed = bytes.size() + 1;
    EXPECT_TRUE(writer_.write(console, bytes, consumed));
    EXPECT_EQ(consumed, bytes.size());
  }

  // Fills row y with the letter 'a' + y, so that moved and erased cells show.
  void fillScreen() {
    for (int y = 0; y < console_.height(); ++y) {
      for (int x = 0; x < console_.width(); ++x) {
        console_.setCell(x, y, MemoryConsole::Cell{static_cast<char16_t>(u'a' + y), 0x07});
      }
    }
  }

  void fillRow(int y, std::u16string_view text) {
    for (int x = 0; x < console_.width(); ++x) {
      console_.setCell(x, y, MemoryConsole::Cell{text[static_cast<std::size_t>(x)], 0x07});
    }
  }

  // The whole row, trailing blanks included, with blanks shown as '.'.
  std::string row(int y) const {
    std::string text;
    for (int x = 0; x < console_.width(); ++x) {
      const char16_t c = console_.cell(x, y).character;
      text += c == u' ' ? '.' : c < 0x80 ? static_cast<char>(c) : '?';
    }
    return text;
  }

  void moveTo(int x, int y) {
    ASSERT_TRUE(console_.setCursorPosition(
        Coord{static_cast<std::int16_t>(x), static_cast<std::int16_t>(y)}));
  }

  Coord cursor() const { return console_.cursorPosition(); }

  MemoryConsole console_{width, height};
  ConsoleWriter writer_;
};

// --- Plain text and the write contract -------------------------------------

TEST_F(ConsoleWriterTest, PlainTextIsWrittenAtTheCursor) {
  write("hello");
  EXPECT_EQ(console_.rowString(0), "hello");
  EXPECT_EQ(cursor(), (Coord{5, 0}));
}

TEST_F(ConsoleWriterTest, EveryCallReportsSuccessWithAllBytesConsumed) {
  write("");
  write("\x1b[");
  write("\xff\xfe");
  write("\x1b]0;unterminated");
  EXPECT_TRUE(console_.writeSizes().empty());
}

TEST_F(ConsoleWriterTest, EscapeCharactersAreNotPrinted) {
  write(
      "a\x1b[1mb\x1b]0;t\x07"
      "c");
  EXPECT_EQ(console_.rowString(0), "abc");
}

// --- Erasing ---------------------------------------------------------------

TEST_F(ConsoleWriterTest, EraseLineFromCursorAlsoClearsTheFirstCellOfTheNextRow) {
  fillScreen();
  moveTo(3, 0);
  write("\x1b[0K");
  EXPECT_EQ(row(0), "aaa.......");
  EXPECT_EQ(row(1), ".bbbbbbbbb");
  EXPECT_EQ(row(2), "cccccccccc");
  EXPECT_EQ(cursor(), (Coord{3, 0}));
}

TEST_F(ConsoleWriterTest, EraseLineWithoutParameterIsModeZero) {
  fillScreen();
  moveTo(8, 1);
  write("\x1b[K");
  EXPECT_EQ(row(1), "bbbbbbbb..");
  EXPECT_EQ(row(2), ".ccccccccc");
}

TEST_F(ConsoleWriterTest, EraseLineAtTheBottomStopsAtTheEndOfTheBuffer) {
  fillScreen();
  moveTo(5, 4);
  write("\x1b[K");
  EXPECT_EQ(row(4), "eeeee.....");
  EXPECT_EQ(row(3), "dddddddddd");
}

TEST_F(ConsoleWriterTest, EraseLineToCursorAndWholeLine) {
  fillScreen();
  moveTo(3, 1);
  write("\x1b[1K");
  EXPECT_EQ(row(1), "....bbbbbb");
  moveTo(3, 2);
  write("\x1b[2K");
  EXPECT_EQ(row(2), "..........");
  EXPECT_EQ(row(3), "dddddddddd");
  EXPECT_EQ(cursor(), (Coord{3, 2}));
}

TEST_F(ConsoleWriterTest, EraseLineWithUnknownModeDoesNothing) {
  fillScreen();
  moveTo(3, 1);
  write("\x1b[3K\x1b[1;2K");
  EXPECT_EQ(row(1), "bbbbbbbbbb");
  EXPECT_EQ(row(2), "cccccccccc");
}

TEST_F(ConsoleWriterTest, EraseUsesTheBuffersCurrentAttribute) {
  fillScreen();
  console_.setTextAttribute(0x1E);
  moveTo(2, 0);
  write("\x1b[K");
  EXPECT_EQ(console_.attributeAt(1, 0), 0x07);
  EXPECT_EQ(console_.attributeAt(2, 0), 0x1E);
  EXPECT_EQ(console_.attributeAt(9, 0), 0x1E);
  EXPECT_EQ(console_.attributeAt(0, 1), 0x1E);
  EXPECT_EQ(console_.attributeAt(1, 1), 0x07);
}

TEST_F(ConsoleWriterTest, EraseDisplayFromCursorLeavesTheLastCell) {
  fillScreen();
  moveTo(4, 2);
  write("\x1b[J");
  EXPECT_EQ(row(1), "bbbbbbbbbb");
  EXPECT_EQ(row(2), "cccc......");
  EXPECT_EQ(row(3), "..........");
  EXPECT_EQ(row(4), ".........e");
  EXPECT_EQ(cursor(), (Coord{4, 2}));
}

TEST_F(ConsoleWriterTest, EraseDisplayToCursor) {
  fillScreen();
  moveTo(4, 2);
  write("\x1b[1J");
  EXPECT_EQ(row(0), "..........");
  EXPECT_EQ(row(1), "..........");
  EXPECT_EQ(row(2), ".....ccccc");
  EXPECT_EQ(row(3), "dddddddddd");
}

TEST_F(ConsoleWriterTest, EraseWholeDisplayMovesTheCursorHome) {
  fillScreen();
  console_.setTextAttribute(0x2A);
  moveTo(4, 2);
  write("\x1b[2J");
  for (int y = 0; y < height; ++y) {
    EXPECT_EQ(row(y), "..........") << y;
  }
  EXPECT_EQ(console_.attributeAt(9, 4), 0x2A);
  EXPECT_EQ(cursor(), (Coord{0, 0}));
}

TEST_F(ConsoleWriterTest, EraseDisplayWithUnknownModeDoesNothing) {
  fillScreen();
  moveTo(4, 2);
  write("\x1b[3J");
  EXPECT_EQ(row(0), "aaaaaaaaaa");
  EXPECT_EQ(row(4), "eeeeeeeeee");
  EXPECT_EQ(cursor(), (Coord{4, 2}));
}

TEST_F(ConsoleWriterTest, EraseCharactersFromCursor) {
  fillScreen();
  moveTo(2, 1);
  write("\x1b[3X");
  EXPECT_EQ(row(1), "bb...bbbbb");
  write("\x1b[X");
  EXPECT_EQ(row(1), "bb...bbbbb");
  moveTo(0, 1);
  write("\x1b[X");
  EXPECT_EQ(row(1), ".b...bbbbb");
}

TEST_F(ConsoleWriterTest, EraseCharactersIsNotLimitedToTheRow) {
  fillScreen();
  moveTo(8, 2);
  write("\x1b[4X");
  EXPECT_EQ(row(2), "cccccccc..");
  EXPECT_EQ(row(3), "..dddddddd");
  write("\x1b[4000000000X");
  EXPECT_EQ(row(4), "..........");
  EXPECT_EQ(row(1), "bbbbbbbbbb");
}

// --- Cursor movement -------------------------------------------------------

TEST_F(ConsoleWriterTest, CarriageReturnThenCursorForwardFive) {
  write("abcdefgh\r\x1b[5C");
  EXPECT_EQ(cursor(), (Coord{5, 0}));
  write("X");
  EXPECT_EQ(console_.rowString(0), "abcdeXgh");
}

TEST_F(ConsoleWriterTest, CursorUpAndDown) {
  moveTo(3, 2);
  write("\x1b[A");
  EXPECT_EQ(cursor(), (Coord{3, 1}));
  write("\x1b[5A");
  EXPECT_EQ(cursor(), (Coord{3, 0}));
  write("\x1b[2B");
  EXPECT_EQ(cursor(), (Coord{3, 2}));
  write("\x1b[B");
  EXPECT_EQ(cursor(), (Coord{3, 3}));
  write("\x1b[9B");
  EXPECT_EQ(cursor(), (Coord{3, 4}));
  write("\x1b[2k");
  EXPECT_EQ(cursor(), (Coord{3, 2}));
  write("\x1b[e");
  EXPECT_EQ(cursor(), (Coord{3, 3}));
  write("\x1b[0A");
  EXPECT_EQ(cursor(), (Coord{3, 3}));
}

TEST_F(ConsoleWriterTest, CursorForwardAndBack) {
  moveTo(3, 2);
  write("\x1b[C");
  EXPECT_EQ(cursor(), (Coord{4, 2}));
  write("\x1b[20C");
  EXPECT_EQ(cursor(), (Coord{9, 2}));
  write("\x1b[D");
  EXPECT_EQ(cursor(), (Coord{8, 2}));
  write("\x1b[20D");
  EXPECT_EQ(cursor(), (Coord{0, 2}));
  write("\x1b[4a");
  EXPECT_EQ(cursor(), (Coord{4, 2}));
  write("\x1b[3j");
  EXPECT_EQ(cursor(), (Coord{1, 2}));
}

TEST_F(ConsoleWriterTest, NextAndPreviousLine) {
  moveTo(5, 2);
  write("\x1b[E");
  EXPECT_EQ(cursor(), (Coord{0, 3}));
  moveTo(5, 2);
  write("\x1b[7E");
  EXPECT_EQ(cursor(), (Coord{0, 4}));
  moveTo(5, 2);
  write("\x1b[F");
  EXPECT_EQ(cursor(), (Coord{0, 1}));
  moveTo(5, 2);
  write("\x1b[3F");
  EXPECT_EQ(cursor(), (Coord{0, 0}));
}

TEST_F(ConsoleWriterTest, ColumnAbsolute) {
  moveTo(5, 2);
  write("\x1b[G");
  EXPECT_EQ(cursor(), (Coord{0, 2}));
  write("\x1b[4G");
  EXPECT_EQ(cursor(), (Coord{3, 2}));
  write("\x1b[99`");
  EXPECT_EQ(cursor(), (Coord{9, 2}));
  write("\x1b[0G");
  EXPECT_EQ(cursor(), (Coord{0, 2}));
}

TEST_F(ConsoleWriterTest, CursorPosition) {
  moveTo(5, 2);
  write("\x1b[H");
  EXPECT_EQ(cursor(), (Coord{0, 0}));
  write("\x1b[3;4H");
  EXPECT_EQ(cursor(), (Coord{3, 2}));
  write("\x1b[2f");
  EXPECT_EQ(cursor(), (Coord{0, 1}));
  write("\x1b[;7f");
  EXPECT_EQ(cursor(), (Coord{6, 0}));
  write("\x1b[99;99H");
  EXPECT_EQ(cursor(), (Coord{9, 4}));
  write("\x1b[0;0H");
  EXPECT_EQ(cursor(), (Coord{0, 0}));
}

TEST_F(ConsoleWriterTest, LineAbsolute) {
  moveTo(5, 2);
  write("\x1b[d");
  EXPECT_EQ(cursor(), (Coord{5, 0}));
  write("\x1b[4d");
  EXPECT_EQ(cursor(), (Coord{5, 3}));
  write("\x1b[40d");
  EXPECT_EQ(cursor(), (Coord{5, 4}));
}

TEST_F(ConsoleWriterTest, HugeParametersAreClampedToTheBuffer) {
  moveTo(5, 2);
  write("\x1b[99999999999999999999999A");
  EXPECT_EQ(cursor(), (Coord{5, 0}));
  write("\x1b[4294967295B\x1b[4294967295C");
  EXPECT_EQ(cursor(), (Coord{9, 4}));
  write("\x1b[4294967296D");
  EXPECT_EQ(cursor(), (Coord{0, 4}));
  write("\x1b[65536;32769H");
  EXPECT_EQ(cursor(), (Coord{9, 4}));
}

TEST_F(ConsoleWriterTest, SaveAndRestoreCursor) {
  moveTo(5, 2);
  write("\x1b[s");
  moveTo(1, 4);
  write("\x1b[u");
  EXPECT_EQ(cursor(), (Coord{5, 2}));
}

TEST_F(ConsoleWriterTest, SaveAndRestoreWithParametersAreIgnored) {
  moveTo(5, 2);
  write("\x1b[s");
  moveTo(1, 4);
  write("\x1b[1s");
  moveTo(2, 3);
  write("\x1b[0u");
  EXPECT_EQ(cursor(), (Coord{2, 3}));
  write("\x1b[u");
  EXPECT_EQ(cursor(), (Coord{5, 2}));
}

TEST_F(ConsoleWriterTest, TooManyParametersMakeTheCommandIgnored) {
  moveTo(5, 2);
  write("\x1b[1;1A\x1b[1;2C\x1b[2;3;4H\x1b[1;1d\x1b[;G");
  EXPECT_EQ(cursor(), (Coord{5, 2}));
  write("\x1b[1;2H");
  EXPECT_EQ(cursor(), (Coord{1, 0}));
}

TEST_F(ConsoleWriterTest, UnknownFinalBytesAndPrefixesAreIgnored) {
  fillScreen();
  moveTo(5, 2);
  write("\x1b[5Z\x1b[>5A\x1b[?5A\x1b[?2J");
  EXPECT_EQ(cursor(), (Coord{5, 2}));
  EXPECT_EQ(row(0), "aaaaaaaaaa");
}

// --- Inserting and deleting ------------------------------------------------

TEST_F(ConsoleWriterTest, InsertBlanksShiftsTheRestOfTheRowRight) {
  fillRow(1, u"abcdefghij");
  console_.setTextAttribute(0x30);
  moveTo(2, 1);
  write("\x1b[3@");
  EXPECT_EQ(row(1), "ab...cdefg");
  EXPECT_EQ(console_.attributeAt(2, 1), 0x30);
  EXPECT_EQ(console_.attributeAt(5, 1), 0x07);
  write("\x1b[@");
  EXPECT_EQ(row(1), "ab....cdef");
  EXPECT_EQ(cursor(), (Coord{2, 1}));
}

TEST_F(ConsoleWriterTest, InsertBlanksNearTheEndMovesOnlyWhatFits) {
  // Only the moved cells and the cells they leave change: the console
  // scrolls the one cell that still fits and blanks the cell it came from.
  fillRow(1, u"abcdefghij");
  moveTo(2, 1);
  write("\x1b[7@");
  EXPECT_EQ(row(1), "ab.defghic");
}

TEST_F(ConsoleWriterTest, InsertBlanksReachingPastTheRowLeavesItAlone) {
  // The count is cut to the rest of the row, which leaves nothing to move;
  // the console then does not scroll and so fills nothing either.
  fillRow(1, u"abcdefghij");
  moveTo(2, 1);
  write("\x1b[8@");
  EXPECT_EQ(row(1), "abcdefghij");
  write("\x1b[4000000000@");
  EXPECT_EQ(row(1), "abcdefghij");
}

TEST_F(ConsoleWriterTest, DeleteCharactersShiftsTheRestOfTheRowLeft) {
  fillRow(1, u"abcdefghij");
  fillRow(2, u"klmnopqrst");
  moveTo(2, 1);
  write("\x1b[3P");
  EXPECT_EQ(row(1), "abfghij...");
  write("\x1b[P");
  EXPECT_EQ(row(1), "abghij....");
  EXPECT_EQ(row(2), "klmnopqrst");
}

TEST_F(ConsoleWriterTest, DeleteCharactersReachingPastTheRowLeavesItAlone) {
  fillRow(1, u"abcdefghij");
  moveTo(9, 1);
  write("\x1b[P");
  EXPECT_EQ(row(1), "abcdefghij");
  moveTo(2, 1);
  write("\x1b[7P");
  EXPECT_EQ(row(1), "abjdefghi.") << "one cell moved, the cell it came from blanked";
}

TEST_F(ConsoleWriterTest, InsertLinesMovesTheRowsBelowDown) {
  fillScreen();
  console_.setTextAttribute(0x4F);
  moveTo(3, 1);
  write("\x1b[2L");
  EXPECT_EQ(row(0), "aaaaaaaaaa");
  EXPECT_EQ(row(1), "..........");
  EXPECT_EQ(row(2), "..........");
  EXPECT_EQ(row(3), "bbbbbbbbbb");
  EXPECT_EQ(row(4), "cccccccccc");
  EXPECT_EQ(console_.attributeAt(0, 2), 0x4F);
  EXPECT_EQ(console_.attributeAt(0, 3), 0x07);
  write("\x1b[L");
  EXPECT_EQ(row(2), "..........");
  EXPECT_EQ(row(4), "bbbbbbbbbb");
  EXPECT_EQ(cursor(), (Coord{3, 1}));
}

TEST_F(ConsoleWriterTest, InsertManyLinesBlanksEverythingBelow) {
  fillScreen();
  moveTo(0, 3);
  write("\x1b[4000000000L");
  EXPECT_EQ(row(2), "cccccccccc");
  EXPECT_EQ(row(3), "..........");
  EXPECT_EQ(row(4), "..........");
}

TEST_F(ConsoleWriterTest, DeleteLinesMovesTheRowsBelowUp) {
  fillScreen();
  moveTo(3, 1);
  write("\x1b[2M");
  EXPECT_EQ(row(0), "aaaaaaaaaa");
  EXPECT_EQ(row(1), "dddddddddd");
  EXPECT_EQ(row(2), "eeeeeeeeee");
  EXPECT_EQ(row(3), "..........");
  EXPECT_EQ(row(4), "..........");
  write("\x1b[M");
  EXPECT_EQ(row(1), "eeeeeeeeee");
  EXPECT_EQ(row(2), "..........");
}

TEST_F(ConsoleWriterTest, DeleteAllRemainingLinesLeavesThemAlone) {
  fillScreen();
  moveTo(3, 1);
  write("\x1b[9M");
  EXPECT_EQ(row(1), "bbbbbbbbbb");
  EXPECT_EQ(row(4), "eeeeeeeeee");
  write("\x1b[3M");
  EXPECT_EQ(row(1), "eeeeeeeeee");
  EXPECT_EQ(row(2), "cccccccccc");
  EXPECT_EQ(row(4), "..........");
}

// --- Device status and title reports ---------------------------------------

TEST_F(ConsoleWriterTest, CursorPositionReportGoesToTheInput) {
  moveTo(4, 2);
  write("\x1b[6n");
  EXPECT_EQ(console_.drainInput(), u"\x1b[3;5R");
  write("\x1b[H\x1b[6n");
  EXPECT_EQ(console_.drainInput(), u"\x1b[1;1R");
}

TEST_F(ConsoleWriterTest, RepliesAreKeyDownEventsOnePerCharacter) {
  write("\x1b[5n");
  ASSERT_EQ(console_.inputEvents().size(), 4u);
  const std::u16string expected = u"\x1b[0n";
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const KeyEvent& event = console_.inputEvents()[i];
    EXPECT_TRUE(event.keyDown);
    EXPECT_EQ(event.repeatCount, 1);
    EXPECT_EQ(event.character, expected[i]);
  }
  EXPECT_EQ(console_.drainInput(), u"\x1b[0n");
  EXPECT_TRUE(console_.inputEvents().empty());
}

TEST_F(ConsoleWriterTest, OtherDeviceStatusRequestsReplyNothing) {
  write("\x1b[n\x1b[0n\x1b[7n\x1b[5;6n\x1b[?6n");
  EXPECT_TRUE(console_.inputEvents().empty());
  EXPECT_EQ(console_.rowString(0), "");
}

TEST_F(ConsoleWriterTest, DeviceStatusReportsUseBufferCoordinates) {
  MemoryConsole large(200, 300);
  large.setCursorPosition(Coord{123, 250});
  write(large, "\x1b[6n");
  EXPECT_EQ(large.drainInput(), u"\x1b[251;124R");
}

TEST_F(ConsoleWriterTest, TitleIsSetByOperatingSystemCommandZero) {
  write("\x1b]0;My title\x07");
  EXPECT_EQ(console_.title(), u"My title");
  write("\x1b]0;Other\x1b\\after");
  EXPECT_EQ(console_.title(), u"Other");
  EXPECT_EQ(console_.rowString(0), "after");
}

TEST_F(ConsoleWriterTest, OtherOperatingSystemCommandsAreIgnored) {
  console_.setTitle(u"kept");
  write("\x1b]2;new\x07\x1b]?0;y\x07\x1b]10;z\x07");
  EXPECT_EQ(console_.title(), u"kept");
  EXPECT_EQ(console_.rowString(0), "");
  write("\x1b]0x");
  EXPECT_EQ(console_.title(), u"kept");
}

TEST_F(ConsoleWriterTest, TitleBytesAreWidenedOneToOne) {
  write("\x1b]0;a\xc3\xa9\x07");
  EXPECT_EQ(console_.title(), (std::u16string{u'a', 0xC3, 0xA9}));
}

TEST_F(ConsoleWriterTest, TitleStringIsLimitedTo519Characters) {
  const std::string longTitle(600, 'T');
  write("\x1b]0;" + longTitle + "\x07" + "ok");
  EXPECT_EQ(console_.title(), std::u16string(519, u'T'));
  EXPECT_EQ(console_.rowString(0), "ok");
  write("\x1b]0;" + std::string(519, 'U') + "\x1b\\" + "go");
  EXPECT_EQ(console_.title(), std::u16string(519, u'U'));
  EXPECT_EQ(console_.rowString(0), "okgo");
}

TEST_F(ConsoleWriterTest, TitleReportGoesToTheInput) {
  console_.setTitle(u"Korvane");
  write("\x1b[21t");
  EXPECT_EQ(console_.drainInput(), u"\x1b]lKorvane\x1b\\");
  write("\x1b[t\x1b[20t\x1b[21;1t");
  EXPECT_TRUE(console_.inputEvents().empty());
}

TEST_F(ConsoleWriterTest, TitleReportCarriesAtMost515Characters) {
  console_.setTitle(std::u16string(600, u'x'));
  write("\x1b[21t");
  EXPECT_EQ(console_.drainInput(), u"\x1b]l" + std::u16string(515, u'x') + u"\x1b\\");
}

// --- Split sequences and handles -------------------------------------------

TEST_F(ConsoleWriterTest, SequenceSplitAcrossTwoWritesStillClearsTheScreen) {
  fillScreen();
  write("\x1b[");
  write("2J");
  EXPECT_EQ(row(0), "..........");
  EXPECT_EQ(row(4), "..........");
}

TEST_F(ConsoleWriterTest, SequencesSplitAtEveryPointAreRecognised) {
  const std::string text = "ab\x1b[2;3H\x1b[31;1mX\x1b]0;title\x1b\\\x0eq\x0fq\x1b[6n";
  for (std::size_t split = 0; split <= text.size(); ++split) {
    MemoryConsole console(width, height);
    ConsoleWriter writer;
    std::size_t consumed = 0;
    writer.write(console, std::string_view(text).substr(0, split), consumed);
    writer.write(console, std::string_view(text).substr(split), consumed);
    SCOPED_TRACE(split);
    EXPECT_EQ(console.rowString(0), "ab");
    EXPECT_EQ(console.rowString(1), "  X\u2500q");
    EXPECT_EQ(console.attributeAt(2, 1), 0x0C);
    EXPECT_EQ(console.title(), u"title");
    EXPECT_EQ(console.drainInput(), u"\x1b[2;6R");
  }
}

TEST_F(ConsoleWriterTest, ByteByByteWritesAreRecognised) {
  const std::string text = "\x1b[3;3H\x1b[?25l\x1b[1;32m+";
  for (const char c : text) {
    write(std::string_view(&c, 1));
  }
  EXPECT_EQ(console_.cell(2, 2).character, u'+');
  EXPECT_EQ(console_.attributeAt(2, 2), 0x0A);
  EXPECT_FALSE(console_.cursorInfo().visible);
}

TEST_F(ConsoleWriterTest, ChangeOfConsoleResetsTheParser) {
  MemoryConsole other(width, height);
  fillScreen();
  write("\x1b[");
  write(other, "2J");
  EXPECT_EQ(other.rowString(0), "2J");
  EXPECT_EQ(row(0), "aaaaaaaaaa");
  write("2J");
  EXPECT_EQ(row(0), "2Jaaaaaaaa");
}

TEST_F(ConsoleWriterTest, ChangeOfConsoleClearsShiftOut) {
  MemoryConsole other(width, height);
  write("\x0eq");
  write(other, "q");
  write("q");
  EXPECT_EQ(console_.rowString(0), "\u2500q");
  EXPECT_EQ(other.rowString(0), "q");
}

TEST_F(ConsoleWriterTest, ChangeOfConsoleKeepsRenditionAndSavedCursor) {
  MemoryConsole other(width, height);
  moveTo(4, 3);
  write("\x1b[s\x1b[32m");
  write(other, "\x1b[u\x1b[1m");
  EXPECT_EQ(other.cursorPosition(), (Coord{4, 3}));
  EXPECT_EQ(other.textAttribute(), 0x0A);
}

// --- Escape sequence syntax --------------------------------------------------

TEST_F(ConsoleWriterTest, CharacterSetDesignationIsDropped) {
  write("\x1b(Ba\x1b)0b");
  EXPECT_EQ(console_.rowString(0), "ab");
}

TEST_F(ConsoleWriterTest, RepeatedEscapeIsIgnoredAndUnknownEscapeDropsOneByte) {
  moveTo(5, 2);
  write("\x1b\x1b\x1b[A");
  EXPECT_EQ(cursor(), (Coord{5, 1}));
  write(
      "\x1b"
      "Zx");
  EXPECT_EQ(console_.rowString(1), "     x");
}

TEST_F(ConsoleWriterTest, PrefixIsOnlyRecognisedBeforeTheParameters) {
  moveTo(5, 2);
  write("\x1b[2?A");  // '?' after a digit is the final byte
  EXPECT_EQ(cursor(), (Coord{6, 2}));
  EXPECT_EQ(console_.rowString(2), "     A");
}

TEST_F(ConsoleWriterTest, SemicolonBeyondTheSixteenthParameterReusesTheLastSlot) {
  // Seventeen parameters: 0 fifteen times, then 31 and 32 share the last slot.
  std::string sequence = "\x1b[";
  for (int i = 0; i < 15; ++i) {
    sequence += "0;";
  }
  sequence += "31;32m";
  write(sequence);
  EXPECT_EQ(console_.textAttribute(), 0x02);
}

// --- Graphic rendition ---------------------------------------------------------

TEST_F(ConsoleWriterTest, RedWithBoldIsBrightRed) {
  write("\x1b[31;1mR");
  EXPECT_EQ(console_.textAttribute(), 0x0C);
  EXPECT_EQ(console_.attributeAt(0, 0), 0x0C);
  EXPECT_EQ(console_.cell(0, 0).character, u'R');
}

TEST_F(ConsoleWriterTest, ResetWithoutDefaultIsLightGreyOnBlack) {
  write("\x1b[31;44;1m\x1b[0m");
  EXPECT_EQ(console_.textAttribute(), 0x07);
  write("\x1b[31;44;1m\x1b[m");
  EXPECT_EQ(console_.textAttribute(), 0x07);
}

TEST_F(ConsoleWriterTest, ResetUsesKorvaneConsoleDef) {
  console_.setEnvironmentVariable(u"KORVANE_CONSOLE_DEF", u"1F");
  write("\x1b[31m\x1b[0m");
  EXPECT_EQ(console_.textAttribute(), 0x1F);
  console_.setEnvironmentVariable(u"KORVANE_CONSOLE_DEF", u"3e");
  write("\x1b[m");
  EXPECT_EQ(console_.textAttribute(), 0x3E);
}

TEST_F(ConsoleWriterTest, ResetAmongOtherParametersDropsBoldAndUnderlineOfTheDefault) {
  console_.setEnvironmentVariable(u"KORVANE_CONSOLE_DEF", u"8F");
  write("\x1b[0m");
  EXPECT_EQ(console_.textAttribute(), 0x8F);
  write("\x1b[0;33m");
  EXPECT_EQ(console_.textAttribute(), 0x06);
  write("\x1b[1;4;0;m");
  EXPECT_EQ(console_.textAttribute(), 0x07);
}

TEST_F(ConsoleWriterTest, NegativeKorvaneConsoleDefSwapsTheNibbles) {
  console_.setEnvironmentVariable(u"KORVANE_CONSOLE_DEF", u"-1F");
  write("\x1b[0m");
  EXPECT_EQ(console_.textAttribute(), 0xF1);
  write("\x1b[32;40m");
  EXPECT_EQ(console_.textAttribute(), 0xA0);
  // The reversed default stays in force for the rest of the process.
  console_.setEnvironmentVariable(u"KORVANE_CONSOLE_DEF", std::nullopt);
  write("\x1b[0m");
  EXPECT_EQ(console_.textAttribute(), 0x70);
}

// One setting of KORVANE_CONSOLE_DEF and the attribute a reset then gives.
struct DefaultCase {
  std::u16string_view value;
  std::uint16_t attribute;
};

// Resets the colours on a fresh console under each setting.
void expectDefaultAttributes(std::span<const DefaultCase> cases) {
  for (const DefaultCase& c : cases) {
    MemoryConsole console(width, height);
    ConsoleWriter writer;
    console.setEnvironmentVariable(u"KORVANE_CONSOLE_DEF", c.value);
    std::size_t consumed = 0;
    EXPECT_TRUE(writer.write(console, "\x1b[0m", consumed));
    EXPECT_EQ(console.textAttribute(), c.attribute) << std::string(c.value.begin(), c.value.end());
  }
}

TEST_F(ConsoleWriterTest, KorvaneConsoleDefFollowsHexadecimalParsing) {
  const DefaultCase cases[] = {
      {u"0x1", 0x01}, {u" 2A", 0x2A},  {u"+17", 0x17}, {u"zz", 0x00}, {u"", 0x00},
      {u"4g", 0x04},  {u"1234", 0x07}, {u"-7", 0x70},  {u"f", 0x0F},  {u"0X", 0x00},
  };
  expectDefaultAttributes(cases);
}

TEST_F(ConsoleWriterTest, KorvaneConsoleDefTakesTheLetterDigitA) {
  // The lowest letter digit, in either case, alone, last and first.
  const DefaultCase cases[] = {
      {u"a", 0x0A}, {u"A", 0x0A}, {u"1a", 0x1A}, {u"a1", 0xA1}, {u"aA", 0xAA}};
  expectDefaultAttributes(cases);
}

TEST_F(ConsoleWriterTest, KorvaneConsoleDefTakesTheDigitsAtTheEdgesOfEachRange) {
  // 0, 9, a/A and f/F are digits; the characters just outside each range
  // ('/', ':', '`', 'g', '@', 'G') end the number.
  const DefaultCase cases[] = {{u"10", 0x10}, {u"09", 0x09}, {u"90", 0x90}, {u"f0", 0xF0},
                               {u"F9", 0xF9}, {u"1/", 0x01}, {u"1:", 0x01}, {u"1`", 0x01},
                               {u"1g", 0x01}, {u"1@", 0x01}, {u"1G", 0x01}};
  expectDefaultAttributes(cases);
}

TEST_F(ConsoleWriterTest, DefaultForegroundAndBackgroundSeparately) {
  console_.setEnvironmentVariable(u"KORVANE_CONSOLE_DEF", u"5E");
  write("\x1b[31;42m\x1b[39m");
  EXPECT_EQ(console_.textAttribute(), 0x26);
  write("\x1b[31;42m\x1b[49m");
  EXPECT_EQ(console_.textAttribute(), 0x54);
  write("\x1b[1;39m");
  EXPECT_EQ(console_.textAttribute(), 0x5E) << "39 keeps bold";
}

TEST_F(ConsoleWriterTest, ColoursMapToConsoleBits) {
  const std::uint16_t foreground[] = {0x00, 0x04, 0x02, 0x06, 0x01, 0x05, 0x03, 0x07};
  for (int i = 0; i < 8; ++i) {
    write("\x1b[" + std::to_string(30 + i) + ";" + std::to_string(40 + (7 - i)) + "m");
    EXPECT_EQ(console_.textAttribute(), foreground[i] | (foreground[7 - i] << 4)) << i;
  }
}

TEST_F(ConsoleWriterTest, BoldAndUnderlineOnAndOff) {
  write("\x1b[0;32;41;1;4m");
  EXPECT_EQ(console_.textAttribute(), 0x40 | 0x02 | 0x08 | 0x80);
  write("\x1b[22m");
  EXPECT_EQ(console_.textAttribute(), 0xC2);
  write("\x1b[1;24m");
  EXPECT_EQ(console_.textAttribute(), 0x4A);
  write("\x1b[21;5m");
  EXPECT_EQ(console_.textAttribute(), 0xC2);
  write("\x1b[25m");
  EXPECT_EQ(console_.textAttribute(), 0x42);
}

TEST_F(ConsoleWriterTest, ReverseVideo) {
  write("\x1b[0;31;44;7m");
  EXPECT_EQ(console_.textAttribute(), 0x41);
  write("\x1b[1m");
  EXPECT_EQ(console_.textAttribute(), 0xC1);
  write("\x1b[22;4m");
  EXPECT_EQ(console_.textAttribute(), 0x49);
  write("\x1b[27m");
  EXPECT_EQ(console_.textAttribute(), 0x94);
}

TEST_F(ConsoleWriterTest, ConcealedTakesTheBackgroundColour) {
  write("\x1b[0;31;44;8m");
  EXPECT_EQ(console_.textAttribute(), 0x11);
  write("\x1b[1m");
  EXPECT_EQ(console_.textAttribute(), 0x11);
  write("\x1b[4m");
  EXPECT_EQ(console_.textAttribute(), 0x99);
  write("\x1b[28m");
  EXPECT_EQ(console_.textAttribute(), 0x9C);
}

TEST_F(ConsoleWriterTest, ConcealedAndReverseTakeTheForegroundColour) {
  write("\x1b[0;31;44;8;7m");
  EXPECT_EQ(console_.textAttribute(), 0x44);
  write("\x1b[4m");
  EXPECT_EQ(console_.textAttribute(), 0x44);
  write("\x1b[1m");
  EXPECT_EQ(console_.textAttribute(), 0xCC);
}

TEST_F(ConsoleWriterTest, ResetClearsReverseAndConcealed) {
  write("\x1b[31;44;7;8m\x1b[0m");
  EXPECT_EQ(console_.textAttribute(), 0x07);
}

TEST_F(ConsoleWriterTest, UnknownRenditionsAreIgnored) {
  write("\x1b[32;43m");
  EXPECT_EQ(console_.textAttribute(), 0x62);
  write("\x1b[2;3;6;9;38;48;50;90;107m");
  EXPECT_EQ(console_.textAttribute(), 0x62);
}

TEST_F(ConsoleWriterTest, RenditionAppliesToTheTextThatFollows) {
  write("a\x1b[35mb\x1b[0mc");
  EXPECT_EQ(console_.attributeAt(0, 0), 0x07);
  EXPECT_EQ(console_.attributeAt(1, 0), 0x05);
  EXPECT_EQ(console_.attributeAt(2, 0), 0x07);
}

// --- Cursor visibility -----------------------------------------------------------

TEST_F(ConsoleWriterTest, CursorIsHiddenWhileWritingAndRestoredAfter) {
  console_.setCursorInfo(CursorInfo{40, true});
  write("text");
  EXPECT_FALSE(console_.cursorVisibleAtLastWrite());
  EXPECT_EQ(console_.cursorInfo().size, 40u);
  EXPECT_TRUE(console_.cursorInfo().visible);
}

TEST_F(ConsoleWriterTest, PrivateSequenceHidesAndShowsTheCursor) {
  console_.setCursorInfo(CursorInfo{40, true});
  write("\x1b[?25l");
  EXPECT_FALSE(console_.cursorInfo().visible);
  EXPECT_EQ(console_.cursorInfo().size, 40u);
  write("x");
  EXPECT_FALSE(console_.cursorInfo().visible);
  write("\x1b[?25h");
  EXPECT_TRUE(console_.cursorInfo().visible);
}

TEST_F(ConsoleWriterTest, OtherCursorVisibilityFormsAreIgnored) {
  write("\x1b[?25;1l\x1b[?26l\x1b[25l\x1b[>25l\x1b[?l\x1b[?25k");
  EXPECT_TRUE(console_.cursorInfo().visible);
}

// --- UTF-8 -----------------------------------------------------------------------

TEST_F(ConsoleWriterTest, MultiByteCharactersBecomeUtf16) {
  write("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80!");
  EXPECT_EQ(console_.cell(0, 0).character, u'\u00e9');
  EXPECT_EQ(console_.cell(1, 0).character, u'\u20ac');
  EXPECT_EQ(console_.cell(2, 0).character, 0xD83D);
  EXPECT_EQ(console_.cell(3, 0).character, 0xDE00);
  EXPECT_EQ(console_.cell(4, 0).character, u'!');
  EXPECT_EQ(console_.rowString(0), "\u00e9\u20ac\U0001F600!");
}

TEST_F(ConsoleWriterTest, InvalidBytesAreDropped) {
  write(
      "a\x80"
      "b\xff"
      "c\xf8"
      "d\xbf"
      "e");
  EXPECT_EQ(console_.rowString(0), "abcde");
}

TEST_F(ConsoleWriterTest, MalformedSequencesAreDropped) {
  // Overlong, surrogate, above U+10FFFF, and a lead byte without its
  // continuation bytes: each sequence goes as a whole.
  write(
      "a\xc0\x80"
      "b\xed\xa0\x80"
      "c\xf4\x90\x80\x80"
      "d\xe2zz"
      "e");
  EXPECT_EQ(console_.rowString(0), "abcde");
}

TEST_F(ConsoleWriterTest, SequenceCutShortByTheEndOfTheCallIsDropped) {
  write("a\xe2\x82");
  write(
      "\xac"
      "b");
  EXPECT_EQ(console_.rowString(0), "ab");
}

TEST_F(ConsoleWriterTest, IncompleteSequenceTakesTheRestOfTheCallWithIt) {
  write(
      "a\xf0"
      "bc");
  write("d");
  EXPECT_EQ(console_.rowString(0), "ad");
}

TEST_F(ConsoleWriterTest, ControlCharactersReachTheConsole) {
  write("ab\rc\nd\te\bf");
  EXPECT_EQ(console_.rowString(0), "cb");
  EXPECT_EQ(console_.rowString(1), "d       f");
}

// --- Shift-out ---------------------------------------------------------------------

TEST_F(ConsoleWriterTest, ShiftOutDrawsLines) {
  write("\x0eq\x0fq");
  EXPECT_EQ(console_.cell(0, 0).character, u'\u2500');
  EXPECT_EQ(console_.cell(1, 0).character, u'q');
}

TEST_F(ConsoleWriterTest, ShiftOutTableCoversTheWholeRange) {
  MemoryConsole wide(40, 2);
  std::string bytes = "\x0e";
  for (int b = 0x5E; b <= 0x7F; ++b) {
    bytes += static_cast<char>(b);
  }
  write(wide, bytes);
  const std::u16string expected =
      u"^ "
      u"\u2666\u2592\u2409\u240C\u240D\u240A\u00B0\u00B1\u2424\u240B\u2518\u2510\u250C\u2514\u253C"
      u"\u00AF\u25AC\u2500__\u251C\u2524\u2534\u252C\u2502\u2264\u2265\u03C0\u2260\u00A3\u00B7\x7f";
  EXPECT_EQ(wide.rowText(0).substr(0, expected.size()), expected);
}

TEST_F(ConsoleWriterTest, ShiftOutLeavesOtherBytesAndEscapesAlone) {
  write(
      "\x0e"
      "AB\x1b[C1\xc3\xa9");
  EXPECT_EQ(console_.rowString(0), "AB 1\u00e9");
}

TEST_F(ConsoleWriterTest, ShiftOutLastsAcrossCalls) {
  write("\x0e");
  write("x");
  EXPECT_EQ(console_.cell(0, 0).character, u'\u2502');
}

// --- Output buffer -------------------------------------------------------------------

TEST_F(ConsoleWriterTest, LongTextIsFlushedInFullBuffersAndArrivesIntact) {
  MemoryConsole big(100, 60);
  std::string text;
  for (int i = 0; i < 5000; ++i) {
    text += static_cast<char>('a' + i % 26);
  }
  write(big, text);
  EXPECT_EQ(big.writeSizes(), (std::vector<std::size_t>{2048, 2048, 904}));
  for (int i = 0; i < 5000; ++i) {
    ASSERT_EQ(big.cell(i % 100, i / 100).character, static_cast<char16_t>(u'a' + i % 26)) << i;
  }
}

TEST_F(ConsoleWriterTest, SurrogatePairIsNotSplitBetweenFlushes) {
  MemoryConsole big(100, 60);
  write(big, std::string(2047, 'x') + "\xf0\x9f\x98\x80");
  EXPECT_EQ(big.writeSizes(), (std::vector<std::size_t>{2047, 2}));
  EXPECT_EQ(big.cell(47, 20).character, 0xD83D);
  EXPECT_EQ(big.cell(48, 20).character, 0xDE00);
}

TEST_F(ConsoleWriterTest, TextIsFlushedBeforeASequenceActs) {
  write("abc\x1b[2Gd");
  EXPECT_EQ(console_.rowString(0), "adc");
  EXPECT_EQ(console_.writeSizes(), (std::vector<std::size_t>{3, 1}));
}

}  // namespace
}  // namespace korvane::lineEdit
