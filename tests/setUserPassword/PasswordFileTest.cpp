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
  SearchPass rewrite(const PasswordChange& change) const {
    return PasswordFile(path_).rewrite(change);
  }

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
  EXPECT_EQ(PasswordFile(path_).check(), SearchPass::skim);
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
  EXPECT_EQ(PasswordFile(path_).check(), SearchPass::skim);
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
  // Many members, with values longer than the skim's window among them.
  std::string text = "{\n  \"$schema\": \"s\"";
  for (int i = 0; i < 30000; ++i) {
    const std::string value =
        i % 9999 == 5 ? std::string(1500000 + i, 'v') : "$6$" + std::to_string(i);
    text += ",\n  \"name " + std::to_string(i) + "\": \"" + value + "\"";
  }
  text += ",\n  \"11111111-2222-4333-8444-555555555555\": \"old\"\n}\n";
  writeFile(path_, text);
  EXPECT_EQ(PasswordFile(path_).check(), SearchPass::exact);
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

// An error that only the end of a long file shows: by then both passes
// have written much of the temporary file, which must go again.
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

// The skim gives up after it has written much of the temporary file: the
// exact pass starts again from the beginning into a new one.
TEST_F(PasswordFileTest, ASkimThatGivesUpLateStillRewritesTheFileWhole) {
  std::string body = "{\n  \"$schema\": \"s\"";
  for (int i = 0; i < 8000; ++i) {
    body +=
        utils::core::format(",\n  \"{:08x}-1111-4222-8333-{:012x}\": \"$6$salt${:0>86}\"", i, i, i);
  }
  const std::string changed = utils::core::format("{:08x}-1111-4222-8333-{:012x}", 7000, 7000);
  for (const std::string& end :
       {std::string(",\n  \"escaped\": \"caf\\u00e9 \\\"x\\\"\"\n}\n"),
        ",\n  \"long\": \"" + std::string(300 * 1024, 'w') + "\"\n}\n",
        ",\n  \"\\u0041\": \"escaped name\",\n  \"" + changed + "\": \"again\"\n}\n"}) {
    const std::string content = body + end;
    for (const std::optional<std::string_view> hash :
         {std::optional<std::string_view>("new hash"), std::optional<std::string_view>()}) {
      for (const Uuid& uuid : {*Uuid::fromString(changed), uuidA}) {
        writeFile(path_, content);
        const PasswordChange change{uuid, hash};
        EXPECT_EQ(rewrite(change), SearchPass::exact);
        EXPECT_TRUE(readFile(path_) == korvane::testing::rewrittenPasswordFile(content, change))
            << end.substr(0, 40);
        EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.json"});
      }
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

// ---- The two passes: the fast skim against the exact readExactly(), and
// both against the reference (tests/support/PasswordFileReference.h)

using korvane::testing::exactPass;
using korvane::testing::PassOutcome;
using korvane::testing::referencePass;
using korvane::testing::skimPass;
using utils::json::test::PieceReader;

const PasswordChange setA{uuidA, "$6$new$hash"};
const PasswordChange setB{uuidB, "$6$new$hash"};
const PasswordChange removeA{uuidA, std::nullopt};
const PasswordChange removeB{uuidB, std::nullopt};

// The exact pass agrees with the reference on `content`, for a check and
// for each change; the skim gives up or writes what the reference writes.
// Returns whether the skim read the text.
bool expectPassesAgree(const std::string& content, const std::string& label = {}) {
  const PassOutcome checked = referencePass(content);
  EXPECT_EQ(exactPass(content), checked) << label;
  const std::optional<std::string> skimmed = skimPass(PieceReader(content));
  if (skimmed) {
    EXPECT_TRUE(checked.accepted) << label << ": the skim read what is refused: " << checked.text;
  }
  for (const PasswordChange* change : {&setA, &setB, &removeA, &removeB}) {
    const PassOutcome expected = referencePass(content, change);
    EXPECT_EQ(exactPass(content, change), expected) << label;
    const std::optional<std::string> written = skimPass(PieceReader(content), change);
    if (written) {
      // Writing needs more of the skim than checking (the decoded text of
      // every value), never less.
      EXPECT_TRUE(skimmed.has_value()) << label;
      EXPECT_TRUE(expected.accepted) << label;
      EXPECT_EQ(*written, expected.text) << label;
    }
  }
  return skimmed.has_value();
}

// A password file as the tool writes it, with an unknown member and names
// and values of other kinds.
std::string passwordsText(int count) {
  std::string text =
      "{\n  \"$schema\": \"https://docs.korvane.com/korvane/schema-korvane-passwords.json\"";
  for (int i = 1; i <= count; ++i) {
    text += utils::core::format(",\n  \"{:08x}-1111-4222-8333-{:012x}\": \"$6${:016x}${}\"",
                                i * 2654435761u, i, i,
                                std::string(86, static_cast<char>('a' + i % 26)));
  }
  text +=
      ",\n  \"AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE\": \"\",\n  \"note\": \"caf\xC3\xA9 "
      "\xF0\x9F\x98\x80\"\n}\n";
  return text;
}

TEST_F(PasswordFileTest, OrdinaryFilesAreReadByTheSkim) {
  const std::string text = passwordsText(30);
  EXPECT_TRUE(expectPassesAgree(text));
  writeFile(path_, text);
  EXPECT_EQ(PasswordFile(path_).check(), SearchPass::skim);
  EXPECT_EQ(rewrite(setA), SearchPass::skim);
  EXPECT_EQ(readFile(path_), korvane::testing::rewrittenPasswordFile(text, setA));
  const PasswordMembers back = readBack();
  EXPECT_EQ(back.size(), 34u);
  EXPECT_EQ(back[31].uuid, uuidB);
  EXPECT_EQ(back[33].uuid, uuidA);
}

TEST_F(PasswordFileTest, EscapesAndErrorsAreLeftToTheExactPass) {
  // An escape in a value needs no decoding to be checked, only to be
  // written.
  EXPECT_TRUE(skimPass(PieceReader(R"({"a": "x\/y"})")).has_value());
  for (const std::string content :
       {R"({"a": "x\/y"})", R"({"\u0061": "b"})", R"({"a": 1})", R"({"a": {}})", R"({"a": []})",
        R"({"a": true})", R"({"a": null})", R"({"a": "b",})", R"([])", R"({"a": "b"} x)", "",
        "\xEF\xBB\xBF", "{\"a\": \"\x01\"}", "{\"a\": \"\xC3\"}"}) {
    if (content != R"({"a": "x\/y"})") {
      EXPECT_FALSE(skimPass(PieceReader(content)).has_value()) << content;
    }
    EXPECT_FALSE(skimPass(PieceReader(content), &setA).has_value()) << content;
    expectPassesAgree(content, content);
  }
  // Rewritten through rewrite(), the escaped values are decoded by the
  // exact pass, and written again as the encoder writes them.
  writeFile(
      path_,
      R"({"$schema": "https:\/\/example.com", "11111111-2222-4333-8444-555555555555": "\u0024"})");
  EXPECT_EQ(PasswordFile(path_).check(), SearchPass::skim);
  EXPECT_EQ(rewrite(setB), SearchPass::exact);
  const PasswordMembers back = readBack();
  EXPECT_EQ(korvane::testing::describePasswordMembers(back),
            "$schema=https://example.com\n"
            "11111111-2222-4333-8444-555555555555=$\n"
            "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee=$6$new$hash\n");
  EXPECT_EQ(readFile(path_),
            "{\n  \"$schema\": \"https://example.com\",\n"
            "  \"11111111-2222-4333-8444-555555555555\": \"$\",\n"
            "  \"aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee\": \"$6$new$hash\"\n}\n");
}

TEST_F(PasswordFileTest, SkimEditsAtEveryPositionAgreeWithTheExactPass) {
  const std::string text = passwordsText(3);
  const std::string bytes =
      std::string("\"\\{}[],:x 0u") + std::string("\x00\x1F\x80\xC3\xED\xFF", 6);
  int read = 0;
  for (std::size_t at = 0; at <= text.size(); ++at) {
    if (expectPassesAgree(text.substr(0, at), "cut at " + std::to_string(at))) ++read;
    if (at == text.size()) break;
    for (const char byte : bytes) {
      std::string edited = text;
      edited[at] = byte;
      if (expectPassesAgree(edited, "byte at " + std::to_string(at))) ++read;
    }
  }
  EXPECT_GT(read, 1000);
}

TEST_F(PasswordFileTest, SkimCutAtEveryPointAndInSmallWindowsWritesAlike) {
  const std::string text = passwordsText(4);
  const std::optional<std::string> whole = skimPass(PieceReader(text), &setA);
  ASSERT_TRUE(whole.has_value());
  ASSERT_EQ(*whole, referencePass(text, &setA).text);
  for (std::size_t split = 1; split < text.size(); ++split) {
    ASSERT_EQ(skimPass(PieceReader(text, split), &setA), whole) << split;
  }
  ASSERT_EQ(skimPass(PieceReader(text, 1, 1), &setA), whole);
  // The longest token with the whitespace behind it is a value of 107 bytes.
  for (std::size_t window = 16; window <= 300; window += 7) {
    const std::optional<std::string> small = skimPass(PieceReader(text, 50, 13), &setA, window);
    if (window >= 128) {
      EXPECT_EQ(small, whole) << window;
    } else if (small) {
      EXPECT_EQ(small, whole) << window;
    }
  }
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
