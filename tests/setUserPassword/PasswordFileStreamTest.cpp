// The streamed copy of PasswordFile writes, for every way its input can
// arrive, exactly the bytes that the reference (the file decoded whole,
// changed in memory and encoded again, tests/support/PasswordFileReference.h)
// writes: with its input cut at every position and read through buffers of
// every small size, and through a real file by rewrite().
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PasswordFileReference.h"
#include "tests/utils/json/MemoryStreams.h"
#include "utils/core/Format.h"
#include "utils/io/InputStream.h"
#include "utils/io/OutputStream.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::copyPass;
using korvane::testing::PassOutcome;
using korvane::testing::referencePass;
using utils::core::Uuid;
using utils::json::test::SplitInputStream;

const Uuid changedUuid = *Uuid::fromString("11111111-2222-4333-8444-555555555555");
constexpr std::string_view changedName = "11111111-2222-4333-8444-555555555555";

struct Sample {
  const char* label;
  std::string text;
};

std::vector<Sample> samples() {
  const std::string schema = "\"$schema\": \"https://docs.korvane.com/x.json\"";
  const std::string other = "\"aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee\": \"$6$salt$other\"";
  return {
      {"plain", "{\n  " + schema + ",\n  " + other + ",\n  \"" + std::string(changedName) +
                    "\": \"$6$salt$old\"\n}\n"},
      {"escapes",
       "{" + schema +
           ", \"na\\u006De \\\"q\\\"\": \"tab\\t nl\\n \\u00e9 \\ud83d\\ude00 \\/ \\\\\", "
           "\"\\u0031" +
           std::string(changedName.substr(1)) + "\": \"escaped name\", " + other + "}"},
      {"long value", "{ " + schema + " , \"long\" : \"" + std::string(700, 'L') + "\" ,\"" +
                         std::string(changedName) + "\":\"old\"}"},
      {"duplicates", "{\"" + std::string(changedName) + "\": \"first\", " + other + ", \"" +
                         std::string(changedName) +
                         "\": \"second\", \"x\": \"y\", \"11111111-2222-4333-8444-"
                         "555555555555\": \"third\"}\r\n"},
      {"unknown members",
       "\t{\"\": \"\", \"note\": \"caf\xC3\xA9 \xF0\x9F\x98\x80\", \"users\": \"none\", "
       "\"11111111-2222-4333-8444-55555555555\": \"one digit short\", \"" +
           std::string(changedName) + "x\": \"longer\"}  "},
  };
}

std::vector<PasswordChange> changes() {
  return {{changedUuid, "$6$new$hash"},
          {changedUuid, std::nullopt},
          {*Uuid::fromString("3f2504e0-4f89-41d3-9a0c-0305e82c3301"), "appended"},
          {*Uuid::fromString("3f2504e0-4f89-41d3-9a0c-0305e82c3301"), std::nullopt}};
}

TEST(PasswordFileStreamTest, CopyCutAtEveryPositionWritesWhatTheReferenceWrites) {
  for (const Sample& sample : samples()) {
    for (const PasswordChange& change : changes()) {
      const PassOutcome expected = referencePass(sample.text, &change);
      ASSERT_TRUE(expected.accepted) << sample.label;
      for (std::size_t split = 0; split <= sample.text.size(); ++split) {
        SplitInputStream stream(sample.text, split);
        ASSERT_EQ(copyPass(stream, &change), expected) << sample.label << ", cut at " << split;
      }
      for (std::size_t buffer = 1; buffer <= 64; ++buffer) {
        ASSERT_EQ(copyPass(sample.text, &change, buffer), expected)
            << sample.label << ", buffer of " << buffer;
      }
    }
  }
}

TEST(PasswordFileStreamTest, RewriteWritesWhatTheReferenceWrites) {
  korvane::testing::TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  for (const Sample& sample : samples()) {
    for (const PasswordChange& change : changes()) {
      korvane::testing::writeFile(path, sample.text);
      PasswordFile(path).rewrite(change);
      EXPECT_EQ(korvane::testing::readFile(path), referencePass(sample.text, &change).text)
          << sample.label;
      EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory.path()),
                              std::filesystem::directory_iterator()),
                1);
    }
  }
}

// What the changes do, spelled out for one file, so that the reference
// itself is held to the rules.
TEST(PasswordFileStreamTest, TheReferenceAppliesTheChangesAsTheToolDoes) {
  const Sample duplicates = samples()[3];
  const std::vector<PasswordChange> all = changes();
  EXPECT_EQ(referencePass(duplicates.text, &all[0]).text,
            "{\n  \"11111111-2222-4333-8444-555555555555\": \"$6$new$hash\",\n"
            "  \"aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee\": \"$6$salt$other\",\n"
            "  \"x\": \"y\"\n}\n");
  EXPECT_EQ(referencePass(duplicates.text, &all[1]).text,
            "{\n  \"aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee\": \"$6$salt$other\",\n"
            "  \"x\": \"y\"\n}\n");
  EXPECT_EQ(referencePass(duplicates.text, &all[2]).text,
            "{\n  \"11111111-2222-4333-8444-555555555555\": \"first\",\n"
            "  \"aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee\": \"$6$salt$other\",\n"
            "  \"11111111-2222-4333-8444-555555555555\": \"second\",\n"
            "  \"x\": \"y\",\n"
            "  \"11111111-2222-4333-8444-555555555555\": \"third\",\n"
            "  \"3f2504e0-4f89-41d3-9a0c-0305e82c3301\": \"appended\"\n}\n");
  // The name decoded from escapes is the changed UUID's, and keeps its
  // decoded spelling.
  const std::string escaped = referencePass(samples()[1].text, &all[0]).text;
  EXPECT_NE(escaped.find("\"" + std::string(changedName) + "\": \"$6$new$hash\""),
            std::string::npos)
      << escaped;
  EXPECT_EQ(escaped.find("escaped name"), std::string::npos) << escaped;
  EXPECT_FALSE(referencePass("{\"a\": 1}").accepted);
  EXPECT_EQ(referencePass("{}", &all[0]).text,
            "{\n  \"11111111-2222-4333-8444-555555555555\": \"$6$new$hash\"\n}\n");
}

// The text, then a failure to read at its end.
class FailingInputStream : public utils::io::InputStream<char> {
 public:
  explicit FailingInputStream(std::string text) : InputStream<char>(16), text_(std::move(text)) {}

 protected:
  std::size_t readSome(std::span<char> into) override {
    if (at_ == text_.size()) throw std::runtime_error("read failed");
    const std::size_t count = std::min(into.size(), text_.size() - at_);
    std::copy_n(text_.data() + at_, count, into.data());
    at_ += count;
    return count;
  }

 private:
  std::string text_;
  std::size_t at_ = 0;
};

// A sink that takes every write at once and, when told so, learns later
// that one of them failed, as a writer working in the background does.
class LateFailingOutputStream : public utils::io::OutputStream<char> {
 public:
  explicit LateFailingOutputStream(bool fails) : OutputStream<char>(16), fails_(fails) {}

 protected:
  void writeSome(std::span<const char>) override {}
  void settleSink() override {
    if (fails_) throw std::runtime_error("write failed in the background");
  }

 private:
  bool fails_;
};

// A failure to write that is still being learned of when reading fails
// happened first: it is the one reported.
TEST(PasswordFileStreamTest, AFailureToWriteUnderWayComesBeforeAFailureToReadAfterIt) {
  const std::string text = samples().front().text;
  const PasswordChange change = changes().front();
  for (const bool writeFails : {false, true}) {
    FailingInputStream in(text.substr(0, text.size() - 4));
    LateFailingOutputStream out(writeFails);
    try {
      PasswordFile::copy(in, "passwords.json", &change, &out);
      ADD_FAILURE() << "no failure";
    } catch (const std::runtime_error& error) {
      EXPECT_EQ(std::string(error.what()),
                writeFails ? "write failed in the background" : "read failed");
    }
  }
}

}  // namespace
}  // namespace korvane::setUserPassword
