// The Skimmer against the exact decoder (Document): a text that the Skimmer
// walks to its end is one that the decoder reads without an error and,
// within the Skimmer's limits, every text the decoder reads the Skimmer
// walks too. Checked on the public parsing suite, on random edits of a
// document, at every scan level, with the input cut at every point and in
// windows of many sizes.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/utils/json/ConformanceSuite.h"
#include "tests/utils/json/MemoryStreams.h"
#include "tests/utils/json/ScanLevelScope.h"
#include "utils/json/decoder/Document.h"
#include "utils/json/decoder/Parser.h"
#include "utils/json/decoder/Skimmer.h"

namespace korvane::utils::json::decoder {
namespace {

using json::detail::ScanLevel;
using test::PieceReader;

bool exactAccepts(const std::string& text) {
  test::MemoryInputStream stream(text);
  Document document(stream, "text.json");
  try {
    document.root().skip();
    document.finish();
    return true;
  } catch (const std::runtime_error&) {
    return false;
  }
}

// Whether the Skimmer walks the whole text that `reader` gives.
bool skims(const Skimmer::Reader& reader, std::size_t window = Skimmer::defaultWindow) {
  Skimmer skimmer(reader, window);
  return skimmer.attempt([&] {
    skimmer.startDocument();
    skimmer.skipValue();
    skimmer.finish();
  });
}

bool skims(const std::string& text) { return skims(PieceReader(text)); }

// The deepest nesting of arrays and objects in `text`, brackets in strings
// not counted (a rough count for malformed text, which is all it needs).
std::size_t nesting(const std::string& text) {
  std::size_t depth = 0;
  std::size_t deepest = 0;
  bool inString = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') ++i;
      if (c == '"') inString = false;
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      deepest = std::max(deepest, ++depth);
    } else if ((c == ']' || c == '}') && depth > 0) {
      --depth;
    }
  }
  return deepest;
}

// The Skimmer walks `text` exactly when the decoder reads it, at every
// level, unless the text nests deeper than the Skimmer goes (it then gives up).
void expectAgrees(const std::string& text, const std::string& label) {
  const bool accepted = exactAccepts(text);
  const bool withinLimits = nesting(text) <= Skimmer::maxSkipDepth;
  for (const ScanLevel level : test::everyScanLevel()) {
    const test::ScanLevelScope scope(level);
    const bool skimmed = skims(text);
    if (withinLimits) {
      ASSERT_EQ(skimmed, accepted) << label << " at level " << static_cast<int>(level);
    } else {
      ASSERT_FALSE(skimmed) << label;
    }
  }
}

// Every kind of token, with escapes, non-ASCII text and deep nesting.
const std::string sample =
    "\xEF\xBB\xBF {\"version\": 3, \"users\": [\n"
    "  {\"userName\": \"alice\", \"UUID\": \"11111111-2222-4333-8444-555555555555\"},\n"
    "  {\"userName\": \"b\\u00f6b \\ud83d\\ude00\", \"n\": [-0, 0.5, 1e9, -2.5E-3, "
    "12345678901234567890],\n"
    "   \"t\": true, \"f\": false, \"z\": null, \"s\": "
    "\"\\\"\\\\\\/\\b\\f\\n\\r\\t\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\",\n"
    "   \"deep\": {\"a\": [[[{\"b\": {}}], []], {}]}, \"e\": \"\", \"o\": {}, \"a\": []}\n"
    "],\r\n\t\"trailer\": "
    "\"0123456789012345678901234567890123456789012345678901234567890123456789\"}\n  ";

TEST(SkimmerTest, SampleIsWalkedAtEveryLevel) {
  ASSERT_TRUE(exactAccepts(sample));
  for (const ScanLevel level : test::everyScanLevel()) {
    const test::ScanLevelScope scope(level);
    EXPECT_TRUE(skims(sample)) << static_cast<int>(level);
  }
}

TEST(SkimmerTest, SampleCutAtEveryPointIsWalked) {
  for (const ScanLevel level : test::everyScanLevel()) {
    const test::ScanLevelScope scope(level);
    for (std::size_t split = 1; split <= sample.size(); ++split) {
      ASSERT_TRUE(skims(PieceReader(sample, split))) << split;
    }
    EXPECT_TRUE(skims(PieceReader(sample, 1, 1)));
    EXPECT_TRUE(skims(PieceReader(sample, 3, 7)));
  }
}

TEST(SkimmerTest, EveryPrefixOfTheSampleIsRefusedAsTheDecoderRefusesIt) {
  // Ending inside a string, a number, a literal, an escape or a UTF-8
  // sequence must never pass for a complete text.
  for (std::size_t length = 0; length < sample.size(); ++length) {
    const std::string prefix = sample.substr(0, length);
    expectAgrees(prefix, "prefix of " + std::to_string(length));
  }
}

TEST(SkimmerTest, SmallWindowsWalkOrGiveUpButNeverDisagree) {
  // The longest token with the whitespace behind it is the trailer's string
  // (72 bytes with its quotes): from a window of that size on, every window
  // must do.
  for (std::size_t window = 16; window <= 200; ++window) {
    const bool whole = skims(PieceReader(sample), window);
    const bool pieces = skims(PieceReader(sample, 5, 3), window);
    EXPECT_EQ(whole, pieces) << window;
    if (window >= 80) {
      EXPECT_TRUE(whole) << window;
    }
  }
  EXPECT_FALSE(skims(PieceReader(sample), 40));
}

TEST(SkimmerTest, NestingUpToTheLimitIsWalked) {
  const auto nested = [](std::size_t depth) {
    return std::string(depth, '[') + std::string(depth, ']');
  };
  EXPECT_TRUE(skims(nested(Skimmer::maxSkipDepth)));
  // Deeper the decoder still reads it; the Skimmer gives up.
  const std::string deeper = nested(Skimmer::maxSkipDepth + 1);
  EXPECT_TRUE(exactAccepts(deeper));
  EXPECT_FALSE(skims(deeper));
}

TEST(SkimmerTest, AReadFailurePassesThrough) {
  bool first = true;
  const Skimmer::Reader failing = [&](std::span<char> into) -> std::size_t {
    if (!first) throw std::runtime_error("read failed");
    first = false;
    into[0] = '[';
    return 1;
  };
  EXPECT_THROW((void)skims(failing), std::runtime_error);
}

TEST(SkimmerTest, StringsAreHandedOutRawAndMarkedWhenEscaped) {
  const std::string text =
      R"({"plain": "a b", "esc\u0041ped": "x\ny", "": )" + std::string("\"\xC3\xA9\"}");
  Skimmer skimmer(PieceReader(text, 9, 2), 32);
  std::vector<std::string> seen;
  std::vector<bool> escaped;
  const bool walked = skimmer.attempt([&] {
    skimmer.startDocument();
    skimmer.openObject();
    bool started = false;
    SkimmedString name;
    while (skimmer.nextMember(started, name)) {
      seen.emplace_back(name.raw);
      escaped.push_back(name.escaped);
      const SkimmedString value = skimmer.readString();
      seen.emplace_back(value.raw);
      escaped.push_back(value.escaped);
    }
    skimmer.finish();
  });
  ASSERT_TRUE(walked);
  EXPECT_EQ(seen,
            (std::vector<std::string>{"plain", "a b", "esc\\u0041ped", "x\\ny", "", "\xC3\xA9"}));
  EXPECT_EQ(escaped, (std::vector<bool>{false, false, true, true, false, false}));
}

// A member name handed out is never longer than the decoder takes; names
// inside skipped values have no limit there or here.
TEST(SkimmerTest, MemberNamesUpToTheDecodersLimit) {
  const std::size_t limit = detail::Parser::maxNameLength;
  const auto walksObject = [](const std::string& text) {
    Skimmer skimmer{PieceReader(text)};
    return skimmer.attempt([&] {
      skimmer.startDocument();
      skimmer.openObject();
      bool started = false;
      SkimmedString name;
      while (skimmer.nextMember(started, name)) skimmer.skipValue();
      skimmer.finish();
    });
  };
  const auto named = [](std::size_t length) { return "{\"" + std::string(length, 'n') + "\": 1}"; };
  EXPECT_TRUE(walksObject(named(limit)));
  EXPECT_FALSE(walksObject(named(limit + 1)));
  EXPECT_TRUE(walksObject("{\"x\": " + named(limit + 1) + "}"));
}

TEST(SkimmerTest, ReadingAStringWhereThereIsNoneGivesUp) {
  Skimmer skimmer(PieceReader("[1]"));
  EXPECT_FALSE(skimmer.attempt([&] {
    skimmer.startDocument();
    skimmer.openArray();
    bool started = false;
    while (skimmer.nextElement(started)) (void)skimmer.readString();
  }));
}

TEST(SkimmerTest, AByteOrderMarkOnlyAtTheVeryStart) {
  EXPECT_TRUE(skims("\xEF\xBB\xBF{}"));
  EXPECT_FALSE(skims(" \xEF\xBB\xBF{}"));
  EXPECT_FALSE(skims("\xEF\xBB{}"));
  EXPECT_FALSE(skims("{}\xEF\xBB\xBF"));
}

TEST(SkimmerTest, RandomEditsAgreeWithTheDecoder) {
  std::mt19937 random(20261123);
  const std::string bytes =
      std::string("\"\\{}[],: \n\t0123456789-+.eEtrufalsn/bu") +
      std::string("\x00\x01\x1F\x7F\x80\xBF\xC0\xC2\xC3\xE0\xED\xEF\xF0\xF4\xF5\xFF", 16);
  for (int round = 0; round < 6000; ++round) {
    std::string text = sample;
    const int edits = 1 + static_cast<int>(random() % 3);
    for (int edit = 0; edit < edits && !text.empty(); ++edit) {
      const std::size_t at = random() % text.size();
      const char byte = bytes[random() % bytes.size()];
      switch (random() % 4) {
        case 0:
          text[at] = byte;
          break;
        case 1:
          text.insert(text.begin() + static_cast<std::ptrdiff_t>(at), byte);
          break;
        case 2:
          text.erase(at, 1 + random() % 4);
          break;
        default:
          text.resize(at);
          break;
      }
    }
    expectAgrees(text, "edit round " + std::to_string(round));
    const std::size_t split = 1 + random() % (text.size() + 1);
    ASSERT_EQ(skims(PieceReader(text, split, 1 + random() % 9)), skims(text)) << round;
  }
}

TEST(SkimmerTest, PublicParsingSuiteAgreesWithTheDecoder) {
  const std::filesystem::path folder = test::conformanceSuiteFolder();
  if (folder.empty() || !std::filesystem::is_directory(folder)) {
    GTEST_SKIP()
        << "the public JSON parsing suite is not present (KORVANE_SOURCE_DIR/../shared/testdata)";
  }
  int files = 0;
  int walked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    const std::string text = test::readWholeFile(entry.path());
    expectAgrees(text, name);
    if (skims(text)) ++walked;
    if (text.size() <= 2000) {
      // Cut at every point, and read a byte at a time.
      const bool whole = skims(text);
      for (std::size_t split = 1; split < text.size(); ++split) {
        ASSERT_EQ(skims(PieceReader(text, split)), whole) << name << " cut at " << split;
      }
      ASSERT_EQ(skims(PieceReader(text, 1, 1)), whole) << name;
    }
    ++files;
  }
  EXPECT_GT(files, 300);
  EXPECT_GT(walked, 90);
}

}  // namespace
}  // namespace korvane::utils::json::decoder
