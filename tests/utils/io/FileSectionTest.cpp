// FileSection: reads from its offset to the end while the File is read
// from its own position, which the section leaves alone, and stops once
// told to.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>

#include "tests/utils/io/ScratchFile.h"
#include "utils/io/File.h"
#include "utils/io/FileSection.h"

namespace korvane::utils::io {
namespace {

std::string readAll(InputStream<char>& stream) {
  std::string text;
  while (stream.ensureBuffer()) {
    const auto buffered = stream.buffered();
    text.append(buffered.data(), buffered.size());
    stream.consume(buffered.size());
  }
  return text;
}

TEST(FileSectionTest, ReadsFromItsOffsetBesideTheFile) {
  const test::ScratchFile scratch("0123456789abcdef");
  File file(scratch.path(), File::Access::read);
  EXPECT_EQ(file.size(), 16u);
  char head[4];
  ASSERT_EQ(file.read(head), 4u);
  FileSection section(file, 10);
  EXPECT_EQ(readAll(section), "abcdef");
  EXPECT_EQ(section.offset(), 6u);
  char next[4];
  ASSERT_EQ(file.read(next), 4u);
  EXPECT_EQ(std::string(next, 4), "4567");
  FileSection past(file, 20);
  EXPECT_EQ(readAll(past), "");
}

TEST(FileSectionTest, StopsReadingOnceTold) {
  const test::ScratchFile scratch(std::string(200000, 'x'));
  const File file(scratch.path(), File::Access::read);
  std::atomic<bool> stop{false};
  FileSection section(file, 0, &stop);
  ASSERT_TRUE(section.ensureBuffer());
  section.consume(section.buffered().size());
  stop = true;
  EXPECT_THROW(section.ensureBuffer(), std::runtime_error);
}

}  // namespace
}  // namespace korvane::utils::io
