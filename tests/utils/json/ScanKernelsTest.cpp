// The scan kernels of every level the processor runs give the plain
// kernels' results, on their own and inside the decoder: every walk of a
// text, split at every point, gives the same result (the text read, or the
// same error at the same line and column) at every level.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "tests/utils/json/ConformanceSuite.h"
#include "tests/utils/json/MemoryStreams.h"
#include "tests/utils/json/ScanLevelScope.h"
#include "tests/utils/json/Walk.h"
#include "utils/json/ScanKernels.h"
#include "utils/json/decoder/Document.h"

namespace korvane::utils::json::detail {
namespace {

using test::SplitInputStream;

// The levels above the plain one that this processor runs.
std::vector<ScanLevel> fastLevels() {
  std::vector<ScanLevel> levels = test::everyScanLevel();
  levels.erase(levels.begin());
  return levels;
}

const ScanKernels& kernelsAt(ScanLevel level) {
  const test::ScanLevelScope scope(level);
  return scanKernels();
}

void expectSameRuns(const std::string& bytes) {
  const ScanKernels& plain = kernelsAt(ScanLevel::plain);
  for (const ScanLevel level : fastLevels()) {
    const ScanKernels& fast = kernelsAt(level);
    // Every start and end, so that every run length meets every tail.
    for (std::size_t begin = 0; begin <= bytes.size(); ++begin) {
      for (std::size_t end = begin; end <= bytes.size(); ++end) {
        const char* const b = bytes.data() + begin;
        const char* const e = bytes.data() + end;
        ASSERT_EQ(fast.plainStringLength(b, e), plain.plainStringLength(b, e))
            << begin << " " << end;
        ASSERT_EQ(fast.digitLength(b, e), plain.digitLength(b, e)) << begin << " " << end;
        const WhitespaceRun f = fast.whitespace(b, e);
        const WhitespaceRun p = plain.whitespace(b, e);
        ASSERT_EQ(f.length, p.length) << begin << " " << end;
        ASSERT_EQ(f.lineFeeds, p.lineFeeds) << begin << " " << end;
        ASSERT_EQ(f.afterLastLineFeed, p.afterLastLineFeed) << begin << " " << end;
      }
    }
  }
}

TEST(ScanKernelsTest, PlainKernelsFollowTheGrammar) {
  const ScanKernels& plain = kernelsAt(ScanLevel::plain);
  const std::string text = "ab~\x7F\"x";
  EXPECT_EQ(plain.plainStringLength(text.data(), text.data() + text.size()), 4u);
  for (int c = 0; c < 256; ++c) {
    const char byte = static_cast<char>(c);
    EXPECT_EQ(plain.plainStringLength(&byte, &byte + 1),
              (c >= 0x20 && c < 0x80 && c != '"' && c != '\\') ? 1u : 0u);
    EXPECT_EQ(plain.digitLength(&byte, &byte + 1), (c >= '0' && c <= '9') ? 1u : 0u);
    EXPECT_EQ(plain.whitespace(&byte, &byte + 1).length,
              (c == ' ' || c == '\t' || c == '\r' || c == '\n') ? 1u : 0u);
  }
  const std::string space = " \n\t\r\n x";
  const WhitespaceRun run = plain.whitespace(space.data(), space.data() + space.size());
  EXPECT_EQ(run.length, 6u);
  EXPECT_EQ(run.lineFeeds, 2u);
  EXPECT_EQ(run.afterLastLineFeed, 5u);
}

TEST(ScanKernelsTest, EveryByteEndsARunAtEveryPlace) {
  for (int c = 0; c < 256; ++c) {
    for (const char fill : {'a', '5', ' ', '\n'}) {
      for (const std::size_t place : {0u, 1u, 15u, 16u, 17u, 31u, 32u, 33u, 47u, 63u, 64u}) {
        std::string bytes(80, fill);
        bytes[place] = static_cast<char>(c);
        const ScanKernels& plain = kernelsAt(ScanLevel::plain);
        for (const ScanLevel level : fastLevels()) {
          const ScanKernels& fast = kernelsAt(level);
          const char* const b = bytes.data();
          const char* const e = b + bytes.size();
          ASSERT_EQ(fast.plainStringLength(b, e), plain.plainStringLength(b, e))
              << c << " " << place;
          ASSERT_EQ(fast.digitLength(b, e), plain.digitLength(b, e)) << c << " " << place;
          ASSERT_EQ(fast.whitespace(b, e).length, plain.whitespace(b, e).length)
              << c << " " << place;
          ASSERT_EQ(fast.whitespace(b, e).lineFeeds, plain.whitespace(b, e).lineFeeds)
              << c << " " << place;
          ASSERT_EQ(fast.whitespace(b, e).afterLastLineFeed,
                    plain.whitespace(b, e).afterLastLineFeed);
        }
      }
    }
  }
}

TEST(ScanKernelsTest, RandomRunsAtEveryStartAndEnd) {
  std::mt19937 random(15);
  const std::string alphabet = "  \n\n\t\r0123456789abc\"\\\x01\x7F\x80\xC3\xA9\xFF";
  for (int round = 0; round < 40; ++round) {
    std::string bytes;
    const char base = alphabet[random() % alphabet.size()];
    for (int i = 0; i < 90; ++i)
      bytes += random() % 12 == 0 ? alphabet[random() % alphabet.size()] : base;
    expectSameRuns(bytes);
  }
}

// What walking `text` gives: the text read through the typed views (or by
// skipping), or the error with its location.
std::string walk(const std::string& text, std::size_t split, bool typed) {
  SplitInputStream stream(text, split);
  decoder::Document document(stream, "s.json");
  try {
    return typed ? test::walkTyped(document, split % 2 == 0)
                 : (test::walkSkipping(document), "skipped");
  } catch (const decoder::Exception& error) {
    return error.what();
  }
}

// Every level and every split point give what the plain level gives
// unsplit.
void expectSameWalks(const std::string& text, const std::string& what) {
  for (const bool typed : {false, true}) {
    std::string expected;
    {
      const test::ScanLevelScope scope(ScanLevel::plain);
      expected = walk(text, text.size(), typed);
    }
    std::vector<ScanLevel> levels = fastLevels();
    levels.push_back(ScanLevel::plain);
    for (const ScanLevel level : levels) {
      const test::ScanLevelScope scope(level);
      for (std::size_t split = 0; split <= text.size(); ++split) {
        ASSERT_EQ(walk(text, split, typed), expected)
            << what << ", level " << static_cast<int>(level) << ", split at " << split << ", typed "
            << typed;
      }
    }
  }
}

const char* const documents[] = {
    // The shape of a users file, with members of every kind to skip.
    "{\n  \"version\": 3,\n  \"users\": [\n    {\"userName\": \"user0000001\", \"profile\": "
    "{\"age\": 37, "
    "\"ratio\": -0.125e-3, \"active\": true, \"tags\": []}, \"UUID\": "
    "\"fca67c71-424f-4334-8e2b-0000000f4240\"},\n"
    "    {\"userName\": \"user0000002\", \"notes\": \"line one\\nline "
    "\\\"two\\\"\\t\\u00e9\\ud83d\\ude00 "
    "\xC3\xA9t\xC3\xA9\", \"quota\": 1234567.891, \"UUID\": "
    "\"00000000-0000-4000-8000-000000000002\"}\n  ]\n}\n",
    // Long runs of each kind, over several blocks.
    "[\"0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789abcdefghijklmnop\","
    "\n"
    "                                                                       \t\t\t\r\n\n\n    "
    "12345678901234567890123456789012345678901234567890123456789012345678901234567890."
    "5e123456789012345678]",
    // Characters beyond ASCII between plain runs: columns count characters.
    "{\"\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9\xC3\xA9 "
    "abcdefghijklmnopqrstuvwxyz\xF0\x9F\x98\x80"
    "\xE2\x82\xAC\": \"x\",   \"b\": nul}",
    // Errors at the end of long runs, on later lines.
    "[\n\n\n\n                                            "
    "\"abcdefghijklmnopqrstuvwxyz0123456789\x01\"]",
    "[\n  \"abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz0123456789\xC3\"]",
    "[\n  "
    "\"abcdefghijklmnopqrstuvwxyz\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9"
    "\xE9\"]",
    "[\n  1234567890123456789012345678901234567890123456789012345678901234567890x]",
    "[\n  1234567890123456789012345678901234567890.123456789012345678901234567890e+]",
    "{\"abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz0123456789\"\n\n\n       "
    "\r\n  x}",
    "\xEF\xBB\xBF  \n  {\"a\":\n\n\t\"b\\u12\"}",
    "[\"unterminated abcdefghijklmnopqrstuvwxyz0123456789abcdefghijklmnopqrstuvwxyz",
    "[\"a\"]                                                                          \n\n x",
};

TEST(ScanKernelsTest, EveryLevelAndSplitWalksAlike) {
  for (const char* document : documents) expectSameWalks(document, document);
}

TEST(ScanKernelsTest, ConformanceSuiteWalksAlikeAtEveryLevel) {
  const std::filesystem::path folder = test::conformanceSuiteFolder();
  if (folder.empty() || !std::filesystem::is_directory(folder)) {
    GTEST_SKIP()
        << "the public JSON parsing suite is not present (KORVANE_SOURCE_DIR/../shared/testdata)";
  }
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string text = test::readWholeFile(entry.path());
    if (text.size() > 2000) continue;  // every split of a large file would take long
    expectSameWalks(text, entry.path().filename().string());
    ++files;
  }
  EXPECT_GT(files, 250);
}

}  // namespace
}  // namespace korvane::utils::json::detail
