#include <gtest/gtest.h>

#include <list>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/utils/json/MemoryStreams.h"
#include "tests/utils/json/Walk.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/json/decoder/Document.h"

namespace korvane::utils::json::decoder {
namespace {

using test::MemoryInputStream;

std::string readString(Value& value) {
  std::string text;
  for (const char c : value.asString()) text += c;
  return text;
}

// The text of the decoder error that walking `json` through the typed views
// raises, with a stream buffer of `bufferSize` bytes; "" when there is none.
std::string typedError(const std::string& json, std::size_t bufferSize = 64 * 1024) {
  MemoryInputStream stream(json, bufferSize);
  Document document(stream, "t.json");
  try {
    test::walkTyped(document);
  } catch (const Exception& error) {
    return error.what();
  }
  return {};
}

std::string skipError(const std::string& json, std::size_t bufferSize = 64 * 1024) {
  MemoryInputStream stream(json, bufferSize);
  Document document(stream, "t.json");
  try {
    test::walkSkipping(document);
  } catch (const Exception& error) {
    return error.what();
  }
  return {};
}

TEST(DecoderTest, ReadsMembersInOrder) {
  MemoryInputStream stream(
      R"({"users": [{"userName": "ann", "UUID": "0123456789abcdef0123456789ABCDEF"}],
      "x": {"a": [1, 2.5e-3, true, false, null, {"b": "c"}]}, "name": "\u00e9\ud83d\ude00\n"})");
  Document document(stream, "users.json");
  std::vector<std::string> names;
  std::string last;
  for (Member& member : document.readAsObject()) {
    names.emplace_back(member.name().view());
    if (member.name() == "name") last = readString(member.value());
  }
  EXPECT_EQ(names, (std::vector<std::string>{"users", "x", "name"}));
  EXPECT_EQ(last, "\xC3\xA9\xF0\x9F\x98\x80\n");
}

TEST(DecoderTest, ReadsUuidAndUserObjects) {
  MemoryInputStream stream(
      R"({"users": [{"userName": "ann", "UUID": "01234567-89ab-cdef-0123-456789ABCDEF"},
      {"UUID": "00000000-0000-0000-0000-000000000001", "extra": [[[]]], "userName": "bob"}]})");
  Document document(stream, "users.json");
  std::vector<std::string> users;
  std::vector<std::string> uuids;
  for (Member& top : document.readAsObject()) {
    ASSERT_TRUE(top.name() == "users");
    for (Value& user : top.value().asArray()) {
      for (Member& member : user.asObject()) {
        if (member.name() == "userName") {
          users.push_back(readString(member.value()));
        } else if (member.name() == "UUID") {
          uuids.push_back(member.value().toUuid().toString().str());
        }
      }
    }
  }
  EXPECT_EQ(users, (std::vector<std::string>{"ann", "bob"}));
  EXPECT_EQ(uuids, (std::vector<std::string>{"01234567-89ab-cdef-0123-456789abcdef",
                                             "00000000-0000-0000-0000-000000000001"}));
}

TEST(DecoderTest, NameMovesOut) {
  MemoryInputStream stream(
      R"({"a long member name, longer than any small buffer": "v", "b": "w"})");
  Document document(stream, "p.json");
  std::vector<std::string> names;
  std::vector<std::string> values;
  for (Member& member : document.readAsObject()) {
    values.push_back(readString(member.value()));
    std::string name = std::move(member.name());
    names.push_back(std::move(name));
  }
  EXPECT_EQ(names,
            (std::vector<std::string>{"a long member name, longer than any small buffer", "b"}));
  EXPECT_EQ(values, (std::vector<std::string>{"v", "w"}));
}

TEST(DecoderTest, UnreadAndHalfReadValuesAreSkipped) {
  MemoryInputStream stream(
      R"({"a": {"x": [1, {"y": "z"}], "w": "q"}, "b": [1, 2, 3], "c": "long string", "d": "last"})");
  Document document(stream, "t.json");
  std::string last;
  for (Member& member : document.readAsObject()) {
    if (member.name() == "a") {
      Object inner = member.value().asObject();
      auto it = inner.begin();
      it->value().asArray().begin();  // opened, then abandoned
    } else if (member.name() == "b") {
      Array array = member.value().asArray();
      array.begin();
    } else if (member.name() == "c") {
      String text = member.value().asString();
      EXPECT_EQ(*text.begin(), 'l');
    } else if (member.name() == "d") {
      last = readString(member.value());
    }
  }
  EXPECT_EQ(last, "last");
}

TEST(DecoderTest, ValueLocationAndKinds) {
  MemoryInputStream stream("{\n  \"\xC3\xA9t\xC3\xA9\": [\n    {}, \"s\", -1, true, null]\n}");
  Document document(stream, "k.json");
  for (Member& member : document.readAsObject()) {
    const Location where = member.value().location();
    EXPECT_TRUE(where);
    EXPECT_EQ(where.line(), 2u);
    EXPECT_EQ(where.column(), 10u);  // "été" counts three characters
    std::vector<Kind> kinds;
    std::vector<std::uint64_t> columns;
    for (Value& element : member.value().asArray()) {
      kinds.push_back(element.kind());
      columns.push_back(element.location().column());
      EXPECT_EQ(element.location().line(), 3u);
    }
    EXPECT_EQ(kinds, (std::vector<Kind>{Kind::object, Kind::string, Kind::number, Kind::boolean,
                                        Kind::null}));
    EXPECT_EQ(columns, (std::vector<std::uint64_t>{5, 9, 14, 18, 24}));
  }
  EXPECT_FALSE(Location());
}

TEST(DecoderTest, ErrorTextNamesFileLineAndColumn) {
  const std::string json = "{\n  \"users\": [],\n  \"abc\": 12 x\n}";
  EXPECT_EQ(typedError(json),
            "\"t.json\", line 3, column 13: expected ',' or '}' after an object member, found 'x'");
  EXPECT_EQ(skipError(json),
            "\"t.json\", line 3, column 13: expected ',' or '}' after an object member, found 'x'");
}

TEST(DecoderTest, ColumnsCountCharactersNotBytes) {
  // é (2 bytes), € (3 bytes), 😀 (4 bytes) each count one column.
  EXPECT_EQ(typedError("[\"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\" x]"),
            "\"t.json\", line 1, column 8: expected ',' or ']' after an array element, found 'x'");
  EXPECT_EQ(typedError("{\"a\":\n\"\xC3\xA9\"\n,\"\xC3\xA9\xC3\xA9\":\"\xC3\xA9\" ?}"),
            "\"t.json\", line 3, column 11: expected ',' or '}' after an object member, found '?'");
}

// What the typed walk of `json` reads through a buffer of `bufferSize`
// bytes, or "error: " and the decoder error's text.
std::string typedWalk(const std::string& json, std::size_t bufferSize = 64 * 1024) {
  MemoryInputStream stream(json, bufferSize);
  Document document(stream, "t.json");
  try {
    return test::walkTyped(document);
  } catch (const Exception& error) {
    return std::string("error: ") + error.what();
  }
}

TEST(DecoderTest, SameResultsForEveryBufferSize) {
  const std::vector<std::string> texts = {
      "{\"a\": [1, -2.5E+10, \"\\u00e9\\ud834\\udd1e\\n\\\"\", {\"b\": null}], "
      "\"\xC3\xA9\xE2\x82\xAC\": "
      "\"\xF0\x9F\x98\x80x\"}",
      "\xEF\xBB\xBF [true , false,null, 0.0e0 ]\r\n",
      "{\"a\": [1, 2,\n \"\xC3\xA9\xC3\xA9\" 3]}",
      "{\"a\": \"\\ud800x\"}",
      "{\"a\": \"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xED\xA0\x80\"}",
      "{\"a\": 01}",
      "{\"a\": [1, 2] } x",
      "[\"unterminated",
  };
  for (const std::string& text : texts) {
    const std::string expectedTyped = typedWalk(text);
    const std::string expectedSkip = skipError(text);
    for (std::size_t size = 1; size <= 7; ++size) {
      EXPECT_EQ(typedWalk(text, size), expectedTyped) << "buffer " << size << " text " << text;
      EXPECT_EQ(skipError(text, size), expectedSkip) << "buffer " << size;
    }
  }
}

// The texts of a string skipped or read, one step at a time (a buffer of one
// byte, where no sequence is ever whole) and in one go: every escape form,
// and UTF-8 sequences of every lead byte with their second byte at the edges
// of each allowed range, whole, malformed and cut off.
std::vector<std::string> stringBodies() {
  std::vector<std::string> bodies = {"\\\"",
                                     "\\\\",
                                     "\\/",
                                     "\\b",
                                     "\\f",
                                     "\\n",
                                     "\\r",
                                     "\\t",
                                     "\\x",
                                     "\\",
                                     "\\u",
                                     "\\u00e9",
                                     "\\u00E9x",
                                     "\\u0000",
                                     "\\u12",
                                     "\\u12g4",
                                     "\\uD834\\uDD1E",
                                     "\\ud834\\udd1ex",
                                     "\\uD834",
                                     "\\uD834x",
                                     "\\uD834\\u0041",
                                     "\\uD834\\n",
                                     "\\uD834\\u",
                                     "\\uD834\\uDD1",
                                     "\\uDD1E",
                                     "\\uDD1E\\uD834",
                                     "\\uDBFF\\uDFFF",
                                     "\\uD800\\uDC00",
                                     "\\uD834\\uD834"};
  for (unsigned lead = 0x80; lead <= 0xFF; ++lead) {
    for (const unsigned second : {0x41u, 0x7Fu, 0x80u, 0x8Fu, 0x90u, 0x9Fu, 0xA0u, 0xBFu, 0xC0u}) {
      for (const unsigned tail : {0x80u, 0x41u}) {
        bodies.push_back({static_cast<char>(lead), static_cast<char>(second),
                          static_cast<char>(tail), static_cast<char>(tail), 'z'});
      }
      bodies.push_back({static_cast<char>(lead), static_cast<char>(second)});
    }
  }
  return bodies;
}

// Where a value stands: skipped as a member's value, inside a container
// that is skipped whole, and at the end of the input.
std::vector<std::string> placesOf(const std::string& value) {
  return {"{\"a\": " + value + ", \"b\": 1}", "{\"x\": {\"name\": [" + value + "], \"y\": 2}}",
          "[" + value};
}

// Skipping and reading give the same outcome, with the same location, for
// every buffer size.
void expectSameOutcomeForEveryBufferSize(const std::string& text) {
  const std::string expected = typedError(text, 1);
  for (const std::size_t size : {1u, 2u, 3u, 5u, 4096u}) {
    EXPECT_EQ(typedError(text, size), expected) << "buffer " << size << " text " << text;
    EXPECT_EQ(skipError(text, size), expected) << "buffer " << size << " text " << text;
  }
}

TEST(DecoderTest, StringsSkippedAreCheckedAsStringsRead) {
  for (const std::string& body : stringBodies()) {
    for (const std::string& text : placesOf("\"" + body + "\"")) {
      expectSameOutcomeForEveryBufferSize(text);
    }
  }
  // The one-step checks do find errors.
  EXPECT_EQ(skipError("{\"a\": \"x\xED\xA0\x80\"}"),
            "\"t.json\", line 1, column 9: invalid UTF-8 sequence in a string");
  EXPECT_EQ(skipError("{\"a\": \"\\uD834\\u0041\"}"),
            "\"t.json\", line 1, column 14: expected a low surrogate after \\uD834, found "
            "\\u0041");
}

TEST(DecoderTest, NumbersSkippedInOneGoAreCheckedAsDigitByDigit) {
  for (const char* const number : {"0",
                                   "-0",
                                   "01",
                                   "-",
                                   "-a",
                                   "1.",
                                   "1.5",
                                   "1.5e",
                                   "1e+",
                                   "1e-5",
                                   "1E5",
                                   "1e5.3",
                                   "12345678901234567890",
                                   "0.0e0",
                                   "-1.25e-3",
                                   "1.e3",
                                   ".5",
                                   "+1",
                                   "0x1",
                                   "1ee3",
                                   "-01",
                                   "7E+0012",
                                   "2.",
                                   "3e",
                                   "-0.0",
                                   "9.99999"}) {
    for (const std::string& text : placesOf(number)) expectSameOutcomeForEveryBufferSize(text);
    expectSameOutcomeForEveryBufferSize(number);
  }
}

TEST(DecoderTest, NamesOfSkippedMembersAreCheckedAsNamesRead) {
  for (const char* const member :
       {"\"n\": 1",        "\"n\":1",     "\"n\" : 1",  "\"n\":  1", "\"n\":\n1",
        "\"n\": ",         "\"n\":",      "\"n\"",      "\"n",       "\"n\\u0041\": 1",
        "\"\xC3\xA9\": 1", "\"\xC3\": 1", "\"n\"1",     "n: 1",      "\"\": 1",
        "\"a b\": [1]",    "\"n\\: 1",    "\"n\x01: 1", "\"\xC3: 1", "\"n\\\": 1"}) {
    for (const std::string& text : placesOf("{" + std::string(member) + "}")) {
      expectSameOutcomeForEveryBufferSize(text);
    }
  }
}

TEST(DecoderTest, ErrorsOfEveryKindAreLocated) {
  EXPECT_EQ(typedError("{\"a\": \"\\ud800x\"}"),
            "\"t.json\", line 1, column 8: unpaired high surrogate \\uD800");
  EXPECT_EQ(typedError("[\"\\udc00\"]"),
            "\"t.json\", line 1, column 3: unpaired low surrogate \\uDC00");
  EXPECT_EQ(typedError("[\"a\tb\"]"),
            "\"t.json\", line 1, column 4: control character U+0009 must be escaped in a string");
  EXPECT_EQ(typedError(std::string("[\"a\0b\"]", 7)),
            "\"t.json\", line 1, column 4: a NUL byte is not allowed in a string");
  EXPECT_EQ(typedError(std::string("[1,\0]", 5)),
            "\"t.json\", line 1, column 4: expected a value, found a NUL byte");
  EXPECT_EQ(typedError("[\"\xC3\xA9\xC3(\"]"),
            "\"t.json\", line 1, column 4: invalid UTF-8 sequence in a string");
  EXPECT_EQ(typedError("[\"\xC0\x80\"]"),
            "\"t.json\", line 1, column 3: invalid UTF-8 byte 0xC0 in a string");
  EXPECT_EQ(typedError("[\"\xED\xA0\x80\"]"),
            "\"t.json\", line 1, column 3: invalid UTF-8 sequence in a string");
  EXPECT_EQ(typedError("[\"\\x\"]"),
            "\"t.json\", line 1, column 4: invalid escape sequence: expected one of \" \\ / b f n "
            "r t u after '\\', found 'x'");
  EXPECT_EQ(typedError("[tru]"), "\"t.json\", line 1, column 2: invalid literal, expected true");
  EXPECT_EQ(typedError("[-]"),
            "\"t.json\", line 1, column 3: expected a digit in a number, found ']'");
  EXPECT_EQ(typedError("[1.]"),
            "\"t.json\", line 1, column 4: expected a digit after the decimal point, found ']'");
  EXPECT_EQ(typedError("[1e+]"),
            "\"t.json\", line 1, column 5: expected a digit in the exponent, found ']'");
  EXPECT_EQ(typedError("{} {}"),
            "\"t.json\", line 1, column 4: expected the end of the input after the top-level "
            "value, found '{'");
  EXPECT_EQ(typedError(""), "\"t.json\", line 1, column 1: expected a value, found end of input");
  EXPECT_EQ(typedError("{\"a\" 1}"),
            "\"t.json\", line 1, column 6: expected ':' after a member name, found '1'");
  EXPECT_EQ(typedError("{\"a\":1,}"),
            "\"t.json\", line 1, column 8: expected a member name (a string), found '}'");
  EXPECT_EQ(typedError("[1,]"), "\"t.json\", line 1, column 4: expected a value, found ']'");
  EXPECT_EQ(typedError("[\"abc"),
            "\"t.json\", line 1, column 6: expected '\"' to end the string, found end of input");
  EXPECT_EQ(typedError("\xEF\xBB"),
            "\"t.json\", line 1, column 1: expected a value, found '\\xef'");
  EXPECT_EQ(typedError("\xEF\xBB\xBF{\"a\":1} x"),
            "\"t.json\", line 1, column 9: expected the end of the input after the top-level "
            "value, found 'x'");
}

TEST(DecoderTest, AByteFoundIsQuotedWithControlAndNonUtf8BytesAsHex) {
  // A file's bytes may have been chosen to act on the terminal that shows
  // the message: none is quoted as it is.
  EXPECT_EQ(typedError("\x1b]0;owned\x07"),
            "\"t.json\", line 1, column 1: expected a value, found '\\x1b'");
  EXPECT_EQ(typedError("[1\x07]"),
            "\"t.json\", line 1, column 3: expected ',' or ']' after an array element, found "
            "'\\x07'");
  EXPECT_EQ(typedError("{\"a\":1\x7f}"),
            "\"t.json\", line 1, column 7: expected ',' or '}' after an object member, found "
            "'\\x7f'");
  EXPECT_EQ(typedError("\xff"), "\"t.json\", line 1, column 1: expected a value, found '\\xff'");
  EXPECT_EQ(typedError("[\xc2\x85]"),
            "\"t.json\", line 1, column 2: expected a value, found '\\xc2'");
  EXPECT_EQ(typedError("[\\]"), "\"t.json\", line 1, column 2: expected a value, found '\\'");
}

TEST(DecoderTest, TypeErrorsAreLocatedExceptions) {
  auto error = [](const std::string& json, auto read) {
    MemoryInputStream stream(json);
    Document document(stream, "t.json");
    try {
      for (Member& member : document.readAsObject()) read(member.value());
    } catch (const Exception& e) {
      return std::string(e.what());
    }
    return std::string();
  };
  EXPECT_EQ(error("{\"a\": [1]}", [](Value& v) { v.asObject(); }),
            "\"t.json\", line 1, column 7: expected an object, found an array");
  EXPECT_EQ(error("{\"a\": 1}", [](Value& v) { v.asString(); }),
            "\"t.json\", line 1, column 7: expected a string, found a number");
  EXPECT_EQ(error("{\"a\": 1}", [](Value& v) { (void)v.takePlainString(); }),
            "\"t.json\", line 1, column 7: expected a string, found a number");
  EXPECT_EQ(error("{\"a\": {}}", [](Value& v) { v.asArray(); }),
            "\"t.json\", line 1, column 7: expected an array, found an object");
  EXPECT_EQ(error("{\"a\": null}", [](Value& v) { v.toUuid(); }),
            "\"t.json\", line 1, column 7: expected a string holding a UUID, found null");
  EXPECT_EQ(
      error("{\"a\": \"{01234567-89ab-cdef-0123-456789abcdef}\"}", [](Value& v) { v.toUuid(); }),
      "\"t.json\", line 1, column 7: expected a UUID (8-4-4-4-12 hexadecimal digits), found a "
      "string that is not one");
  EXPECT_EQ(error("[]", [](Value&) {}),
            "\"t.json\", line 1, column 1: expected an object, found an array");
}

TEST(DecoderTest, ErrorsAreCaughtAsRuntimeErrorsAndStdExceptions) {
  MemoryInputStream stream("[x]");
  Document document(stream, "/etc/xdg/Korvane/Config/users.json");
  // The file is named as every message names paths (with "\" on Windows).
  const std::string expected = "\"" +
                               filesystem::toPrintable("/etc/xdg/Korvane/Config/users.json") +
                               "\", line 1, column 2: expected a value, found 'x'";
  try {
    document.finish();
    FAIL() << "no error";
  } catch (const std::exception& error) {
    EXPECT_EQ(error.what(), expected);
  }
  // Sticky: every later operation throws the first error again.
  try {
    document.finish();
    FAIL() << "no error";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(error.what(), expected);
    const auto* located = dynamic_cast<const Exception*>(&error);
    ASSERT_NE(located, nullptr);
    EXPECT_EQ(located->location().line(), 1u);
    EXPECT_EQ(located->location().column(), 2u);
  }
}

TEST(DecoderTest, ThrowAtLocation) {
  const Location where(std::make_shared<const std::string>("u.json"), 4, 7, 30);
  try {
    throwAtLocation(where, "multiple user names specified for user \"ann\"");
  } catch (const std::exception& error) {
    EXPECT_STREQ(error.what(),
                 "\"u.json\", line 4, column 7: multiple user names specified for user \"ann\"");
    EXPECT_NE(dynamic_cast<const Exception*>(&error), nullptr);
    EXPECT_NE(dynamic_cast<const std::runtime_error*>(&error), nullptr);
  }
  try {
    throwAtLocation(Location(), "plain");
  } catch (const Exception&) {
    FAIL() << "an unknown location gives a plain runtime error";
  } catch (const std::runtime_error& error) {
    EXPECT_STREQ(error.what(), "plain");
  }
  // A copy keeps the text.
  try {
    throwAtLocation(where, "m");
  } catch (const Exception& error) {
    const Exception copy(error);
    EXPECT_STREQ(copy.what(), "\"u.json\", line 4, column 7: m");
  }
}

TEST(DecoderTest, MisuseIsALogicError) {
  {
    MemoryInputStream stream(R"({"a": "x", "b": "y"})");
    Document document(stream, "t.json");
    Object object = document.readAsObject();
    auto it = object.begin();
    it->value().skip();
    EXPECT_THROW(it->value().skip(), std::logic_error);  // read twice
    auto stale = it;
    ++it;
    EXPECT_THROW(*stale, std::logic_error);  // the walk moved on
    EXPECT_THROW(++stale, std::logic_error);
    EXPECT_THROW(object.begin(), std::logic_error);  // walked once
    ++it;
    EXPECT_TRUE(it == object.end());
    EXPECT_THROW(++it, std::logic_error);  // past the end
    EXPECT_THROW(*it, std::logic_error);
    EXPECT_THROW(document.root(), std::logic_error);
  }
  {
    MemoryInputStream stream(R"({"a": {"x": "1", "y": "2"}, "b": "s"})");
    Document document(stream, "t.json");
    Object object = document.readAsObject();
    auto it = object.begin();
    Object inner = it->value().asObject();
    auto innerIt = inner.begin();
    Value& innerValue = innerIt->value();
    ++it;  // the outer walk moves on: the rest of "a" is skipped
    EXPECT_THROW(innerValue.skip(), std::logic_error);
    EXPECT_THROW(++innerIt, std::logic_error);
    EXPECT_EQ(readString(it->value()), "s");
  }
  {
    MemoryInputStream stream(R"(["abc", "d"])");
    Document document(stream, "t.json");
    Array array = document.root().asArray();
    auto it = array.begin();
    String text = it->asString();
    auto chars = text.begin();
    EXPECT_EQ(*chars, 'a');
    ++it;
    EXPECT_THROW(++chars, std::logic_error);
    EXPECT_EQ(readString(*it), "d");
  }
}

// The text of the logic error that `misuse` throws; "" when there is none.
template <typename Misuse>
std::string logicError(Misuse misuse) {
  try {
    misuse();
  } catch (const std::logic_error& error) {
    return error.what();
  }
  return {};
}

// Where each item of the top-level object (its members' values) or array
// starts, as "line:column" in order; the error's text after them when
// there is one. Each item is skipped, so that the next step can be taken
// in one go.
std::string itemLocations(const std::string& json, std::size_t bufferSize) {
  MemoryInputStream stream(json, bufferSize);
  Document document(stream, "t.json");
  std::string out;
  const auto record = [&](Value& item) {
    const Location location = item.location();
    out += std::to_string(location.line()) + ":" + std::to_string(location.column()) + " ";
    item.skip();
  };
  try {
    Value& root = document.root();
    if (root.kind() == Kind::array) {
      for (Value& element : root.asArray()) record(element);
    } else {
      for (Member& member : root.asObject()) record(member.value());
    }
    document.finish();
  } catch (const Exception& error) {
    out += error.what();
  }
  return out;
}

// Separators that put the next item on a line of its own: with the
// indentations taken in one step and those left to the general path.
std::vector<std::string> lineSeparators() {
  return {",\n",    ",\n" + std::string(16, ' '), ",\n" + std::string(17, ' '), ",\n\n  ", ",\n\t",
          ",\r\n  "};
}

// `text`, then `text` with each of `bytes` put at each of `places` in turn.
std::vector<std::string> withEdits(const std::string& text, std::vector<std::size_t> places,
                                   std::vector<char> bytes) {
  std::vector<std::string> variants = {text};
  for (const std::size_t at : places) {
    for (const char byte : bytes) {
      std::string edited = text;
      edited[at] = byte;
      variants.push_back(edited);
    }
  }
  return variants;
}

// A long object whose members come in every layout around the usual one
// (", " or a line feed and an indentation, a short plain name, ": "), with
// names of every length around the longest taken in one step, is read
// alike, and located alike, through the usual buffer, where those steps
// are taken, and through buffers of a few bytes, where they never are; so
// is every error put into it.
TEST(DecoderTest, TheUsualMemberLayoutReadsAsEveryOther) {
  std::vector<std::string> separators = {", ", ",", " , ", ",\n  ", ",  "};
  for (std::string& separator : lineSeparators()) separators.push_back(std::move(separator));
  const std::vector<std::string> colons = {": ", ":", " : ", ":  ", ":\n"};
  std::string text = "{";
  for (std::size_t i = 0; i < 60; ++i) {
    if (i != 0) text += separators[i % separators.size()];
    std::string name;
    for (std::size_t j = 0; j < i; ++j) name += static_cast<char>('a' + (i + j) % 26);
    if (i % 7 == 3) name += "\\u0041";
    if (i % 13 == 5) name += "\xC3\xA9";
    text += "\"" + name + "\"" + colons[i % colons.size()];
    text += i % 3 == 0   ? "[1, {\"x\": \"y\"}]"
            : i % 3 == 1 ? "\"v" + std::to_string(i) + "\""
                         : "-0.5";
  }
  text += "}";
  for (const std::string& variant :
       withEdits(text, {200, text.size() / 2, text.size() - 30}, {'"', ':', '\x01', ' ', '\\'})) {
    const std::string expected = typedWalk(variant);
    // A buffer of one byte never holds a whole member: every member is read
    // by the general path, which counts every line feed.
    const std::string expectedLocations = itemLocations(variant, 1);
    for (std::size_t size = 1; size <= 5; ++size) {
      ASSERT_EQ(typedWalk(variant, size), expected) << "buffer " << size << " text " << variant;
    }
    for (const std::size_t size : {2u, 5u, 100u, 4096u}) {
      ASSERT_EQ(itemLocations(variant, size), expectedLocations)
          << "buffer " << size << " text " << variant;
    }
  }
}

TEST(DecoderTest, TheUsualElementLayoutReadsAsEveryOther) {
  std::vector<std::string> separators = {", ", ",", ",\n    ", " ,\n  ", ",\n "};
  for (std::string& separator : lineSeparators()) separators.push_back(std::move(separator));
  const std::vector<std::string> elements = {
      "{\"a\": [1,\n  2]}", "\"\xC3\xA9t\xC3\xA9\"", "-1.5", "[]", "null", "\"x\""};
  std::string text = "[";
  for (std::size_t i = 0; i < 80; ++i) {
    if (i != 0) text += separators[i % separators.size()];
    text += elements[i % elements.size()];
  }
  text += "]";
  for (const std::string& variant :
       withEdits(text, {100, text.size() / 2, text.size() - 20}, {',', ']', '\x01', '\n', '}'})) {
    // A buffer of one byte never holds a whole step: every step is taken
    // by the general path.
    const std::string expected = itemLocations(variant, 1);
    for (const std::size_t size : {2u, 3u, 7u, 100u, 4096u}) {
      ASSERT_EQ(itemLocations(variant, size), expected) << "buffer " << size << " text " << variant;
    }
    EXPECT_EQ(skipError(variant, 4096), skipError(variant, 1)) << variant;
  }
}

TEST(DecoderTest, NamesTellWhetherTheyHeldAnEscape) {
  MemoryInputStream stream(R"({"plain": 1, "\u0061": 2, "a\"b": 3, "caf\u00e9": 4})");
  Document document(stream, "t.json");
  std::vector<std::pair<std::string, bool>> names;
  for (Member& member : document.readAsObject()) {
    names.emplace_back(std::string(member.name().view()), member.name().escaped());
  }
  EXPECT_EQ(names, (std::vector<std::pair<std::string, bool>>{
                       {"plain", false}, {"a", true}, {"a\"b", true}, {"caf\xC3\xA9", true}}));
}

TEST(DecoderTest, PiecesTellWhichAnEscapeStoodFor) {
  const std::string value = "plain \\n \xC3\xA9 " + std::string(100, 'x') + " \\u0022 end";
  for (const std::size_t size : {std::size_t{3}, std::size_t{64 * 1024}}) {
    MemoryInputStream stream("[\"" + value + "\"]", size);
    Document document(stream, "t.json");
    std::string raw;
    std::string escaped;
    for (Value& element : document.root().asArray()) {
      element.asString().forEachPiece(
          [&](std::string_view piece, bool fromEscape) { (fromEscape ? escaped : raw) += piece; });
    }
    document.finish();
    EXPECT_EQ(escaped, "\n\"") << size;
    EXPECT_EQ(raw, "plain  \xC3\xA9 " + std::string(100, 'x') + "  end") << size;
  }
}

TEST(DecoderTest, StringEqualsComparesTheDecodedText) {
  const std::string longText(70000, 'q');
  const std::string json =
      R"(["alice", "al\u0069ce", "alic", "alicee", ")" + longText + R"(", "", "\u00e9", 5])";
  for (const std::size_t size : {std::size_t{1}, std::size_t{7}, std::size_t{64 * 1024}}) {
    MemoryInputStream stream(json, size);
    Document document(stream, "t.json");
    std::vector<bool> equal;
    int index = 0;
    try {
      for (Value& element : document.root().asArray()) {
        const std::string_view expected = index == 4   ? std::string_view(longText)
                                          : index == 5 ? std::string_view()
                                          : index == 6 ? std::string_view("\xC3\xA9")
                                                       : std::string_view("alice");
        equal.push_back(element.stringEquals(expected));
        ++index;
      }
      ADD_FAILURE() << "a number compared as a string";
    } catch (const Exception& error) {
      EXPECT_EQ(std::string(error.what()), "\"t.json\", line 1, column " +
                                               std::to_string(json.size() - 1) +
                                               ": expected a string, found a number");
    }
    EXPECT_EQ(equal, (std::vector<bool>{true, true, false, false, true, true, true})) << size;
  }
}

// A plain string whole in the buffer is taken in one step; any other, one
// with an escape, a non-ASCII character, or one the buffer does not hold
// whole, is left unread and reads as usual. Either way the text is the
// same, and a string taken is consumed.
TEST(DecoderTest, APlainStringIsTakenWholeAndAnyOtherIsLeftUnread) {
  const std::string longText(70000, 'q');
  const std::string json = "[\"plain text\", \"a\\nb\", \"caf\xC3\xA9\", \"\", \"" + longText +
                           "\", \"x\\u0041\", \"last\"]";
  const std::vector<std::string> texts{"plain text", "a\nb", "caf\xC3\xA9", "",
                                       longText,     "xA",   "last"};
  for (const std::size_t size : {std::size_t{1}, std::size_t{7}, std::size_t{64 * 1024}}) {
    MemoryInputStream stream(json, size);
    Document document(stream, "t.json");
    std::vector<std::string> read;
    std::string taken;
    for (Value& element : document.root().asArray()) {
      if (const std::optional<std::string_view> plain = element.takePlainString()) {
        read.emplace_back(*plain);
        taken += 'T';
        EXPECT_THROW(element.asString(), std::logic_error);
      } else {
        read.push_back(readString(element));
        taken += '-';
      }
    }
    document.finish();
    EXPECT_TRUE(read == texts) << size;
    if (size == 64 * 1024) {
      EXPECT_EQ(taken, "T--T--T");
    }
    if (size == 1) {
      EXPECT_EQ(taken, "-------");
    }
  }
}

// The top-level value is followed by the check of the input's end, which
// refills the buffer here: a string there is read the usual way.
TEST(DecoderTest, ATopLevelStringIsNeverTakenWhole) {
  MemoryInputStream stream("\"abcdef\"" + std::string(100, ' '), 16);
  Document document(stream, "t.json");
  Value& root = document.root();
  const std::optional<std::string_view> plain = root.takePlainString();
  EXPECT_EQ(plain.value_or("(not taken)"), "(not taken)");
  if (!plain) {
    EXPECT_EQ(readString(root), "abcdef");
  }
  document.finish();
}

TEST(DecoderTest, NamesOfEveryLengthAreReadExactly) {
  for (std::size_t length = 0; length <= 70; ++length) {
    std::string name;
    for (std::size_t i = 0; i < length; ++i) name += static_cast<char>('a' + i % 26);
    MemoryInputStream stream("{\"" + name + "\": \"x\", \"" + name + "b\": \"\"}");
    Document document(stream, "t.json");
    std::vector<std::string> names;
    for (Member& member : document.readAsObject()) names.emplace_back(std::move(member.name()));
    EXPECT_EQ(names, (std::vector<std::string>{name, name + "b"})) << length;
  }
}

TEST(DecoderTest, MisusedWalksNameTheirView) {
  MemoryInputStream stream(R"({"a": [1], "b": 2})");
  Document document(stream, "t.json");
  Object object = document.readAsObject();
  auto it = object.begin();
  Array array = it->value().asArray();
  auto element = array.begin();
  const auto staleElement = element;
  ++element;
  EXPECT_EQ(logicError([&] { *staleElement; }),
            "korvane::utils::json::decoder::Array: iterator used after the walk moved on or past "
            "the end");
  EXPECT_EQ(logicError([&] { array.begin(); }),
            "korvane::utils::json::decoder::Array: walked more than once");
  EXPECT_EQ(logicError([&] { ++element; }),
            "korvane::utils::json::decoder::Array: iterator used after the walk moved on or past "
            "the end");
  EXPECT_EQ(logicError([&] { object.begin(); }),
            "korvane::utils::json::decoder::Object: walked more than once");
  const auto staleMember = it;
  ++it;
  EXPECT_EQ(logicError([&] { staleMember->value(); }),
            "korvane::utils::json::decoder::Object: iterator used after the walk moved on or past "
            "the end");
  EXPECT_EQ(logicError([] { *Object::Iterator(); }),
            "korvane::utils::json::decoder::Object: iterator used after the walk moved on or past "
            "the end");
  it->value().skip();
  ++it;
  EXPECT_TRUE(it == object.end());
}

TEST(DecoderTest, DeepNestingIsAnErrorNotAStackOverflow) {
  const std::string deep(1000000, '[');
  EXPECT_EQ(skipError(deep),
            "\"t.json\", line 1, column 1001: nesting deeper than 1000 levels, found '['");
  EXPECT_EQ(typedError(deep),
            "\"t.json\", line 1, column 1001: nesting deeper than 1000 levels, found '['");

  // Through typed views held open at every level.
  struct Level {
    explicit Level(Value& value) : array(value.asArray()), it(array.begin()) {}
    Array array;
    Array::Iterator it;
  };
  MemoryInputStream stream(deep);
  Document document(stream, "t.json");
  std::list<Level> levels;
  Value* value = &document.root();
  try {
    for (;;) {
      levels.emplace_back(*value);
      value = &*levels.back().it;
    }
  } catch (const Exception& error) {
    EXPECT_STREQ(error.what(),
                 "\"t.json\", line 1, column 1001: nesting deeper than 1000 levels, found '['");
  }
  EXPECT_EQ(levels.size(), 1000u);

  std::string fine(1000, '[');
  fine += std::string(1000, ']');
  EXPECT_EQ(skipError(fine), "");
  EXPECT_EQ(typedError(fine), "");
}

// Errors located at the start of a string whose characters were read
// before the error was found: the column counts characters up to that
// start, whatever the string holds.
TEST(DecoderTest, ErrorsAtAStringsStartCountOnlyWhatPrecedesIt) {
  std::string wide;
  for (std::size_t i = 0; i < detail::Parser::maxNameLength / 2 + 1; ++i) wide += "\xC3\xA9";
  for (const std::size_t size : {std::size_t{3}, std::size_t{64 * 1024}}) {
    EXPECT_EQ(typedError("{\"\xC3\xA9\": 1, \"" + wide + "\": 1}", size),
              "\"t.json\", line 1, column 10: member name longer than 65536 bytes")
        << size;
    MemoryInputStream stream("{\"\xC3\xA9\": [\"x\xC3\xA9\xC3\xA9\xC3\xA9y\"]}", size);
    Document document(stream, "t.json");
    try {
      for (Member& member : document.readAsObject()) {
        for (Value& element : member.value().asArray()) (void)element.toUuid();
      }
      ADD_FAILURE() << "read a UUID";
    } catch (const Exception& error) {
      EXPECT_EQ(std::string(error.what()),
                "\"t.json\", line 1, column 8: expected a UUID (8-4-4-4-12 hexadecimal digits), "
                "found a string that is not one")
          << size;
    }
  }
}

TEST(DecoderTest, MemberNameLengthIsLimited) {
  const std::string longest(detail::Parser::maxNameLength, 'n');
  EXPECT_EQ(typedError("{\"" + longest + "\": 1}"), "");
  EXPECT_EQ(typedError("{\"" + longest + "n\": 1}"),
            "\"t.json\", line 1, column 2: member name longer than 65536 bytes");
  // Skipped names and streamed strings have no limit.
  EXPECT_EQ(skipError("{\"" + longest + "n\": 1}"), "");
  EXPECT_EQ(typedError("[\"" + longest + longest + "\"]"), "");
}

TEST(DecoderTest, ReadAsObjectRejectsOtherTopLevelValues) {
  for (const char* json : {"[]", "\"s\"", "1", "null"}) {
    MemoryInputStream stream(json);
    Document document(stream, "t.json");
    EXPECT_THROW(document.readAsObject(), Exception) << json;
  }
}

TEST(DecoderTest, TopLevelStringAndScalars) {
  for (std::size_t size : {1u, 3u, 100u}) {
    MemoryInputStream stream(" \"a\\tb\" ", size);
    Document document(stream, "t.json");
    EXPECT_EQ(readString(document.root()), "a\tb");
    document.finish();
  }
  MemoryInputStream stream("\"a\" x");
  Document document(stream, "t.json");
  EXPECT_THROW(readString(document.root()), Exception);
}

}  // namespace
}  // namespace korvane::utils::json::decoder

namespace korvane::utils::json::decoder {
namespace {

// The member values of a one-level object, read either through the string
// walk or in runs with appendTo(); errors become "error: <text>".
std::string memberValues(const std::string& json, std::size_t bufferSize, bool inRuns) {
  MemoryInputStream stream(json, bufferSize);
  Document document(stream, "t.json");
  std::string values;
  try {
    for (Member& member : document.readAsObject()) {
      if (inRuns) {
        std::string text;
        member.value().asString().appendTo(text);
        values += text;
      } else {
        values += readString(member.value());
      }
      values += '|';
    }
    document.finish();
  } catch (const Exception& error) {
    values += std::string("error: ") + error.what();
  }
  return values;
}

TEST(DecoderTest, AppendToGivesWhatTheWalkGives) {
  const std::vector<std::string> texts = {
      R"({"a": "plain", "b": "", "c": "esc \" \\ \/ \b\f\n\r\t \u00e9 \ud834\udd1e end"})",
      "{\"a\": \"\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 mixed\", \"b\": \"" + std::string(300, 'x') +
          "\"}",
      R"({"a": "ok", "b": "bad \q escape"})",
      "{\"a\": \"invalid \xC3 utf-8\"}",
      R"({"a": "lone \ud800 surrogate"})",
      R"({"a": "unterminated)",
  };
  for (const std::string& text : texts) {
    for (const std::size_t size : {1u, 2u, 3u, 5u, 7u, 64u * 1024u}) {
      EXPECT_EQ(memberValues(text, size, true), memberValues(text, size, false))
          << "buffer " << size << " text " << text;
    }
  }
  EXPECT_EQ(memberValues(texts[0], 3, true),
            "plain||esc \" \\ / \b\f\n\r\t \xC3\xA9 \xF0\x9D\x84\x9E end|");
}

TEST(DecoderTest, AppendToTakesTheWalksPlace) {
  MemoryInputStream stream(R"({"a": "text"})");
  Document document(stream, "t.json");
  for (Member& member : document.readAsObject()) {
    String string = member.value().asString();
    std::string text;
    string.appendTo(text);
    EXPECT_EQ(text, "text");
    EXPECT_THROW(string.begin(), std::logic_error);
    EXPECT_THROW(string.appendTo(text), std::logic_error);
  }
}

}  // namespace
}  // namespace korvane::utils::json::decoder

namespace korvane::utils::json::decoder {
namespace {

// The elements and then the members that a document resumed inside a
// member's array reads, or its error.
std::string resumedWalk(const std::string& rest) {
  MemoryInputStream stream(rest);
  Document document(stream, "rest.json");
  try {
    auto [object, array] = document.resumeInMemberArray();
    std::string walked;
    for (Value& element : array) {
      for (Member& member : element.asObject()) {
        walked += std::string(member.name().view()) + "=" + readString(member.value()) + ";";
      }
      walked += "@" + std::to_string(document.offset()) + ";";
    }
    walked += "|";
    for (Member& member : object) {
      walked += std::string(member.name().view()) + ";";
      member.value().skip();
    }
    document.finish();
    return walked;
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

TEST(DecoderTest, ResumesJustAfterAnElementOfAMembersArray) {
  EXPECT_EQ(resumedWalk(", {\"a\": \"x\"},\n{\"b\": \"y\"}], \"next\": [1, {}], \"last\": 2}\n"),
            "a=x;@12;b=y;@24;|next;last;");
  EXPECT_EQ(resumedWalk("]}"), "|");
  // The item before the stream is taken as read: a first element without
  // its separator is an error, located in the rest's own lines.
  EXPECT_EQ(resumedWalk("{\"a\": \"x\"}]}"),
            "error \"rest.json\", line 1, column 1: expected ',' or ']' after an array element, "
            "found '{'");
  EXPECT_EQ(resumedWalk("]} x"),
            "error \"rest.json\", line 1, column 4: expected the end of the input after the "
            "top-level value, found 'x'");
  EXPECT_EQ(resumedWalk("], \"a\": 1"),
            "error \"rest.json\", line 1, column 10: expected ',' or '}' after an object member, "
            "found end of input");
}

TEST(DecoderTest, AResumedDocumentHasNoRootToTake) {
  MemoryInputStream stream("]}");
  Document document(stream, "rest.json");
  (void)document.resumeInMemberArray();
  EXPECT_THROW((void)document.root(), std::logic_error);
  MemoryInputStream again("{}");
  Document whole(again, "whole.json");
  (void)whole.root();
  EXPECT_THROW((void)whole.resumeInMemberArray(), std::logic_error);
}

}  // namespace
}  // namespace korvane::utils::json::decoder
