#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <system_error>

#include "tests/utils/io/ScratchFile.h"
#include "utils/io/File.h"
#include "utils/io/ReadAhead.h"

namespace korvane::utils::io {
namespace {

using test::ScratchFile;

std::string patterned(std::size_t size) {
  std::string text(size, '\0');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('a' + (i * 7 + i / 13) % 26);
  return text;
}

std::string readAll(ReadAhead& reader) {
  std::string text;
  for (auto block = reader.next(); !block.empty(); block = reader.next()) {
    text.append(block.data(), block.size());
  }
  return text;
}

TEST(ReadAheadTest, DeliversTheWholeFileInOrderWhateverTheBlocks) {
  const std::string content = patterned(100003);
  const ScratchFile scratch(content);
  for (const std::size_t blockSize : {1u, 7u, 4096u, 200000u}) {
    for (const std::size_t blockCount : {1u, 2u, 5u}) {
      if (blockSize == 1 && blockCount != 5) continue;  // slow and adds nothing
      SCOPED_TRACE(std::to_string(blockSize) + " x " + std::to_string(blockCount));
      File file(scratch.path(), File::Access::read);
      ReadAhead reader(file, blockSize, blockCount);
      EXPECT_EQ(readAll(reader), content);
      // The end stays the end.
      EXPECT_TRUE(reader.next().empty());
      EXPECT_TRUE(reader.next().empty());
    }
  }
}

TEST(ReadAheadTest, StartsWhereTheFileWasLeft) {
  const std::string content = patterned(5000);
  const ScratchFile scratch(content);
  File file(scratch.path(), File::Access::read);
  char first[1000];
  ASSERT_EQ(file.read(first), sizeof first);
  ReadAhead reader(file, 512, 3);
  EXPECT_EQ(std::string(first, sizeof first) + readAll(reader), content);
}

TEST(ReadAheadTest, AnEmptyFileEndsAtOnce) {
  const ScratchFile scratch("");
  File file(scratch.path(), File::Access::read);
  ReadAhead reader(file);
  EXPECT_TRUE(reader.next().empty());
}

TEST(ReadAheadTest, AFailureToReadIsThrownAsTheFileThrowsItAndStays) {
  const ScratchFile scratch("");
  std::string direct;
  {
    // Open for writing only: every read fails.
    File file(scratch.path(), File::Access::createOrTruncate);
    char byte = 0;
    try {
      file.read({&byte, 1});
      FAIL() << "a file open for writing was read";
    } catch (const std::system_error& error) {
      direct = error.what();
    }
  }
  File file(scratch.path(), File::Access::createOrTruncate);
  ReadAhead reader(file, 64, 2);
  for (int attempt = 0; attempt < 2; ++attempt) {
    try {
      reader.next();
      FAIL() << "no failure";
    } catch (const std::system_error& error) {
      EXPECT_EQ(std::string(error.what()), direct);
      EXPECT_NE(std::string(error.what()).find(scratch.path().string()), std::string::npos);
    }
  }
}

TEST(ReadAheadTest, GoingAwayBeforeTheEndStopsTheWorker) {
  const ScratchFile scratch(patterned(1 << 20));
  File file(scratch.path(), File::Access::read);
  {
    ReadAhead reader(file, 1024, 4);
    EXPECT_EQ(reader.next().size(), 1024u);
  }
  // The worker is gone: the file is this thread's again, a few blocks on.
  char byte = 0;
  EXPECT_EQ(file.read({&byte, 1}), 1u);
}

}  // namespace
}  // namespace korvane::utils::io
