#include <gtest/gtest.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

#include "tests/utils/io/ScratchFile.h"
#include "utils/io/File.h"
#include "utils/io/WriteBehind.h"

namespace korvane::utils::io {
namespace {

using test::ScratchFile;

TEST(WriteBehindTest, WritesEverythingInOrderWhateverThePiecesAndBlocks) {
  for (const std::size_t blockSize : {1u, 7u, 4096u}) {
    for (const std::size_t blockCount : {1u, 2u, 5u}) {
      SCOPED_TRACE(std::to_string(blockSize) + " x " + std::to_string(blockCount));
      const ScratchFile scratch;
      std::string expected;
      {
        File file(scratch.path(), File::Access::createNew);
        WriteBehind writer(file, blockSize, blockCount);
        for (std::size_t piece = 0; piece < 700; ++piece) {
          // Pieces of 0 to 30 bytes, some larger than a block.
          std::string text((piece * 11) % 31, static_cast<char>('A' + piece % 26));
          expected += text;
          writer.write(text);
        }
        writer.finish();
        file.close();
      }
      EXPECT_EQ(scratch.content(), expected);
    }
  }
}

TEST(WriteBehindTest, BytesWrittenIntoItsSpaceAreTakenWhereTheyLie) {
  const ScratchFile scratch;
  std::string expected;
  {
    File file(scratch.path(), File::Access::createNew);
    WriteBehind writer(file, 5, 2);
    for (std::size_t piece = 0; piece < 300; ++piece) {
      const std::span<char> space = writer.space();
      ASSERT_FALSE(space.empty());
      ASSERT_LE(space.size(), 5u);
      const std::size_t count = 1 + piece % space.size();
      for (std::size_t i = 0; i < count; ++i) space[i] = static_cast<char>('a' + (piece + i) % 26);
      expected.append(space.data(), count);
      writer.write(space.first(count));
      if (count < space.size()) {
        // The rest of the block is what is free now.
        EXPECT_EQ(writer.space().data(), space.data() + count);
      }
      if (piece % 10 == 0) {
        writer.write(std::string_view("XYZ"));  // and copies mixed in
        expected += "XYZ";
      }
    }
    writer.finish();
    file.close();
  }
  EXPECT_EQ(scratch.content(), expected);
}

TEST(WriteBehindTest, WritesAfterWhatTheFileHeld) {
  const ScratchFile scratch;
  File file(scratch.path(), File::Access::createNew);
  file.write(std::string_view("head:"));
  {
    WriteBehind writer(file, 3, 2);
    writer.write(std::string_view("body"));
    writer.finish();
  }
  file.write(std::string_view(":tail"));
  file.close();
  EXPECT_EQ(scratch.content(), "head:body:tail");
}

TEST(WriteBehindTest, AFailureToWriteIsThrownAsTheFileThrowsIt) {
  const ScratchFile scratch;
  File(scratch.path(), File::Access::createNew).close();
  std::string direct;
  {
    // Open for reading only: every write fails.
    File file(scratch.path(), File::Access::read);
    try {
      file.write(std::string_view("x"));
      FAIL() << "a file open for reading was written";
    } catch (const std::system_error& error) {
      direct = error.what();
    }
  }
  File file(scratch.path(), File::Access::read);
  WriteBehind writer(file, 16, 2);
  // Known at a later write or at the latest when finishing.
  std::string thrown;
  try {
    for (int i = 0; i < 1000; ++i) writer.write(std::string_view("0123456789"));
    writer.finish();
  } catch (const std::system_error& error) {
    thrown = error.what();
  }
  EXPECT_EQ(thrown, direct);
  EXPECT_NE(thrown.find(scratch.path().string()), std::string::npos);
}

TEST(WriteBehindTest, AFailureToWriteIsThrownByTheSpaceAsWell) {
  const ScratchFile scratch;
  File(scratch.path(), File::Access::createNew).close();
  File file(scratch.path(), File::Access::read);
  WriteBehind writer(file, 16, 2);
  EXPECT_THROW(
      {
        for (int i = 0; i < 1000; ++i) {
          const std::span<char> space = writer.space();
          space[0] = 'x';
          writer.write(space.first(1));
        }
      },
      std::system_error);
}

TEST(WriteBehindTest, AFailureKnownOnlyAtTheEndIsThrownByFinish) {
  const ScratchFile scratch;
  File(scratch.path(), File::Access::createNew).close();
  File file(scratch.path(), File::Access::read);
  WriteBehind writer(file, 4096, 2);
  writer.write(std::string_view("short"));
  EXPECT_THROW(writer.finish(), std::system_error);
}

TEST(WriteBehindTest, GoingAwayWithoutFinishingStopsTheWorker) {
  const ScratchFile scratch;
  std::string given;
  File file(scratch.path(), File::Access::createNew);
  {
    WriteBehind writer(file, 8, 2);
    for (int i = 0; i < 100; ++i) {
      given += "abcdefgh";
      writer.write(std::string_view("abcdefgh"));
    }
  }
  // The worker is gone; what it wrote is a beginning of what it was given.
  file.close();
  const std::string content = scratch.content();
  EXPECT_TRUE(given.starts_with(content)) << content;
}

}  // namespace
}  // namespace korvane::utils::io
