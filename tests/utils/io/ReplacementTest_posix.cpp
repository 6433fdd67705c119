#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/ChildProcess.h"
#include "utils/io/Replacement.h"
#include "utils/io/ReplacementTarget.h"

namespace korvane::utils::io {
namespace {

using korvane::testing::readFile;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

std::vector<std::string> namesIn(const std::filesystem::path& directory) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory)) {
    names.push_back(entry.path().filename().string());
  }
  return names;
}

// The target at `path`, which holds "old", and what it describes of it.
struct OldFile {
  explicit OldFile(const std::filesystem::path& path) : target(path) {
    writeFile(path, "old");
    EXPECT_TRUE(target.open(&replaced).has_value());
  }
  ReplacementTarget target;
  ReplacedFile replaced;
};

// The content written in pieces of many sizes, some larger than a buffer.
std::string writeContent(Replacement& replacement) {
  std::string written;
  for (std::size_t piece = 0; piece < 3000; ++piece) {
    const std::string text((piece * 97) % 1500 + (piece % 100 == 0 ? 70000 : 0),
                           static_cast<char>('a' + piece % 26));
    written += text;
    replacement.write(text);
  }
  return written;
}

TEST(ReplacementTest, ALargeContentWrittenBehindReplacesTheFileWhole) {
  for (const std::size_t after : {std::size_t{1}, std::size_t{100000}, std::size_t{1} << 30}) {
    SCOPED_TRACE(after);
    TemporaryDirectory directory;
    const auto path = directory.path() / "passwords.json";
    const OldFile old(path);
    Replacement replacement(old.target, old.replaced, after);
    const std::string written = writeContent(replacement);
    EXPECT_EQ(replacement.writesBehind(), after < written.size());
    replacement.commit();
    EXPECT_EQ(readFile(path), written);
    EXPECT_EQ(namesIn(directory.path()), std::vector<std::string>{"passwords.json"});
  }
}

TEST(ReplacementTest, WhatIsBufferedWhenTheWorkerIsSettledIsWrittenAfterIt) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  const OldFile old(path);
  Replacement replacement(old.target, old.replaced, 1);
  std::string written = writeContent(replacement);
  replacement.write("buffered when settled");
  written += "buffered when settled";
  EXPECT_TRUE(replacement.writesBehind());
  replacement.settle();
  EXPECT_FALSE(replacement.writesBehind());
  written += writeContent(replacement);
  replacement.commit();
  EXPECT_EQ(readFile(path), written);
}

TEST(ReplacementTest, ADiscardedReplacementWrittenBehindLeavesNothing) {
  TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  const OldFile old(path);
  {
    Replacement replacement(old.target, old.replaced, 1);
    writeContent(replacement);
    EXPECT_TRUE(replacement.writesBehind());
    replacement.discard();
  }
  EXPECT_EQ(readFile(path), "old");
  EXPECT_EQ(namesIn(directory.path()), std::vector<std::string>{"passwords.json"});
  {
    // Abandoned without a word: the same.
    Replacement replacement(old.target, old.replaced, 1);
    writeContent(replacement);
  }
  EXPECT_EQ(readFile(path), "old");
  EXPECT_EQ(namesIn(directory.path()), std::vector<std::string>{"passwords.json"});
}

}  // namespace
}  // namespace korvane::utils::io
