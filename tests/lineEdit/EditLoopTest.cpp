#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <string>
#include <vector>

#include "lineEdit/CharacterWidth.h"
#include "lineEdit/EditLoop.h"
#include "lineEdit/History.h"
#include "tests/lineEdit/ScriptedTerminal.h"

namespace korvane::lineEdit {
namespace {

using test::ScriptedTerminal;

constexpr char16_t enter = 13;
constexpr char16_t ctrlA = 1, ctrlB = 2, ctrlC = 3, ctrlD = 4, ctrlE = 5, ctrlF = 6, ctrlH = 8,
                   tab = 9, ctrlK = 11, ctrlL = 12, ctrlN = 14, ctrlP = 16, ctrlT = 20, ctrlU = 21,
                   ctrlW = 23, esc = 27, del = 127;

EditSettings masked() { return {false, true, '*'}; }
EditSettings plain() { return {false, false, '*'}; }

struct Outcome {
  int result = 0;  // the line's length when accepted, otherwise -1
  LineEnd end = LineEnd::accepted;
  int error = 0;  // errno after a failed read or write, 0 otherwise
  std::string line;
  std::string buffer;  // the whole buffer afterwards
  std::vector<std::string> writes;
  std::string output;
  std::size_t keysLeft = 0;
};

struct Script {
  std::u16string keys{};
  EditSettings settings = masked();
  std::string prompt = "> ";
  int columns = 80;
  std::u32string codes{};  // key codes of any value, read instead of keys
  History* history = nullptr;
  std::size_t bufferSize = EditLoop::bufferSize;
  int writesBeforeFailure = -1;

  Outcome go() const {
    ScriptedTerminal terminal =
        codes.empty() ? ScriptedTerminal(keys, columns) : ScriptedTerminal(codes, columns);
    terminal.failWritesAfter(writesBeforeFailure);
    History local;
    History& used = history != nullptr ? *history : local;
    std::vector<char> buffer(bufferSize, 'Z');
    EditLoop loop(terminal, settings, used);
    Outcome outcome;
    errno = 0;
    const LineResult result = loop.run(buffer, prompt);
    const bool failed = result.end == LineEnd::readFailed || result.end == LineEnd::writeFailed;
    outcome.error = failed ? errno : 0;
    outcome.end = result.end;
    outcome.result = result.end == LineEnd::accepted ? static_cast<int>(result.length) : -1;
    if (result.end == LineEnd::accepted) {
      outcome.line.assign(buffer.data(), result.length);
      EXPECT_EQ(buffer[result.length], '\0');
    } else {
      EXPECT_EQ(result.length, 0u);
    }
    outcome.buffer.assign(buffer.data(), buffer.size());
    outcome.writes = terminal.writes();
    outcome.output = terminal.output();
    outcome.keysLeft = terminal.keysLeft();
    return outcome;
  }
};

// The bytes a single-line refresh writes.
std::string refreshed(std::string_view prompt, std::string_view shown, std::size_t cursorColumn) {
  return "\r" + std::string(prompt) + std::string(shown) + "\x1b[0K\r\x1b[" +
         std::to_string(cursorColumn) + "C";
}

TEST(EditLoopTest, TypingMaskedEchoesOneMaskPerCharacter) {
  const Outcome o = Script{.keys = u"abc\r"}.go();
  EXPECT_EQ(o.result, 3);
  EXPECT_EQ(o.line, "abc");
  EXPECT_EQ(o.writes, (std::vector<std::string>{"> ", "*", "*", "*"}));
}

TEST(EditLoopTest, TypingUnmaskedEchoesTheBytes) {
  const Outcome o = Script{.keys = u"ab\u00e9\r", .settings = plain()}.go();
  EXPECT_EQ(o.line, "ab\xc3\xa9");
  EXPECT_EQ(o.output, "> ab\xc3\xa9");
}

TEST(EditLoopTest, OtherMaskCharacter) {
  const Outcome o = Script{.keys = u"ab\r", .settings = {false, true, '#'}}.go();
  EXPECT_EQ(o.output, "> ##");
}

TEST(EditLoopTest, EnterOnEmptyLineReturnsEmptyString) {
  History history;
  const Outcome o = Script{.keys = u"\r", .history = &history}.go();
  EXPECT_EQ(o.result, 0);
  EXPECT_EQ(o.line, "");
  EXPECT_EQ(o.output, "> ");
  EXPECT_TRUE(history.empty());  // the entry being edited is removed
}

TEST(EditLoopTest, CtrlCCancels) {
  const Outcome o = Script{.keys = std::u16string(u"ab") + ctrlC + u"cd\r"}.go();
  EXPECT_EQ(o.result, -1);
  EXPECT_EQ(o.end, LineEnd::cancelled);
  EXPECT_EQ(o.keysLeft, 3u);
  EXPECT_EQ(o.buffer.substr(0, 3), std::string(3, '\0'));  // "ab" wiped
}

TEST(EditLoopTest, CtrlDOnEmptyLineCancels) {
  History history;
  const Outcome o = Script{.keys = std::u16string(1, ctrlD), .history = &history}.go();
  EXPECT_EQ(o.result, -1);
  EXPECT_EQ(o.end, LineEnd::cancelled);
  EXPECT_TRUE(history.empty());
}

TEST(EditLoopTest, CtrlDDeletesUnderCursor) {
  const Outcome o = Script{.keys = std::u16string(u"ab") + ctrlA + ctrlD + enter}.go();
  EXPECT_EQ(o.line, "b");
  ASSERT_EQ(o.writes.size(), 5u);
  EXPECT_EQ(o.writes[3], refreshed("> ", "**", 2));
  EXPECT_EQ(o.writes[4], refreshed("> ", "*", 2));
}

TEST(EditLoopTest, CtrlDAtEndOfNonEmptyLineDoesNothing) {
  const Outcome o = Script{.keys = std::u16string(u"ab") + ctrlD + enter}.go();
  EXPECT_EQ(o.line, "ab");
  EXPECT_EQ(o.writes.size(), 3u);
}

TEST(EditLoopTest, BackspaceRemovesWholeMultiByteCharacter) {
  const Outcome o = Script{.keys = std::u16string(u"a\u00e9\u20ac") + ctrlH + del + enter}.go();
  EXPECT_EQ(o.line, "a");
  ASSERT_EQ(o.writes.size(), 6u);
  EXPECT_EQ(o.writes[4], refreshed("> ", "**", 4));
  EXPECT_EQ(o.writes[5], refreshed("> ", "*", 3));
}

TEST(EditLoopTest, BackspaceAtStartDoesNothing) {
  const Outcome o = Script{.keys = std::u16string(u"a") + ctrlA + ctrlH + enter}.go();
  EXPECT_EQ(o.line, "a");
  EXPECT_EQ(o.writes.size(), 3u);  // prompt, echo, Home's refresh
}

TEST(EditLoopTest, WideCharacterEchoesTwoMasks) {
  const Outcome o = Script{.keys = u"\u4e2d\r"}.go();
  EXPECT_EQ(o.line, "\xe4\xb8\xad");
  EXPECT_EQ(o.writes, (std::vector<std::string>{"> ", "**"}));
}

TEST(EditLoopTest, SurrogatePairBecomesOneCodePoint) {
  // U+20000 is wide, U+1F600 is not in the wide ranges.
  const Outcome o = Script{.keys = u"\U00020000\U0001F600\r"}.go();
  EXPECT_EQ(o.line, "\xf0\xa0\x80\x80\xf0\x9f\x98\x80");
  EXPECT_EQ(o.writes, (std::vector<std::string>{"> ", "**", "*"}));
}

TEST(EditLoopTest, LoneLowSurrogateBecomesReplacementCharacter) {
  const Outcome o = Script{.keys = std::u16string(1, char16_t{0xDC00}) + enter}.go();
  EXPECT_EQ(o.line, "\xef\xbf\xbd");
}

TEST(EditLoopTest, CombiningMarkTakesNoColumnAndGoesWithItsCharacter) {
  const Outcome o =
      Script{.keys = std::u16string(u"ae\u0301") + ctrlB + ctrlB + ctrlF + ctrlF + ctrlH + enter}
          .go();
  EXPECT_EQ(o.line, "a");
  ASSERT_EQ(o.writes.size(), 9u);
  EXPECT_EQ(o.writes[3], "");                        // the mark's echo: no column
  EXPECT_EQ(o.writes[4], refreshed("> ", "**", 3));  // left over e + mark
  EXPECT_EQ(o.writes[5], refreshed("> ", "**", 2));
  EXPECT_EQ(o.writes[6], refreshed("> ", "**", 3));  // right over a
  EXPECT_EQ(o.writes[7], refreshed("> ", "**", 4));  // right over e + mark
  EXPECT_EQ(o.writes[8], refreshed("> ", "*", 3));   // both deleted
}

TEST(EditLoopTest, BackspaceRemovesCharacterWithItsMarks) {
  const Outcome o = Script{.keys = std::u16string(u"xe\u0301\u0302") + del + enter}.go();
  EXPECT_EQ(o.line, "x");
}

TEST(EditLoopTest, HomeEndLeftRight) {
  const Outcome o = Script{.keys = std::u16string(u"abc") + ctrlB + ctrlB + u"X" + ctrlA + u"Y" +
                                   ctrlE + u"Z" + ctrlF + ctrlA + ctrlA + enter}
                        .go();
  EXPECT_EQ(o.line, "YaXbcZ");
  const std::vector<std::string> expected = {
      "> ",
      "*",
      "*",
      "*",
      refreshed("> ", "***", 4),     // left
      refreshed("> ", "***", 3),     // left
      refreshed("> ", "****", 4),    // X inserted in the middle
      refreshed("> ", "****", 2),    // home
      refreshed("> ", "*****", 3),   // Y
      refreshed("> ", "*****", 7),   // end
      "*",                           // Z at the end: fast path
      refreshed("> ", "******", 2),  // home; right at the end did nothing
  };
  EXPECT_EQ(o.writes, expected);
}

TEST(EditLoopTest, KillToEnd) {
  const Outcome o = Script{.keys = std::u16string(u"abcd") + ctrlB + ctrlB + ctrlK + enter}.go();
  EXPECT_EQ(o.line, "ab");
  EXPECT_EQ(o.writes.back(), refreshed("> ", "**", 4));
}

TEST(EditLoopTest, KillLine) {
  const Outcome o = Script{.keys = std::u16string(u"abcd") + ctrlB + ctrlU + u"x" + enter}.go();
  EXPECT_EQ(o.line, "x");
  EXPECT_EQ(o.writes[o.writes.size() - 2], refreshed("> ", "", 2));
}

TEST(EditLoopTest, KillPreviousWord) {
  const Outcome o =
      Script{.keys = std::u16string(u"one two  ") + ctrlW + enter, .settings = plain()}.go();
  EXPECT_EQ(o.line, "one ");
  EXPECT_EQ(o.writes.back(), refreshed("> ", "one ", 6));
}

TEST(EditLoopTest, TransposeSwapsBytesAndAdvances) {
  const Outcome o =
      Script{.keys = std::u16string(u"abc") + ctrlA + ctrlF + ctrlT + enter, .settings = plain()}
          .go();
  EXPECT_EQ(o.line, "bac");
  EXPECT_EQ(o.writes.back(), refreshed("> ", "bac", 4));
}

TEST(EditLoopTest, TransposeBeforeLastCharacterKeepsCursor) {
  const Outcome o =
      Script{.keys = std::u16string(u"abc") + ctrlB + ctrlT + ctrlT + enter, .settings = plain()}
          .go();
  EXPECT_EQ(o.line, "abc");  // swapped twice at the same place
  EXPECT_EQ(o.writes.back(), refreshed("> ", "abc", 4));
}

TEST(EditLoopTest, TransposeAtEndDoesNothing) {
  const Outcome o = Script{.keys = std::u16string(u"ab") + ctrlT + enter}.go();
  EXPECT_EQ(o.line, "ab");
  EXPECT_EQ(o.writes.size(), 3u);
}

TEST(EditLoopTest, ClearScreen) {
  const Outcome o = Script{.keys = std::u16string(u"ab") + ctrlL + enter}.go();
  ASSERT_EQ(o.writes.size(), 5u);
  EXPECT_EQ(o.writes[3], "\x1b[H\x1b[2J");
  EXPECT_EQ(o.writes[4], refreshed("> ", "**", 4));
}

TEST(EditLoopTest, TabAndOtherControlsAreOrdinaryCharacters) {
  const Outcome o = Script{.keys = std::u16string(1, tab) + char16_t{7} + enter}.go();
  EXPECT_EQ(o.line, "\t\a");
  EXPECT_EQ(o.output, "> **");
}

TEST(EditLoopTest, NulKeyIsIgnored) {
  const Outcome o = Script{.keys = std::u16string(u"a") + char16_t{0} + u"b\r"}.go();
  EXPECT_EQ(o.line, "ab");
}

TEST(EditLoopTest, DeleteCharacterKeyDeletesUnderTheCursor) {
  // "abc" with the cursor after "b": the "c" goes.
  const Outcome o =
      Script{.codes = std::u32string(U"abc") + U'\x02' + keys::deleteCharacter + U'\r'}.go();
  EXPECT_EQ(o.line, "ab");
  EXPECT_EQ(o.writes.back(), refreshed("> ", "**", 4));
  // At the end of the line there is nothing under the cursor.
  const Outcome atEnd = Script{.codes = std::u32string(U"ab") + keys::deleteCharacter + U'\r'}.go();
  EXPECT_EQ(atEnd.line, "ab");
  EXPECT_EQ(atEnd.output, "> **");
}

TEST(EditLoopTest, DeleteCharacterKeyOnEmptyLineDoesNothing) {
  // Unlike Ctrl+D and the Delete key, it never ends the input.
  const Outcome o = Script{.codes = std::u32string(1, keys::deleteCharacter) + U'\r'}.go();
  EXPECT_EQ(o.result, 0);
  EXPECT_EQ(o.output, "> ");
}

TEST(EditLoopTest, EscapeKeyCodeIsIgnored) {
  // Escape sequences are resolved before the loop; a stray ESC never enters
  // the line.
  const Outcome o = Script{.keys = std::u16string(u"ab") + esc + u"c\r"}.go();
  EXPECT_EQ(o.result, 3);
  EXPECT_EQ(o.line, "abc");
  EXPECT_EQ(o.output, "> ***");
}

// Every single-line refresh keeps the prompt and the visible text within the
// width, with the cursor on the screen.
void expectWithinWidth(const Outcome& o, std::size_t promptColumns, std::size_t columns) {
  for (const std::string& w : o.writes) {
    if (w.empty() || w[0] != '\r') continue;
    const std::size_t clear = w.find("\x1b[0K");
    ASSERT_NE(clear, std::string::npos) << w;
    const std::string shown = w.substr(1, clear - 1);
    EXPECT_LE(columnWidth(shown), columns) << w;
    const std::size_t cursor = std::stoul(w.substr(clear + 7));
    EXPECT_LT(cursor, columns) << w;
    EXPECT_GE(cursor, promptColumns) << w;
  }
}

TEST(EditLoopTest, LongLineScrollsAtNarrowWidth) {
  std::u16string keys(20, u'x');
  keys += enter;
  const Outcome o = Script{.keys = keys, .columns = 10}.go();
  EXPECT_EQ(o.line, std::string(20, 'x'));
  // Seven characters fit next to "> " on a 10-column screen (the cursor
  // needs the last column), the eighth scrolls.
  ASSERT_EQ(o.writes.size(), 21u);
  for (std::size_t i = 1; i <= 7; ++i) EXPECT_EQ(o.writes[i], "*");
  EXPECT_EQ(o.writes[8], refreshed("> ", "*******", 9));
  EXPECT_EQ(o.writes[20], refreshed("> ", "*******", 9));
  expectWithinWidth(o, 2, 10);
}

TEST(EditLoopTest, ScrollingKeepsCursorVisibleWhenMovingLeft) {
  std::u16string keys(20, u'x');
  keys += std::u16string(15, ctrlB);
  keys += ctrlA;
  keys += enter;
  const Outcome o = Script{.keys = keys, .columns = 10}.go();
  expectWithinWidth(o, 2, 10);
  // At the start the text is cut on the right: 8 columns remain for it.
  EXPECT_EQ(o.writes.back(), refreshed("> ", "********", 2));
}

TEST(EditLoopTest, CursorOnTheLastColumnShowsTheCharacterUnderIt) {
  // "> ", seven characters and the cursor on the eighth fill the ten
  // columns exactly: the character under the cursor is shown in the last
  // column, none is dropped on the left for it.
  std::u16string keys = u"abcdefghij";
  keys += ctrlB;
  keys += enter;
  const Outcome o = Script{.keys = keys, .settings = plain(), .columns = 10}.go();
  EXPECT_EQ(o.line, "abcdefghij");
  EXPECT_EQ(o.writes.back(), refreshed("> ", "cdefghij", 9));
  expectWithinWidth(o, 2, 10);
}

TEST(EditLoopTest, WideCharactersScrollWithinWidth) {
  std::u16string keys;
  for (int i = 0; i < 9; ++i) keys += u"\u4e2da";
  keys += std::u16string(7, ctrlB);
  keys += enter;
  for (const EditSettings& settings : {masked(), plain()}) {
    const Outcome o = Script{.keys = keys, .settings = settings, .columns = 9}.go();
    EXPECT_EQ(o.result, 36);
    expectWithinWidth(o, 2, 9);
  }
}

TEST(EditLoopTest, InvalidUtf8FromTransposeStaysWithinWidth) {
  // Ctrl+T swaps single bytes of multi-byte characters (here a wide one
  // before a combining mark); the window must still fit the screen.
  const std::u16string keys = {
      0xE2, 0xFFFF, 0xFFFF, 0xFF93, 0x2D, 0x4B,   0x29, 0x2D,   0x4E, 0x7676, 0x76, 0x76, 0xEF,
      0x89, 0x8A,   0x2,    0x58,   0x1,  0x4E60, 0x14, 0x2DDF, 0xEF, 0xEF,   0xEF, 0xEF, 0xEF,
      0xEF, 0xEF,   0xEF,   0xEF,   0xEF, 0xEF,   0xEF, 0xEF,   0xEF, 0xEF,   0xEF, 0xEF, 0xEF,
      0xEF, 0x8A,   0x89,   0x8A,   0x2,  0x58,   0x1,  0x4E60, 0x14, 0x2DDF, 0x69, 0x69, 0x69,
      0x69, 0x69,   0x69,   0x69,   0xEF, 0xEF,   0xEF, 0xEF,   0xEF, 0xEF,   0xEF, 0xEF, 0xEF,
      0x69, 0x69,   0x69,   0x69,   0x69, 0x69,   0x69, enter};
  const Outcome o = Script{.keys = keys, .columns = 12}.go();
  EXPECT_GT(o.result, 0);
  expectWithinWidth(o, 2, 12);
}

TEST(EditLoopTest, PromptWithEscapeSequenceCountsVisibleColumnsOnly) {
  const std::string prompt = "\x1b[1mPW\x1b[0m: ";
  const Outcome o = Script{.keys = std::u16string(u"ab") + ctrlA + enter, .prompt = prompt}.go();
  EXPECT_EQ(o.writes.back(), refreshed(prompt, "**", 4));
}

TEST(EditLoopTest, InputStopsAt4095Bytes) {
  std::u16string keys(5000, u'a');
  keys += enter;
  const Outcome o = Script{.keys = keys, .columns = 10}.go();
  EXPECT_EQ(o.result, 4095);
  EXPECT_EQ(o.line, std::string(4095, 'a'));
}

TEST(EditLoopTest, CharacterThatDoesNotFitWholeIsDropped) {
  std::u16string keys(4093, u'a');
  keys += u"\u20ac\u00e9";  // 3 bytes do not fit, 2 do
  keys += enter;
  const Outcome o = Script{.keys = keys}.go();
  EXPECT_EQ(o.result, 4095);
  EXPECT_EQ(o.line.substr(4093), "\xc3\xa9");
}

TEST(EditLoopTest, SmallBufferLimitsTheLine) {
  const Outcome o = Script{.keys = u"abcdef\r", .bufferSize = 4}.go();
  EXPECT_EQ(o.line, "abc");
}

// A console that ends (a terminal that hung up) gives no line: what was
// typed is no entry, and the caller must not prompt again.
TEST(EditLoopTest, EndOfInputEndsWithoutALine) {
  for (const std::u16string& typed : {std::u16string(), std::u16string(u"abc")}) {
    const Outcome o = Script{.keys = typed}.go();
    EXPECT_EQ(o.result, -1);
    EXPECT_EQ(o.end, LineEnd::inputEnded);
    EXPECT_EQ(o.buffer.substr(0, typed.size()), std::string(typed.size(), '\0'))
        << "the typed text is wiped";
  }
}

TEST(EditLoopTest, EndOfInputAfterHighSurrogateEndsWithoutALine) {
  const Outcome o = Script{.keys = std::u16string(u"a") + char16_t{0xD83D}}.go();
  EXPECT_EQ(o.end, LineEnd::inputEnded);
}

TEST(EditLoopTest, EndOfInputIsNotReadAgain) {
  ScriptedTerminal terminal(u"ab");
  History history;
  std::array<char, 16> buffer{};
  EditLoop loop(terminal, masked(), history);
  EXPECT_EQ(loop.run(buffer, "> ").end, LineEnd::inputEnded);
  EXPECT_EQ(terminal.reads(), 3u);
}

TEST(EditLoopTest, ReadFailureEndsWithItsError) {
  ScriptedTerminal terminal(u"ab");
  terminal.failReadsAtEnd(EIO);
  History history;
  std::array<char, 16> buffer{};
  EditLoop loop(terminal, masked(), history);
  errno = 0;
  const LineResult result = loop.run(buffer, "> ");
  EXPECT_EQ(result.end, LineEnd::readFailed);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(result.length, 0u);
  EXPECT_EQ(std::string(buffer.data(), 3), std::string(3, '\0'));
  EXPECT_EQ(terminal.reads(), 3u);
}

TEST(EditLoopTest, ReadFailureAfterHighSurrogateEndsWithItsError) {
  ScriptedTerminal terminal(std::u16string(u"a") + char16_t{0xD83D});
  terminal.failReadsAtEnd(EIO);
  History history;
  std::array<char, 16> buffer{};
  EditLoop loop(terminal, masked(), history);
  EXPECT_EQ(loop.run(buffer, "> ").end, LineEnd::readFailed);
}

TEST(EditLoopTest, FailedPromptWriteFails) {
  const Outcome o = Script{.keys = u"a\r", .writesBeforeFailure = 0}.go();
  EXPECT_EQ(o.result, -1);
  EXPECT_EQ(o.end, LineEnd::writeFailed);
  EXPECT_EQ(o.error, EIO);
  EXPECT_EQ(o.keysLeft, 2u);  // no key is read for a prompt nobody saw
}

TEST(EditLoopTest, FailedEchoFails) {
  const Outcome o = Script{.keys = u"ab\r", .writesBeforeFailure = 2}.go();
  EXPECT_EQ(o.result, -1);
  EXPECT_EQ(o.end, LineEnd::writeFailed);
  EXPECT_EQ(o.error, EIO);
  EXPECT_EQ(o.keysLeft, 1u);
  EXPECT_EQ(o.buffer.substr(0, 3), std::string(3, '\0'));
}

// A refresh that cannot be written means the console is gone as much as a
// failed echo: the line ends at that key.
TEST(EditLoopTest, FailedRefreshFails) {
  const Outcome o =
      Script{.keys = std::u16string(u"ab") + ctrlA + u"c\r", .writesBeforeFailure = 3}.go();
  EXPECT_EQ(o.result, -1);
  EXPECT_EQ(o.end, LineEnd::writeFailed);
  EXPECT_EQ(o.keysLeft, 2u);
  EXPECT_EQ(o.writes.size(), 3u);
}

TEST(EditLoopTest, NothingIsWrittenAfterAFailedWrite) {
  // Enter in multi-line mode moves to the end first: one refresh, then the
  // line would be accepted.
  const Outcome o = Script{.keys = std::u16string(u"ab") + ctrlA + enter,
                           .settings = {true, true, '*'},
                           .writesBeforeFailure = 3}
                        .go();
  EXPECT_EQ(o.end, LineEnd::writeFailed);
  EXPECT_EQ(o.writes.size(), 3u);
}

// Bytes that are not UTF-8 (keys::notUtf8) leave no trace on the screen
// and make the line be refused on Enter, whatever it holds by then.
TEST(EditLoopTest, NotUtf8RefusesTheLineOnEnter) {
  const Outcome o = Script{.codes = std::u32string(U"vL") + keys::notUtf8 + U"p2\r"}.go();
  EXPECT_EQ(o.result, -1);
  EXPECT_EQ(o.end, LineEnd::notUtf8);
  EXPECT_EQ(o.output, "> ****");
  EXPECT_EQ(o.keysLeft, 0u);
  EXPECT_EQ(o.buffer.substr(0, 5), std::string(5, '\0'));
}

TEST(EditLoopTest, NotUtf8IsNotForgottenByEditing) {
  const Outcome o = Script{.codes = std::u32string(U"a") + keys::notUtf8 + U"b" + char32_t{ctrlU} +
                                    U"abc" + char32_t{ctrlA} + char32_t{ctrlK} + U"\r"}
                        .go();
  EXPECT_EQ(o.end, LineEnd::notUtf8);
}

TEST(EditLoopTest, NotUtf8OnAnEmptyLineRefusesIt) {
  const Outcome o = Script{.codes = std::u32string(1, keys::notUtf8) + U"\r"}.go();
  EXPECT_EQ(o.end, LineEnd::notUtf8);
  EXPECT_EQ(o.output, "> ");
}

TEST(EditLoopTest, NotUtf8ThenCancelOrEndIsNoRefusal) {
  EXPECT_EQ(Script{.codes = std::u32string(U"a") + keys::notUtf8 + char32_t{ctrlC}}.go().end,
            LineEnd::cancelled);
  EXPECT_EQ(Script{.codes = std::u32string(U"a") + keys::notUtf8}.go().end, LineEnd::inputEnded);
}

TEST(EditLoopTest, NotUtf8DoesNotCarryOverToTheNextLine) {
  ScriptedTerminal terminal(std::u32string(U"a") + keys::notUtf8 + U"\rb\r");
  History history;
  std::array<char, 16> buffer{};
  EditLoop loop(terminal, masked(), history);
  EXPECT_EQ(loop.run(buffer, "> ").end, LineEnd::notUtf8);
  const LineResult second = loop.run(buffer, "> ");
  EXPECT_EQ(second.end, LineEnd::accepted);
  EXPECT_EQ(std::string(buffer.data(), second.length), "b");
}

TEST(EditLoopTest, UpAndDownDoNothingWithoutHistory) {
  const Outcome o = Script{.keys = std::u16string(u"ab") + ctrlP + ctrlN + enter}.go();
  EXPECT_EQ(o.line, "ab");
  EXPECT_EQ(o.output, "> **");
}

TEST(EditLoopTest, HistoryPreviousAndNext) {
  History history;
  history.add("first");
  history.add("second");
  const Outcome o = Script{.keys = std::u16string(u"x") + ctrlP + ctrlP + ctrlP + ctrlN + u"Z" +
                                   ctrlN + ctrlP + ctrlN + ctrlN + enter,
                           .settings = plain(),
                           .history = &history}
                        .go();
  EXPECT_EQ(o.line, "x");
  const std::vector<std::string> expected = {
      "> ",
      "x",
      refreshed("> ", "second", 8),   // up
      refreshed("> ", "first", 7),    // up; the third up is clamped
      refreshed("> ", "second", 8),   // down
      "Z",                            // typed at the end
      refreshed("> ", "x", 3),        // down: back to the edited line
      refreshed("> ", "secondZ", 9),  // up: the change was kept
      refreshed("> ", "x", 3),        // down; the last down is clamped
  };
  EXPECT_EQ(o.writes, expected);
  ASSERT_EQ(history.size(), 2u);
  EXPECT_EQ(history.fromNewest(0), "secondZ");
  EXPECT_EQ(history.fromNewest(1), "first");
}

TEST(EditLoopTest, MultiLineRefreshWrapsRows) {
  std::u16string keys(9, u'x');
  keys += ctrlA;
  keys += ctrlE;
  keys += ctrlA;
  keys += enter;
  const Outcome o = Script{.keys = keys, .settings = {true, true, '*'}, .columns = 10}.go();
  EXPECT_EQ(o.line, std::string(9, 'x'));
  ASSERT_EQ(o.writes.size(), 14u);
  EXPECT_EQ(o.writes[1], "\r\x1b[0K> *\r\x1b[3C");
  EXPECT_EQ(o.writes[7], "\r\x1b[0K> *******\r\x1b[9C");
  // The eighth character fills the row: the cursor goes to the next one.
  EXPECT_EQ(o.writes[8], "\r\x1b[0K> ********\n\r\r");
  EXPECT_EQ(o.writes[9], "\r\x1b[0K\x1b[1A\r\x1b[0K> *********\r\x1b[1C");
  // Home: clear both rows, draw, go up one row to the prompt's end.
  EXPECT_EQ(o.writes[10], "\r\x1b[0K\x1b[1A\r\x1b[0K> *********\x1b[1A\r\x1b[2C");
  // End: first down to the last row used, then the same.
  EXPECT_EQ(o.writes[11], "\x1b[1B\r\x1b[0K\x1b[1A\r\x1b[0K> *********\r\x1b[1C");
  EXPECT_EQ(o.writes[12], "\r\x1b[0K\x1b[1A\r\x1b[0K> *********\x1b[1A\r\x1b[2C");
  // Enter moves to the end first.
  EXPECT_EQ(o.writes[13], "\x1b[1B\r\x1b[0K\x1b[1A\r\x1b[0K> *********\r\x1b[1C");
}

TEST(EditLoopTest, MultiLineWideCharacterAtRowEndWraps) {
  // "> " and seven columns leave one column: the wide character goes to the
  // next row and the cursor ends after it at column 2.
  const Outcome o =
      Script{.keys = u"aaaaaaa\u4e2d\r", .settings = {true, false, '*'}, .columns = 10}.go();
  EXPECT_EQ(o.writes.back(), "\r\x1b[0K> aaaaaaa\xe4\xb8\xad\r\x1b[2C");
}

}  // namespace
}  // namespace korvane::lineEdit
