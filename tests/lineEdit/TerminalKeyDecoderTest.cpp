#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "lineEdit/TerminalKeyDecoder.h"

namespace korvane::lineEdit {
namespace {

// Bytes as they arrive, then the end of input (or a failure, when asked).
class ScriptedBytes : public TerminalKeyDecoder::ByteSource {
 public:
  // pauses: indices of bytes before which the source times out once.
  ScriptedBytes(std::string bytes, std::vector<std::size_t> pauses = {})
      : bytes_(std::move(bytes)), pauses_(std::move(pauses)) {}

  // What a read after the last byte gives: the end of input (0), a read
  // error (-1 with EIO), or, for a timed read, a timeout (-1 with ETIMEDOUT).
  enum class End { input, failure, timeout };

  // After the last byte: what an untimed read gives, and what a timed one
  // gives instead of a timeout (for the end of input in mid-key).
  void endWith(End untimed, End timed) {
    untimedEnd_ = untimed;
    timedEnd_ = timed;
  }
  std::size_t readsAtEnd() const { return readsAtEnd_; }

  int read(unsigned char& byte, int timeoutMilliseconds) override {
    for (std::size_t& pause : pauses_) {
      if (pause == next_) {
        pause = static_cast<std::size_t>(-1);
        if (timeoutMilliseconds >= 0) return fail(ETIMEDOUT);
      }
    }
    if (next_ == bytes_.size()) {
      ++readsAtEnd_;
      switch (timeoutMilliseconds >= 0 ? timedEnd_ : untimedEnd_) {
        case End::input:
          return 0;
        case End::failure:
          return fail(EIO);
        case End::timeout:
          return fail(ETIMEDOUT);
      }
    }
    byte = static_cast<unsigned char>(bytes_[next_++]);
    return 1;
  }

 private:
  std::string bytes_;
  std::vector<std::size_t> pauses_;
  std::size_t next_ = 0;
  static int fail(int error) {
    errno = error;
    return -1;
  }

  End untimedEnd_ = End::input;
  End timedEnd_ = End::timeout;
  std::size_t readsAtEnd_ = 0;
};

// Stands for keys::notUtf8 in decoded text.
constexpr char16_t bad = u'\uFFFF';

std::u16string decodeFrom(ScriptedBytes& source, int& last) {
  TerminalKeyDecoder decoder(source);
  std::u16string keys;
  KeyCode key = 0;
  while ((last = decoder.readKey(key)) == 1) {
    if (key == keys::notUtf8) {
      keys += bad;
      continue;
    }
    EXPECT_LE(key, 0xFFFFu) << "not a UTF-16 code unit";
    keys += static_cast<char16_t>(key);
  }
  return keys;
}

std::u16string decode(std::string bytes, std::vector<std::size_t> pauses = {}) {
  ScriptedBytes source(std::move(bytes), std::move(pauses));
  int last = 1;
  std::u16string keys = decodeFrom(source, last);
  EXPECT_EQ(last, 0);
  return keys;
}

TEST(TerminalKeyDecoderTest, ControlBytesPassThrough) {
  std::string bytes;
  std::u16string expected;
  for (int b = 1; b < 32; ++b) {
    if (b == 27) continue;
    bytes += static_cast<char>(b);
    expected += static_cast<char16_t>(b == 10 ? 13 : b);
  }
  bytes += '\x7f';
  expected += u'\x7f';
  EXPECT_EQ(decode(bytes), expected);
}

TEST(TerminalKeyDecoderTest, LineFeedIsEnter) { EXPECT_EQ(decode("a\n"), u"a\r"); }

TEST(TerminalKeyDecoderTest, NulIsSkipped) { EXPECT_EQ(decode(std::string("a\0b", 3)), u"ab"); }

TEST(TerminalKeyDecoderTest, LoneEscapeCancels) {
  EXPECT_EQ(decode("\x1b"), u"\x03");
  // A pause after ESC: the Escape key, then an ordinary '['.
  EXPECT_EQ(decode("\x1b[A", {1}), u"\x03[A");
}

TEST(TerminalKeyDecoderTest, CursorKeys) {
  EXPECT_EQ(decode("\x1b[A\x1b[B\x1b[C\x1b[D"), u"\x10\x0e\x06\x02");
}

TEST(TerminalKeyDecoderTest, HomeEndDelete) {
  EXPECT_EQ(decode("\x1b[H\x1bOH\x1b[1~\x1b[7~"), u"\x01\x01\x01\x01");
  EXPECT_EQ(decode("\x1b[F\x1bOF\x1b[4~\x1b[8~"), u"\x05\x05\x05\x05");
  EXPECT_EQ(decode("\x1b[3~"), u"\x04");
}

TEST(TerminalKeyDecoderTest, OtherSequencesAreIgnored) {
  EXPECT_EQ(decode("a\x1b[5~b"), u"ab");     // Page Up
  EXPECT_EQ(decode("a\x1b[1;5Cb"), u"ab");   // Ctrl+Right
  EXPECT_EQ(decode("a\x1b[15;2~b"), u"ab");  // Shift+F5
  EXPECT_EQ(decode("a\x1bOPb"), u"ab");      // F1
  EXPECT_EQ(decode("a\x1b[200~b"), u"ab");
  EXPECT_EQ(decode("a\x1bxb"), u"ab");  // Alt+x
  EXPECT_EQ(decode("a\x1b[?1;2cb"), u"ab");
}

TEST(TerminalKeyDecoderTest, FinalBytesAtTheEdgesOfTheirRangeEndASequence) {
  // '@' and '~' are the first and last final bytes: the sequence ends
  // there, and the next byte is a key of its own.
  EXPECT_EQ(decode("a\x1b[@b"), u"ab");
  EXPECT_EQ(decode("a\x1b[2@b"), u"ab");
  EXPECT_EQ(decode("a\x1b[2~b"), u"ab");
  EXPECT_EQ(decode("a\x1b[ @b"), u"ab");
}

TEST(TerminalKeyDecoderTest, SequenceCutShortByControlKeyKeepsTheKey) {
  EXPECT_EQ(decode("\x1b[1\x03"), u"\x03");
  EXPECT_EQ(decode("\x1b\x0d"), u"\x03\r");
}

TEST(TerminalKeyDecoderTest, IncompleteSequenceIsDropped) {
  EXPECT_EQ(decode("\x1b[1"), u"");
  EXPECT_EQ(decode("\x1b[1;5", {5}), u"");
}

// ESC [ and `count` parameter bytes ("1;1;1;..."), without the final byte.
std::string longSequenceStart(std::size_t count) {
  std::string bytes = "\x1b[";
  for (std::size_t i = 0; i < count; ++i) bytes += i % 2 == 0 ? '1' : ';';
  return bytes;
}

TEST(TerminalKeyDecoderTest, RunawaySequenceEnds) {
  EXPECT_EQ(decode("\x1b[" + std::string(100, '1') + "~x"), u"x");
}

// Sequences longer than any key are read to their final byte: none of their
// bytes becomes part of the line, whatever their length.
TEST(TerminalKeyDecoderTest, LongSequencesAreIgnoredEntirely) {
  std::string thirtyParameters = "\x1b[";
  for (int i = 0; i < 30; ++i) thirtyParameters += "1;";
  EXPECT_EQ(decode("a" + thirtyParameters + "12mb"), u"ab");
  for (const std::size_t count : {std::size_t{60}, std::size_t{1000}, std::size_t{100000}}) {
    SCOPED_TRACE(count);
    EXPECT_EQ(decode("a" + longSequenceStart(count) + "mb"), u"ab");
    EXPECT_EQ(decode(longSequenceStart(count) + "m"), u"");
  }
}

TEST(TerminalKeyDecoderTest, LongSequenceThenKnownKey) {
  const std::string noise = longSequenceStart(1000) + "m";
  EXPECT_EQ(decode(noise + "\x1b[D"), u"\x02");
  EXPECT_EQ(decode(noise + "\x1b[3~x"), u"\x04x");
  EXPECT_EQ(decode("\x1b[A" + noise + "\x1bOH" + noise + "\x1b[8~"), u"\x10\x01\x05");
  EXPECT_EQ(decode(noise + noise + "\x1b"), u"\x03");
}

// A long sequence whose first parameter bytes are those of a key is still
// no key.
TEST(TerminalKeyDecoderTest, LongSequenceIsNoKey) {
  EXPECT_EQ(decode("a\x1b[3" + std::string(60, ';') + "~b"), u"ab");
  EXPECT_EQ(decode("a\x1b[" + std::string(4, '1') + "~b"), u"ab");
  EXPECT_EQ(decode("a\x1b[" + std::string(5, '1') + "~b"), u"ab");
  EXPECT_EQ(decode("a" + longSequenceStart(1000) + "Ab"), u"ab");
}

TEST(TerminalKeyDecoderTest, LongSequenceWithIntermediatesIsIgnored) {
  EXPECT_EQ(decode("a" + longSequenceStart(1000) + " qb"), u"ab");
  EXPECT_EQ(decode("a\x1b[" + std::string(1000, ' ') + "qb"), u"ab");
}

TEST(TerminalKeyDecoderTest, LongSequenceCutShortByControlKeyKeepsTheKey) {
  EXPECT_EQ(decode(longSequenceStart(1000) + "\x03"), u"\x03");
  EXPECT_EQ(decode("a" + longSequenceStart(1000) + "\rb"), u"a\rb");
}

TEST(TerminalKeyDecoderTest, LongIncompleteSequenceIsDropped) {
  EXPECT_EQ(decode(longSequenceStart(1000)), u"");
}

TEST(TerminalKeyDecoderTest, Utf8BecomesUtf16) {
  EXPECT_EQ(decode("\xc3\xa9\xe2\x82\xac\xe4\xb8\xad"), u"\u00e9\u20ac\u4e2d");
  EXPECT_EQ(decode("\xf0\x9f\x98\x80"), u"\U0001F600");
  EXPECT_EQ(decode("\xf4\x8f\xbf\xbf"), u"\U0010FFFF");
}

// Skipping such bytes would hand on another line than the one typed: each
// place they come is marked instead.
TEST(TerminalKeyDecoderTest, InvalidUtf8IsMarked) {
  EXPECT_EQ(decode("vL\xf6p2"), u"vL\uFFFFp2");          // Latin-1 ö
  EXPECT_EQ(decode("a\x80z"), u"a\uFFFFz");              // stray continuation
  EXPECT_EQ(decode("a\xc0\xafz"), u"a\uFFFF\uFFFFz");    // C0 begins nothing
  EXPECT_EQ(decode("a\xe0\x80\xafz"), u"a\uFFFFz");      // overlong
  EXPECT_EQ(decode("a\xed\xa0\x80z"), u"a\uFFFFz");      // surrogate
  EXPECT_EQ(decode("a\xf4\x90\x80\x80z"), u"a\uFFFFz");  // above U+10FFFF
  EXPECT_EQ(decode("a\xff\xfez"), u"a\uFFFF\uFFFFz");
  EXPECT_EQ(decode("a\xc3z"), u"a\uFFFFz");  // cut short
  EXPECT_EQ(decode("a\xe2\x82"), u"a\uFFFF");
  EXPECT_EQ(decode("\xe2\x82\x03"), u"\uFFFF\x03");
}

TEST(TerminalKeyDecoderTest, TruncatedCharacterTimesOut) {
  // C3 is cut short when A9 comes too late, and A9 alone is no character.
  EXPECT_EQ(decode("\xc3\xa9", {1}), u"\uFFFF\uFFFF");
}

TEST(TerminalKeyDecoderTest, EndInMidCharacterIsMarked) {
  ScriptedBytes source("a\xc3");
  source.endWith(ScriptedBytes::End::input, ScriptedBytes::End::input);
  int last = 1;
  EXPECT_EQ(decodeFrom(source, last), u"a\uFFFF");
  EXPECT_EQ(last, 0);
}

TEST(TerminalKeyDecoderTest, ReadFailureIsReported) {
  ScriptedBytes source("ab");
  source.endWith(ScriptedBytes::End::failure, ScriptedBytes::End::failure);
  int last = 1;
  EXPECT_EQ(decodeFrom(source, last), u"ab");
  EXPECT_EQ(last, -1);
  EXPECT_EQ(errno, EIO);
}

// A failure in mid-sequence is not taken for the Escape key.
TEST(TerminalKeyDecoderTest, ReadFailureAfterEscapeIsReported) {
  ScriptedBytes source("a\x1b");
  source.endWith(ScriptedBytes::End::failure, ScriptedBytes::End::failure);
  int last = 1;
  EXPECT_EQ(decodeFrom(source, last), u"a");
  EXPECT_EQ(last, -1);
  EXPECT_EQ(errno, EIO);
}

TEST(TerminalKeyDecoderTest, EndOfInputStaysEnded) {
  ScriptedBytes source("a");
  TerminalKeyDecoder decoder(source);
  KeyCode key = 0;
  ASSERT_EQ(decoder.readKey(key), 1);
  EXPECT_EQ(decoder.readKey(key), 0);
  EXPECT_EQ(decoder.readKey(key), 0);
  EXPECT_EQ(source.readsAtEnd(), 1u);
}

// A failure is reported again, with its errno, without reading again.
TEST(TerminalKeyDecoderTest, ReadFailureStaysWithItsError) {
  ScriptedBytes source("a");
  source.endWith(ScriptedBytes::End::failure, ScriptedBytes::End::failure);
  TerminalKeyDecoder decoder(source);
  KeyCode key = 0;
  ASSERT_EQ(decoder.readKey(key), 1);
  EXPECT_EQ(decoder.readKey(key), -1);
  errno = 0;
  EXPECT_EQ(decoder.readKey(key), -1);
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(source.readsAtEnd(), 1u);
}

}  // namespace
}  // namespace korvane::lineEdit
