#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/PasswordFileReference.h"
#include "tests/support/Unprivileged.h"
#include "tests/utils/json/MemoryStreams.h"
#include "utils/core/Format.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::decodePasswordFile;
using korvane::testing::PasswordMembers;
using korvane::testing::readFile;
using korvane::testing::readPasswordFile;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;
using utils::core::Uuid;

const Uuid uuidA = *Uuid::fromString("11111111-2222-4333-8444-555555555555");
const Uuid uuidB = *Uuid::fromString("aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee");

using Names = std::vector<std::string>;

Names namesOf(const PasswordMembers& members) {
  Names names;
  for (const auto& member : members) names.push_back(member.name);
  return names;
}

class PasswordFileTest : public ::testing::Test {
 protected:
  void rewrite(const PasswordChange& change) const { PasswordFile(path_).rewrite(change); }

  PasswordMembers readBack() const { return readPasswordFile(path_); }

  std::vector<std::filesystem::path> filesInDirectory() const {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
      files.push_back(entry.path().filename());
    }
    std::sort(files.begin(), files.end());
    return files;
  }

  TemporaryDirectory directory_;
  std::filesystem::path path_ = directory_.path() / "passwords.json";
};

TEST_F(PasswordFileTest, MissingFileIsCheckedWithoutBeingCreated) {
  PasswordFile(path_).check();
  EXPECT_TRUE(filesInDirectory().empty());
  EXPECT_TRUE(PasswordFile::schemaUrl().starts_with("https://"));
  EXPECT_TRUE(PasswordFile::schemaUrl().ends_with("/korvane/schema-korvane-passwords.json"));
}

TEST_F(PasswordFileTest, NewFileHoldsSchemaThenTheUser) {
  rewrite({uuidA, "$6$salt$hash"});
  EXPECT_EQ(readFile(path_), "{\n  \"$schema\": \"" + std::string(PasswordFile::schemaUrl()) +
                                 "\",\n  \"11111111-2222-4333-8444-555555555555\": "
                                 "\"$6$salt$hash\"\n}\n");
  EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.json"});
}

TEST_F(PasswordFileTest, RemovalFromAMissingFileWritesOnlyTheSchema) {
  rewrite({uuidA, std::nullopt});
  EXPECT_EQ(readFile(path_),
            "{\n  \"$schema\": \"" + std::string(PasswordFile::schemaUrl()) + "\"\n}\n");
  EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.json"});
}

TEST_F(PasswordFileTest, EmptyObjectHasNoSchema) {
  writeFile(path_, "{}");
  PasswordFile(path_).check();
  rewrite({uuidA, "h"});
  EXPECT_EQ(namesOf(readBack()), Names{"11111111-2222-4333-8444-555555555555"});
}

TEST_F(PasswordFileTest, SetKeepsPositionAndSpellingOfTheName) {
  writeFile(path_, R"({"$schema": "s", "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE": "old",
                       "x": "y", "11111111-2222-4333-8444-555555555555": "a"})");
  rewrite({uuidB, "new"});
  const PasswordMembers back = readBack();
  EXPECT_EQ(namesOf(back), (Names{"$schema", "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE", "x",
                                  "11111111-2222-4333-8444-555555555555"}));
  EXPECT_EQ(back[1].value, "new");
  EXPECT_EQ(back[1].uuid, uuidB);
  EXPECT_EQ(back[2].value, "y");
  EXPECT_EQ(back[3].value, "a");
}

TEST_F(PasswordFileTest, SetChangesTheFirstAndDropsLaterDuplicates) {
  writeFile(path_, R"({"11111111-2222-4333-8444-555555555555": "1", "b": "2",
                       "11111111-2222-4333-8444-555555555555": "3", "c": "4"})");
  rewrite({uuidA, "new"});
  const PasswordMembers back = readBack();
  EXPECT_EQ(namesOf(back), (Names{"11111111-2222-4333-8444-555555555555", "b", "c"}));
  EXPECT_EQ(back[0].value, "new");
}

TEST_F(PasswordFileTest, RemovalDropsEveryEntryOfTheUserAndKeepsTheRest) {
  writeFile(path_, R"({"$schema": "s", "11111111-2222-4333-8444-555555555555": "1", "b": "2",
                       "11111111-2222-4333-8444-555555555555": "3", "c": "4"})");
  rewrite({uuidA, std::nullopt});
  EXPECT_EQ(namesOf(readBack()), (Names{"$schema", "b", "c"}));
  const std::string written = readFile(path_);
  rewrite({uuidB, std::nullopt});  // no entry: no change
  EXPECT_EQ(readFile(path_), written);
}

TEST_F(PasswordFileTest, UnknownMembersAreWrittenBackUnchanged) {
  const std::string odd = "tab\t quote\" backslash\\ control\x01 unicode \xC3\xA9 \xF0\x9F\x94\x91";
  rewrite({uuidB, odd});
  PasswordMembers back = readBack();
  ASSERT_EQ(back.size(), 2u);
  EXPECT_EQ(back[1].value, odd);
  // Copied by the next rewrite, whose change is another user's.
  rewrite({uuidA, "h"});
  back = readBack();
  ASSERT_EQ(back.size(), 3u);
  EXPECT_EQ(back[1].value, odd);
}

TEST_F(PasswordFileTest, ManyEntriesAndHugeValuesSurviveARewriteByteForByte) {
  // Many members, with values longer than the stream's buffer among them.
  std::string text = "{\n  \"$schema\": \"s\"";
  for (int i = 0; i < 30000; ++i) {
    const std::string value = i % 9999 == 5
                                  ? std::string(static_cast<std::size_t>(1500000 + i), 'v')
                                  : "$6$" + std::to_string(i);
    text += ",\n  \"name " + std::to_string(i) + "\": \"" + value + "\"";
  }
  text += ",\n  \"11111111-2222-4333-8444-555555555555\": \"old\"\n}\n";
  writeFile(path_, text);
  PasswordFile(path_).check();
  const PasswordMembers members = readBack();
  ASSERT_EQ(members.size(), 30002u);
  EXPECT_EQ(members[6].value.size(), 1500005u);
  rewrite({uuidA, "new"});
  rewrite({uuidA, "newer"});
  const std::size_t old = text.rfind("old");
  EXPECT_EQ(readFile(path_), text.substr(0, old) + "newer" + text.substr(old + 3));
  EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.json"});
}

TEST_F(PasswordFileTest, NonStringValuesMakeCheckAndRewriteFail) {
  for (const std::string content :
       {R"({"a": 1})", R"({"a": {}})", R"({"a": []})", R"({"a": true})", R"({"a": null})",
        R"({"a": "b",})", R"([])", R"({"a": "b"} x)"}) {
    writeFile(path_, content);
    const std::string where = "\"" + path_.string() + "\", line 1";
    try {
      PasswordFile(path_).check();
      ADD_FAILURE() << "checked: " << content;
    } catch (const std::runtime_error& error) {
      EXPECT_TRUE(std::string(error.what()).starts_with(where)) << error.what();
    }
    try {
      rewrite({uuidA, "h"});
      ADD_FAILURE() << "rewrote: " << content;
    } catch (const std::runtime_error& error) {
      EXPECT_TRUE(std::string(error.what()).starts_with(where)) << error.what();
    }
    EXPECT_EQ(readFile(path_), content);
    EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.json"}) << content;
  }
}

// An error that only the end of a long file shows: by then the copy has
// written much of the temporary file, which must go again.
TEST_F(PasswordFileTest, AnErrorFoundWhileRewritingRemovesTheTemporaryFile) {
  std::string body = "{\n  \"$schema\": \"s\"";
  for (int i = 0; i < 8000; ++i) {
    body += utils::core::format(",\n  \"name {}\": \"$6$salt${:0>86}\"", i, i);
  }
  for (const std::string& end :
       {std::string(",\n  \"x\": 1\n}\n"), std::string(",\n  \"x\": \"\\u00e9\"\n"),
        std::string(",\n  \"x\": \"y\"\n} {"), std::string(",\n  \"x\": \"\\q\"\n}\n"),
        std::string(",\n  \"11111111-2222-4333-8444-555555555555\": []\n}\n")}) {
    const std::string content = body + end;
    writeFile(path_, content);
    for (const std::optional<std::string_view> hash :
         {std::optional<std::string_view>("h"), std::optional<std::string_view>()}) {
      EXPECT_THROW(rewrite({uuidA, hash}), std::runtime_error) << end;
      EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.json"}) << end;
      EXPECT_TRUE(readFile(path_) == content) << end;
    }
  }
}

TEST_F(PasswordFileTest, OtherOpenErrorsPropagate) {
  std::filesystem::create_directory(path_);
  EXPECT_THROW(PasswordFile(path_).check(), std::runtime_error);
  EXPECT_THROW(rewrite({uuidA, "h"}), std::runtime_error);
  EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.json"});
}

TEST_F(PasswordFileTest, NewFileIsPrivateWhateverTheUmask) {
  const mode_t old = ::umask(0);
  rewrite({uuidA, "h"});
  ::umask(old);
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(PasswordFileTest, ReplacementKeepsTheOldMode) {
  writeFile(path_, "{}");
  ::chmod(path_.c_str(), 0640);
  rewrite({uuidA, "h"});
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(PasswordFileTest, FailingWriteLeavesTheOldFile) {
  writeFile(path_, R"({"a": "b"})");
  ::chmod(directory_.path().c_str(), 0500);
  korvane::testing::runUnprivileged(
      [&] {
        EXPECT_THROW(rewrite({uuidA, "h"}), std::system_error);
      },
      {directory_.path(), path_});
  ::chmod(directory_.path().c_str(), 0700);
  EXPECT_EQ(readFile(path_), R"({"a": "b"})");
}

TEST_F(PasswordFileTest, MissingDirectoryFailsWithoutCreatingIt) {
  PasswordFile file(directory_.path() / "missing" / "passwords.json");
  EXPECT_THROW(file.rewrite({uuidA, "h"}), std::system_error);
  EXPECT_FALSE(std::filesystem::exists(directory_.path() / "missing"));
}

TEST_F(PasswordFileTest, SymbolicLinksAreKept) {
  std::filesystem::create_directories(directory_.path() / "real");
  const auto target = directory_.path() / "real" / "passwords.json";
  writeFile(target, R"({"a": "b"})");
  // A relative link to a relative link, as installations make them.
  std::filesystem::create_symlink("real/passwords.json", directory_.path() / "middle.json");
  std::filesystem::create_symlink("middle.json", path_);
  rewrite({uuidA, "h"});
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_TRUE(std::filesystem::is_symlink(directory_.path() / "middle.json"));
  EXPECT_EQ(namesOf(readBack()), (Names{"a", "11111111-2222-4333-8444-555555555555"}));
  EXPECT_EQ(readPasswordFile(target).size(), 2u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_.path() / "real"),
                          std::filesystem::directory_iterator()),
            1);
}

TEST_F(PasswordFileTest, AbsoluteSymbolicLinkIsKept) {
  const auto target = directory_.path() / "target.json";
  writeFile(target, "{}");
  std::filesystem::create_symlink(target, path_);
  rewrite({uuidB, "h"});
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_NE(readFile(target).find("aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee"), std::string::npos);
}

TEST_F(PasswordFileTest, SymbolicLinkLoopIsAnError) {
  std::filesystem::create_symlink("loop.json", path_);
  std::filesystem::create_symlink("passwords.json", directory_.path() / "loop.json");
  EXPECT_THROW(PasswordFile(path_).check(), std::system_error);
  try {
    rewrite({uuidA, "h"});
    FAIL() << "wrote through a link loop";
  } catch (const std::system_error& error) {
    EXPECT_EQ(std::string(error.what()), "could not follow the links of \"" + path_.string() +
                                             "\": Too many levels of symbolic links");
  }
}

// ---- The copy (PasswordFile::copy) against the reference
// (tests/support/PasswordFileReference.h)

using korvane::testing::copyPass;
using korvane::testing::PassOutcome;
using korvane::testing::referencePass;

const PasswordChange setA{uuidA, "$6$new$hash"};
const PasswordChange setB{uuidB, "$6$new$hash"};
const PasswordChange removeA{uuidA, std::nullopt};
const PasswordChange removeB{uuidB, std::nullopt};

// The copy agrees with the reference on `content`, for a check and for each
// change, through the default buffer and one of 5 bytes. Returns whether
// the text was accepted.
bool expectCopyAgrees(const std::string& content, const std::string& label = {}) {
  const PassOutcome checked = referencePass(content);
  EXPECT_EQ(copyPass(content), checked) << label;
  for (const PasswordChange* change : {&setA, &setB, &removeA, &removeB}) {
    const PassOutcome expected = referencePass(content, change);
    EXPECT_EQ(copyPass(content, change), expected) << label;
    EXPECT_EQ(copyPass(content, change, 5), expected) << label;
  }
  return checked.accepted;
}

// A password file as the tool writes it, with an unknown member and names
// and values of other kinds.
std::string passwordsText(int count) {
  std::string text =
      "{\n  \"$schema\": \"https://docs.korvane.com/korvane/schema-korvane-passwords.json\"";
  for (int i = 1; i <= count; ++i) {
    text += utils::core::format(",\n  \"{:08x}-1111-4222-8333-{:012x}\": \"$6${:016x}${}\"",
                                static_cast<unsigned>(i) * 2654435761U, i, i,
                                std::string(86, static_cast<char>('a' + i % 26)));
  }
  text +=
      ",\n  \"AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE\": \"\",\n  \"note\": \"caf\xC3\xA9 "
      "\xF0\x9F\x98\x80\"\n}\n";
  return text;
}

TEST_F(PasswordFileTest, OrdinaryFilesAreCopiedWithTheirChange) {
  const std::string text = passwordsText(30);
  EXPECT_TRUE(expectCopyAgrees(text));
  writeFile(path_, text);
  PasswordFile(path_).check();
  rewrite(setA);
  EXPECT_EQ(readFile(path_), korvane::testing::rewrittenPasswordFile(text, setA));
  const PasswordMembers back = readBack();
  EXPECT_EQ(back.size(), 34u);
  EXPECT_EQ(back[31].uuid, uuidB);
  EXPECT_EQ(back[33].uuid, uuidA);
}

TEST_F(PasswordFileTest, EscapesAreDecodedAndErrorsLocated) {
  for (const std::string content :
       {R"({"a": "x\/y"})", R"({"\u0061": "b"})", R"({"a": 1})", R"({"a": {}})", R"({"a": []})",
        R"({"a": true})", R"({"a": null})", R"({"a": "b",})", R"([])", R"({"a": "b"} x)", "",
        "\xEF\xBB\xBF", "{\"a\": \"\x01\"}", "{\"a\": \"\xC3\"}",
        R"({"\"q\"": "\u0022 \u0001 \\ \n"})", R"({"\"q\"": "plain", "n\u000a": "v"})"}) {
    expectCopyAgrees(content, content);
  }
  // Rewritten through rewrite(), the escaped values are decoded, and
  // written again as the encoder writes them: a decoded character that
  // needs an escape gets one.
  writeFile(
      path_,
      R"({"$schema": "https:\/\/example.com", "11111111-2222-4333-8444-555555555555": "\u0024",)"
      R"( "\u0022\t": "\u005c\u0001\u00e9"})");
  PasswordFile(path_).check();
  rewrite(setB);
  EXPECT_EQ(readFile(path_),
            "{\n  \"$schema\": \"https://example.com\",\n"
            "  \"11111111-2222-4333-8444-555555555555\": \"$\",\n"
            "  \"\\\"\\t\": \"\\\\\\u0001\xC3\xA9\",\n"
            "  \"aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee\": \"$6$new$hash\"\n}\n");
}

TEST_F(PasswordFileTest, EditsAtEveryPositionAgreeWithTheReference) {
  const std::string text = passwordsText(3);
  const std::string bytes =
      std::string("\"\\{}[],:x 0u") + std::string("\x00\x1F\x7F\x80\xC3\xED\xFF", 7);
  int accepted = 0;
  for (std::size_t at = 0; at <= text.size(); ++at) {
    if (expectCopyAgrees(text.substr(0, at), "cut at " + std::to_string(at))) ++accepted;
    if (at == text.size()) break;
    for (const char byte : bytes) {
      std::string edited = text;
      edited[at] = byte;
      if (expectCopyAgrees(edited, "byte at " + std::to_string(at))) ++accepted;
    }
  }
  EXPECT_GT(accepted, 1000);
}

TEST_F(PasswordFileTest, AFifoIsRefusedAndNothingIsReadFromIt) {
  const auto fifo = directory_.path() / "passwords.fifo";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  // Whoever controls a FIFO decides what is read and when the read ends.
  const int keeper = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(keeper, 0);
  const int writer = ::open(fifo.c_str(), O_WRONLY);
  ASSERT_GE(writer, 0);
  const std::string text = passwordsText(5);
  ASSERT_EQ(::write(writer, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  const std::string refusal =
      "could not open \"" + fifo.string() + "\": it is a FIFO, not a regular file, and is not read";
  PasswordFile file(fifo);
  try {
    file.check();
    ADD_FAILURE() << "checked";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), refusal);
  }
  try {
    PasswordFile(fifo).rewrite(setA);
    ADD_FAILURE() << "rewrote";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()), refusal);
  }
  EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.fifo"});
  ::close(writer);
  std::string left(text.size() + 1, '\0');
  EXPECT_EQ(::read(keeper, left.data(), left.size()), static_cast<ssize_t>(text.size()))
      << "something was read from the FIFO";
  ::close(keeper);
}

}  // namespace
}  // namespace korvane::setUserPassword
