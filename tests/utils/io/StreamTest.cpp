// The buffering of InputStream and OutputStream over in-memory sources and
// sinks; the same on every system.
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>

#include "utils/io/InputStream.h"
#include "utils/io/OutputStream.h"

namespace korvane::utils::io {
namespace {

// A source that hands out its text a few characters at a time, so that
// every buffer boundary is crossed.
class ChunkedInputStream : public InputStream<char> {
 public:
  ChunkedInputStream(std::string text, std::size_t bufferSize)
      : InputStream<char>(bufferSize), text_(std::move(text)) {}

 protected:
  std::size_t readSome(std::span<char> into) override {
    const std::size_t count = std::min(into.size(), text_.size() - offset_);
    text_.copy(into.data(), count, offset_);
    offset_ += count;
    return count;
  }

 private:
  std::string text_;
  std::size_t offset_ = 0;
};

class RecordingOutputStream : public OutputStream<char> {
 public:
  explicit RecordingOutputStream(std::size_t bufferSize) : OutputStream<char>(bufferSize) {}
  std::string written;
  int writes = 0;
  bool failNext = false;

 protected:
  void writeSome(std::span<const char> text) override {
    if (failNext) throw std::runtime_error("sink failed");
    written.append(text.data(), text.size());
    ++writes;
  }
};

std::string readAll(InputStream<char>& stream) {
  std::string text;
  for (int c; (c = stream.get()) >= 0;) text.push_back(static_cast<char>(c));
  return text;
}

TEST(InputStreamTest, ReadsAcrossEveryBufferBoundary) {
  std::string text;
  for (int i = 0; i < 300; ++i) text.push_back(static_cast<char>(i));
  for (std::size_t size = 1; size <= 17; ++size) {
    ChunkedInputStream stream(text, size);
    EXPECT_EQ(readAll(stream), text) << size;
    EXPECT_EQ(stream.offset(), text.size());
    EXPECT_FALSE(stream.ensureBuffer());
    EXPECT_EQ(stream.get(), -1);
  }
}

TEST(InputStreamTest, EmptyInputEndsAtOnce) {
  ChunkedInputStream stream("", 4);
  EXPECT_FALSE(stream.ensureBuffer());
  EXPECT_EQ(stream.get(), -1);
}

TEST(InputStreamTest, BufferedSpanAndConsume) {
  ChunkedInputStream stream("abcdef", 4);
  ASSERT_TRUE(stream.ensureBuffer());
  EXPECT_EQ(std::string(stream.buffered().begin(), stream.buffered().end()), "abcd");
  stream.consume(3);
  EXPECT_EQ(stream.get(), 'd');
  EXPECT_EQ(stream.buffered().size(), 0u);
  EXPECT_EQ(stream.get(), 'e');
}

// A source whose every read fails.
class FailingInputStream : public InputStream<char> {
 public:
  FailingInputStream() : InputStream<char>(4) {}

 protected:
  std::size_t readSome(std::span<char>) override { throw std::runtime_error("source failed"); }
};

// A read failure is never taken for the end of the input.
TEST(InputStreamTest, AReadFailureIsThrownNotTheEnd) {
  FailingInputStream stream;
  EXPECT_THROW((void)stream.ensureBuffer(), std::runtime_error);
  EXPECT_THROW((void)stream.get(), std::runtime_error);
}

TEST(OutputStreamTest, BuffersAndFlushes) {
  RecordingOutputStream stream(4);
  stream.write("ab");
  EXPECT_EQ(stream.written, "");
  stream.write("cde");
  stream.put('f');
  stream.write("a long text beyond the buffer");
  stream.flush();
  EXPECT_EQ(stream.written, "abcdefa long text beyond the buffer");
}

TEST(OutputStreamTest, FirstFailureIsKeptForFlush) {
  RecordingOutputStream stream(4);
  stream.failNext = true;
  stream.writeNoThrow("abcdefgh");  // does not throw
  stream.failNext = false;
  stream.writeNoThrow("ij");
  EXPECT_THROW(stream.flush(), std::runtime_error);
  EXPECT_THROW(stream.write("more text than fits"), std::runtime_error);
}

// Lends the stream pieces of an arena of its own, of sizes that vary from
// smaller than the stream's buffer to larger, and records whether each
// span handed back lies where it was lent.
class LendingOutputStream : public OutputStream<char> {
 public:
  explicit LendingOutputStream(std::size_t bufferSize)
      : OutputStream<char>(bufferSize), bufferSize_(bufferSize) {
    fillInPlace(nextSpace());
  }
  std::string arena = std::string(1 << 16, '\0');
  std::string written;
  int inPlace = 0;
  int copied = 0;
  bool overran = false;  // a span in place longer than the stream may fill

  void returnToOwnBuffer() { fillOwnBuffer(); }

 protected:
  void writeSome(std::span<const char> text) override {
    fillOwnBuffer();  // nothing is buffered here: nothing to move
    if (text.data() == arena.data() + lent_) {
      ++inPlace;
      overran = overran || text.size() > std::min(lentSize_, bufferSize_);
      lent_ += text.size();
    } else {
      ++copied;
    }
    written.append(text.data(), text.size());
    fillInPlace(nextSpace());
  }

 private:
  std::span<char> nextSpace() {
    lentSize_ = 13 - (lends_++ * 5) % 13;  // 13, 8, 3, 11, ...
    return {arena.data() + lent_, lentSize_};
  }

  std::size_t bufferSize_ = 0;
  std::size_t lent_ = 0;
  std::size_t lentSize_ = 0;
  std::size_t lends_ = 0;
};

TEST(OutputStreamTest, FillsTheSpaceLentInPlaceAndHandsItBackWhereItLies) {
  LendingOutputStream stream(8);
  std::string expected;
  for (std::size_t piece = 0; piece < 200; ++piece) {
    // Pieces of 0 to 10 bytes, some larger than the buffer or a space.
    const std::string text(piece % 11, static_cast<char>('a' + piece % 26));
    if (piece % 7 == 3) {
      stream.put('#');
      expected += '#';
    }
    stream.write(text);
    expected += text;
  }
  stream.flush();
  EXPECT_EQ(stream.written, expected);
  // Only texts at least as large as the room left come from elsewhere;
  // none is lost, and none buffered runs past its space or the buffer's size.
  EXPECT_GT(stream.inPlace, 50);
  EXPECT_GT(stream.copied, 0);
  EXPECT_FALSE(stream.overran);
  EXPECT_EQ(stream.arena.substr(0, 5), expected.substr(0, 5));
}

TEST(OutputStreamTest, ReturningToItsOwnBufferKeepsWhatIsBuffered) {
  LendingOutputStream stream(8);
  stream.write("ab");
  stream.returnToOwnBuffer();
  stream.write("cd");
  EXPECT_EQ(stream.written, "");
  stream.flush();
  EXPECT_EQ(stream.written, "abcd");
  // From its own buffer: handed over as a copy.
  EXPECT_EQ(stream.inPlace, 0);
  EXPECT_EQ(stream.copied, 1);
}

}  // namespace
}  // namespace korvane::utils::io
