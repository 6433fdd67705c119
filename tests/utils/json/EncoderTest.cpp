#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/utils/json/MemoryStreams.h"
#include "tests/utils/json/ScanLevelScope.h"
#include "utils/json/decoder/Document.h"
#include "utils/json/encoder/Document.h"

namespace korvane::utils::json::encoder {
namespace {

using test::MemoryInputStream;
using test::MemoryOutputStream;
using Entries = std::vector<std::pair<std::string, std::string>>;

std::string encode(const Entries& entries, Format format, std::size_t bufferSize = 64 * 1024) {
  MemoryOutputStream stream(bufferSize);
  {
    Document document(stream, format);
    Object object = document.asObject();
    for (const auto& [name, value] : entries) object.add(name, value);
  }
  return stream.text();
}

Entries decode(const std::string& json, std::size_t bufferSize = 64 * 1024) {
  MemoryInputStream stream(json, bufferSize);
  decoder::Document document(stream, "p.json");
  Entries entries;
  for (decoder::Member& member : document.readAsObject()) {
    std::string value;
    for (const char c : member.value().asString()) value += c;
    entries.emplace_back(std::move(member.name()), std::move(value));
  }
  document.finish();
  return entries;
}

TEST(EncoderTest, IndentedFormat) {
  EXPECT_EQ(encode({{"$schema", "https://docs.korvane.com/korvane/schema-korvane-passwords.json"},
                    {"01234567-89ab-cdef-0123-456789abcdef", "$6$salt$hash"}},
                   Format::indented),
            "{\n"
            "  \"$schema\": \"https://docs.korvane.com/korvane/schema-korvane-passwords.json\",\n"
            "  \"01234567-89ab-cdef-0123-456789abcdef\": \"$6$salt$hash\"\n"
            "}\n");
  EXPECT_EQ(encode({}, Format::indented), "{}\n");
  EXPECT_EQ(encode({{"a", "b"}}, static_cast<Format>(0)), "{\n  \"a\": \"b\"\n}\n");
}

TEST(EncoderTest, CompactFormat) {
  EXPECT_EQ(encode({{"a", "b"}, {"c", ""}}, Format::compact), "{\"a\":\"b\",\"c\":\"\"}");
  EXPECT_EQ(encode({}, Format::compact), "{}");
}

TEST(EncoderTest, Escaping) {
  std::string controls;
  for (int c = 0; c < 0x20; ++c) controls += static_cast<char>(c);
  EXPECT_EQ(
      encode({{"q\"b\\", controls + "\x7F\xC3\xA9/"}}, Format::compact),
      "{\"q\\\"b\\\\\":"
      "\"\\u0000\\u0001\\u0002\\u0003\\u0004\\u0005\\u0006\\u0007\\b\\t\\n\\u000b\\f\\r"
      "\\u000e\\u000f\\u0010\\u0011\\u0012\\u0013\\u0014\\u0015\\u0016\\u0017\\u0018\\u0019\\u001a"
      "\\u001b\\u001c\\u001d\\u001e\\u001f\x7F\xC3\xA9/\"}");
}

TEST(EncoderTest, DocumentDestroyedFirstClosesTheObject) {
  MemoryOutputStream stream;
  std::optional<Document> document(std::in_place, stream, Format::indented);
  Object object = document->asObject();
  object.add("a", "b");
  EXPECT_THROW(document->asObject(), std::logic_error);
  document.reset();
  EXPECT_EQ(stream.text(), "{\n  \"a\": \"b\"\n}\n");
  EXPECT_THROW(object.add("c", "d"), std::logic_error);
}

// A value written in pieces, split at every point, is the same bytes as
// the value written whole; text that needs no escape is copied as it is.
TEST(EncoderTest, ValueInPiecesIsTheWholeValue) {
  const std::string value = std::string("plain \"q\" \\ \n\x01\x7F") + "\xC3\xA9 end";
  for (const Format format : {Format::indented, Format::compact}) {
    const std::string whole = encode({{"a", "x"}, {"n\"m", value}}, format);
    for (std::size_t split = 0; split <= value.size(); ++split) {
      MemoryOutputStream stream(1 + split % 7);
      {
        Document document(stream, format);
        Object object = document.asObject();
        object.beginMember("a", Object::Escape::none);
        object.appendToValue("x", Object::Escape::none);
        object.endMember();
        object.beginMember("n\"m");
        object.appendToValue(std::string_view(value).substr(0, split));
        object.appendToValue(std::string_view(value).substr(split));
        object.endMember();
      }
      EXPECT_EQ(stream.text(), whole) << split;
    }
  }
}

// A member whose name and value need no escape, written in one call, is
// the same bytes as add() writes; with Escape::needed, both are escaped.
TEST(EncoderTest, MemberWithoutEscapesIsWhatAddWrites) {
  for (const Format format : {Format::indented, Format::compact}) {
    const std::string expected =
        encode({{"a", "x"}, {"0123-abcd", "$6$salt$hash"}, {"q\"", "v\n"}}, format);
    MemoryOutputStream stream(5);
    {
      Document document(stream, format);
      Object object = document.asObject();
      object.add("a", "x", Object::Escape::none);
      object.add("0123-abcd", "$6$salt$hash", Object::Escape::none);
      object.add("q\"", "v\n", Object::Escape::needed);
    }
    EXPECT_EQ(stream.text(), expected);
  }
  MemoryOutputStream stream;
  Document document(stream, Format::compact);
  Object object = document.asObject();
  object.beginMember("a");
  EXPECT_THROW(object.add("b", "c", Object::Escape::none), std::logic_error);
}

TEST(EncoderTest, MembersInPiecesRefuseMisuse) {
  MemoryOutputStream stream;
  Document document(stream, Format::compact);
  Object object = document.asObject();
  EXPECT_THROW(object.appendToValue("x"), std::logic_error);
  EXPECT_THROW(object.endMember(), std::logic_error);
  object.beginMember("a");
  EXPECT_THROW(object.add("b", "c"), std::logic_error);
  EXPECT_THROW(object.beginMember("b"), std::logic_error);
  object.appendToValue("v");
  object.endMember();
  object.add("b", "c");
  EXPECT_EQ(stream.text(), "{\"a\":\"v\",\"b\":\"c\"");
}

// Random bytes made into valid UTF-8: every code point class, controls,
// quotes and backslashes included.
std::string randomUtf8(std::mt19937& engine, std::size_t maxLength) {
  auto random = [&engine] { return static_cast<unsigned>(engine()); };
  std::string text;
  const std::size_t length = std::uniform_int_distribution<std::size_t>(0, maxLength)(engine);
  auto byte = [](unsigned value) { return static_cast<char>(static_cast<unsigned char>(value)); };
  while (text.size() < length) {
    const unsigned kind = random() % 8;
    unsigned cp = 0;
    if (kind < 3) {
      cp = random() % 0x80;
    } else if (kind == 3) {
      cp = std::array<unsigned, 4>{'"', '\\', '\n', 0}[random() % 4];
    } else if (kind == 4) {
      cp = 0x80 + random() % (0x800 - 0x80);
    } else if (kind == 5) {
      do cp = 0x800 + random() % (0x10000 - 0x800);
      while (cp >= 0xD800 && cp <= 0xDFFF);
    } else {
      cp = 0x10000 + random() % (0x110000 - 0x10000);
    }
    if (cp < 0x80) {
      text += byte(cp);
    } else if (cp < 0x800) {
      text += byte(0xC0 | (cp >> 6));
      text += byte(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      text += byte(0xE0 | (cp >> 12));
      text += byte(0x80 | ((cp >> 6) & 0x3F));
      text += byte(0x80 | (cp & 0x3F));
    } else {
      text += byte(0xF0 | (cp >> 18));
      text += byte(0x80 | ((cp >> 12) & 0x3F));
      text += byte(0x80 | ((cp >> 6) & 0x3F));
      text += byte(0x80 | (cp & 0x3F));
    }
  }
  return text;
}

TEST(EncoderTest, RoundTripThroughTheDecoder) {
  std::mt19937 random(20240601);
  for (int round = 0; round < 300; ++round) {
    Entries entries;
    const int count = static_cast<int>(random() % 6);
    for (int i = 0; i < count; ++i)
      entries.emplace_back(randomUtf8(random, 20), randomUtf8(random, 40));
    for (const Format format : {Format::indented, Format::compact}) {
      const std::string json = encode(entries, format, 1 + random() % 16);
      EXPECT_EQ(decode(json), entries) << json;
      EXPECT_EQ(decode(json, 1 + random() % 7), entries) << json;
    }
  }
}

TEST(EncoderTest, RoundTripOfEscapedInput) {
  const std::string json =
      "{\"\\u00e9\\ud83d\\ude00\\t\": \"a\\/b\\\"c\\\\d\\u0000\\u001F\", \"x\": "
      "\"\\b\\f\\n\\r\\t\"}";
  const Entries entries = decode(json);
  EXPECT_EQ(decode(encode(entries, Format::indented)), entries);
  EXPECT_EQ(encode(entries, Format::compact),
            "{\"\xC3\xA9\xF0\x9F\x98\x80\\t\":\"a/"
            "b\\\"c\\\\d\\u0000\\u001f\",\"x\":\"\\b\\f\\n\\r\\t\"}");
}

// The escaping of one byte, written out plainly, as the reference.
std::string referenceQuoted(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    switch (byte) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (byte < 0x20) {
          static constexpr char hex[] = "0123456789abcdef";
          out += "\\u00";
          out += hex[byte >> 4];
          out += hex[byte & 0xF];
        } else {
          out += c;
        }
    }
  }
  return out + "\"";
}

// Plain runs are measured many bytes at a time: every byte value at every
// place of a string longer than two of the widest blocks, at every scan
// level, must be written as the byte-by-byte reference writes it.
TEST(EncoderTest, EveryByteAtEveryPlaceAtEveryScanLevel) {
  for (const json::detail::ScanLevel level : test::everyScanLevel()) {
    const test::ScanLevelScope scope(level);
    for (int byte = 0; byte < 256; ++byte) {
      for (std::size_t place = 0; place < 70; ++place) {
        std::string value(70, 'a');
        value[place] = static_cast<char>(byte);
        value[69 - place] = static_cast<char>(0xC3 ^ byte);
        const std::string json = encode({{"n", value}}, Format::compact);
        ASSERT_EQ(json, "{\"n\":" + referenceQuoted(value) + "}")
            << "byte " << byte << " at " << place << ", level " << static_cast<int>(level);
      }
    }
  }
}

}  // namespace
}  // namespace korvane::utils::json::encoder
