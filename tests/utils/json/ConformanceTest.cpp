// RFC 8259 conformance: the project's own table of valid and invalid texts,
// and the public JSON parsing test suite when it is present beside the
// repository (it is not part of the repository).
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "tests/utils/json/ConformanceSuite.h"
#include "tests/utils/json/MemoryStreams.h"
#include "tests/utils/json/Walk.h"
#include "utils/json/decoder/Document.h"

namespace korvane::utils::json::decoder {
namespace {

using test::MemoryInputStream;

enum class Outcome { accepted, rejected };

// Walks `text` both ways with buffers of several sizes. Returns the outcome,
// and fails the test if the two walks disagree or an error is not located.
Outcome decode(const std::string& text, const std::string& what) {
  std::vector<Outcome> outcomes;
  for (std::size_t size : {1u, 3u, 4096u}) {
    for (bool typed : {false, true}) {
      MemoryInputStream stream(text, size);
      Document document(stream, "c.json");
      try {
        if (typed) {
          test::walkTyped(document);
        } else {
          test::walkSkipping(document);
        }
        outcomes.push_back(Outcome::accepted);
      } catch (const Exception& error) {
        EXPECT_TRUE(error.location()) << what;
        EXPECT_EQ(std::string(error.what()).rfind("\"c.json\", line ", 0), 0u) << what;
        outcomes.push_back(Outcome::rejected);
      }
    }
  }
  for (const Outcome outcome : outcomes) EXPECT_EQ(outcome, outcomes.front()) << what;
  return outcomes.front();
}

// Every rule of RFC 8259, accepted side.
const char* const validTexts[] = {
    // Values of each kind at the top level (section 2).
    "{}",
    "[]",
    "\"\"",
    "0",
    "-0",
    "1",
    "-1",
    "true",
    "false",
    "null",
    // Whitespace: space, tab, line feed, carriage return, around every token.
    " \t\r\n{ \t\r\n\"a\" \t\r\n: \t\r\n[ \t\r\n1 \t\r\n, \t\r\n2 \t\r\n] \t\r\n} \t\r\n",
    // Objects (section 4): duplicate names are allowed, any order.
    "{\"a\":1,\"a\":2}",
    "{\"\":0}",
    "{\"a\":{\"b\":{\"c\":[]}}}",
    // Arrays (section 5): mixed kinds.
    "[1,\"a\",true,false,null,{},[],-1.5e3]",
    "[[[]]]",
    // Numbers (section 6).
    "0.0",
    "1.25",
    "-0.5",
    "10",
    "123456789012345678901234567890",
    "1e5",
    "1E5",
    "1e+5",
    "1e-5",
    "1.5E-300",
    "0e0",
    "-0.0e-0",
    "1e999999",
    // Strings (section 7): every escape, surrogate pairs, raw UTF-8 of each length, DEL raw.
    "\"\\\" \\\\ \\/ \\b \\f \\n \\r \\t\"",
    "\"\\u0000\"",
    "\"\\u00e9\\u00E9\"",
    "\"\\ud834\\udd1e\"",
    "\"\\uDBFF\\uDFFF\"",
    "\"\\uffff\"",
    "\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\"",
    "\"\x7F\"",
    "\"\xEF\xBF\xBF\"",
    "\"\xE0\xA0\x80\"",
    "\"\xED\x9F\xBF\"",
    "\"\xEE\x80\x80\"",
    // A leading UTF-8 byte order mark is ignored.
    "\xEF\xBB\xBF{}",
};

// Every rule of RFC 8259, rejected side.
const char* const invalidTexts[] = {
    // No value, or more than one.
    "",
    " ",
    "{} {}",
    "1 2",
    "[] x",
    "{}}",
    // Structure.
    "{",
    "}",
    "[",
    "]",
    "{,}",
    "[,]",
    "[1,]",
    "[,1]",
    "[1 2]",
    "{\"a\":1,}",
    "{\"a\" 1}",
    "{\"a\":}",
    "{a:1}",
    "{'a':1}",
    "{1:1}",
    "{\"a\":1 \"b\":2}",
    "[1:2]",
    "{\"a\",1}",
    "[}",
    "{]",
    // Literals are lower case and complete.
    "tru",
    "True",
    "nul",
    "NULL",
    "falsey",
    "nan",
    "Infinity",
    "undefined",
    // Numbers.
    "+1",
    "01",
    "-01",
    "00",
    ".5",
    "1.",
    "1.e5",
    "-",
    "--1",
    "1e",
    "1e+",
    "1E-",
    "0x10",
    "1.5.5",
    "- 1",
    "[-]",
    "1_000",
    "\xD9\xA1",
    // Strings: unterminated, single quotes, raw controls, bad escapes, bad hex, surrogates, bad
    // UTF-8.
    "\"",
    "\"abc",
    "'a'",
    "\"a\nb\"",
    "\"\t\"",
    "\"\x1F\"",
    "\"\\x\"",
    "\"\\U0041\"",
    "\"\\u12\"",
    "\"\\u12G4\"",
    "\"\\\"",
    "\"\\ud800\"",
    "\"\\udc00\"",
    "\"\\ud800\\u0041\"",
    "\"\\ud800\\ud800\"",
    "\"\\udc00\\ud800\"",
    "\"\\ud800x\"",
    "\"\x80\"",
    "\"\xC3\"",
    "\"\xC3(\"",
    "\"\xC0\xAF\"",
    "\"\xC1\xBF\"",
    "\"\xE0\x80\xAF\"",
    "\"\xED\xA0\x80\"",
    "\"\xF0\x80\x80\xAF\"",
    "\"\xF4\x90\x80\x80\"",
    "\"\xF5\x80\x80\x80\"",
    "\"\xFF\"",
    "\"\xE2\x82\"",
    // Bytes outside strings.
    "\x80",
    "[\xC3\xA9]",
    "\xEF\xBB",
    "\xEF\xBB\xBF",
    "\xEF\xBB\xBF\xEF\xBB\xBF{}",
    "/* c */ {}",
    "{} // c",
};

TEST(ConformanceTest, ValidTextsOfTheOwnTable) {
  for (const char* text : validTexts) EXPECT_EQ(decode(text, text), Outcome::accepted) << text;
}

TEST(ConformanceTest, InvalidTextsOfTheOwnTable) {
  for (const char* text : invalidTexts) EXPECT_EQ(decode(text, text), Outcome::rejected) << text;
  // NUL bytes, which the C strings above cannot hold.
  for (const std::string& text :
       {std::string("\0", 1), std::string("[\0]", 3), std::string("\"\0\"", 3),
        std::string("{}\0", 3), std::string("[1\0]", 4)}) {
    EXPECT_EQ(decode(text, "with NUL"), Outcome::rejected);
  }
}

// The outcome chosen for each implementation-defined ("i_") case of the
// public suite. Numbers are never converted, so any size is accepted; text
// that is not strict UTF-8 or holds an unpaired surrogate escape is
// rejected; a UTF-8 byte order mark is ignored; 500 levels are within the
// 1000-level nesting limit.
const std::map<std::string, Outcome> implementationDefined = {
    {"i_number_double_huge_neg_exp.json", Outcome::accepted},
    {"i_number_huge_exp.json", Outcome::accepted},
    {"i_number_neg_int_huge_exp.json", Outcome::accepted},
    {"i_number_pos_double_huge_exp.json", Outcome::accepted},
    {"i_number_real_neg_overflow.json", Outcome::accepted},
    {"i_number_real_pos_overflow.json", Outcome::accepted},
    {"i_number_real_underflow.json", Outcome::accepted},
    {"i_number_too_big_neg_int.json", Outcome::accepted},
    {"i_number_too_big_pos_int.json", Outcome::accepted},
    {"i_number_very_big_negative_int.json", Outcome::accepted},
    {"i_object_key_lone_2nd_surrogate.json", Outcome::rejected},
    {"i_string_1st_surrogate_but_2nd_missing.json", Outcome::rejected},
    {"i_string_1st_valid_surrogate_2nd_invalid.json", Outcome::rejected},
    {"i_string_UTF-16LE_with_BOM.json", Outcome::rejected},
    {"i_string_UTF-8_invalid_sequence.json", Outcome::rejected},
    {"i_string_UTF8_surrogate_U+D800.json", Outcome::rejected},
    {"i_string_incomplete_surrogate_and_escape_valid.json", Outcome::rejected},
    {"i_string_incomplete_surrogate_pair.json", Outcome::rejected},
    {"i_string_incomplete_surrogates_escape_valid.json", Outcome::rejected},
    {"i_string_invalid_lonely_surrogate.json", Outcome::rejected},
    {"i_string_invalid_surrogate.json", Outcome::rejected},
    {"i_string_invalid_utf-8.json", Outcome::rejected},
    {"i_string_inverted_surrogates_U+1D11E.json", Outcome::rejected},
    {"i_string_iso_latin_1.json", Outcome::rejected},
    {"i_string_lone_second_surrogate.json", Outcome::rejected},
    {"i_string_lone_utf8_continuation_byte.json", Outcome::rejected},
    {"i_string_not_in_unicode_range.json", Outcome::rejected},
    {"i_string_overlong_sequence_2_bytes.json", Outcome::rejected},
    {"i_string_overlong_sequence_6_bytes.json", Outcome::rejected},
    {"i_string_overlong_sequence_6_bytes_null.json", Outcome::rejected},
    {"i_string_truncated-utf-8.json", Outcome::rejected},
    {"i_string_utf16BE_no_BOM.json", Outcome::rejected},
    {"i_string_utf16LE_no_BOM.json", Outcome::rejected},
    {"i_structure_500_nested_arrays.json", Outcome::accepted},
    {"i_structure_UTF-8_BOM_empty_object.json", Outcome::accepted},
};

TEST(ConformanceTest, PublicParsingSuite) {
  const std::filesystem::path folder = test::conformanceSuiteFolder();
  if (folder.empty() || !std::filesystem::is_directory(folder)) {
    GTEST_SKIP()
        << "the public JSON parsing suite is not present (KORVANE_SOURCE_DIR/../shared/testdata)";
  }
  int accepted = 0;
  int rejected = 0;
  int chosen = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const std::string name = entry.path().filename().string();
    const std::string text = test::readWholeFile(entry.path());
    const Outcome outcome = decode(text, name);
    if (name.starts_with("y_")) {
      EXPECT_EQ(outcome, Outcome::accepted) << name;
      ++accepted;
    } else if (name.starts_with("n_")) {
      EXPECT_EQ(outcome, Outcome::rejected) << name;
      ++rejected;
    } else if (name.starts_with("i_")) {
      const auto expected = implementationDefined.find(name);
      ASSERT_NE(expected, implementationDefined.end()) << "no outcome chosen for " << name;
      EXPECT_EQ(outcome, expected->second) << name;
      ++chosen;
    }
  }
  EXPECT_GT(accepted, 90);
  EXPECT_GT(rejected, 150);
  EXPECT_EQ(chosen, static_cast<int>(implementationDefined.size()));
}

}  // namespace
}  // namespace korvane::utils::json::decoder
