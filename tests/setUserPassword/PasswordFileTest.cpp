#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <string>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Unprivileged.h"
#include "tests/utils/json/MemoryStreams.h"
#include "utils/core/Format.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::readFile;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;
using utils::core::Uuid;

const Uuid uuidA = *Uuid::fromString("11111111-2222-4333-8444-555555555555");
const Uuid uuidB = *Uuid::fromString("aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee");

std::vector<std::string> namesOf(const PasswordFile& file) {
  std::vector<std::string> names;
  for (const auto& entry : file.entries()) names.emplace_back(entry.name());
  return names;
}

using Names = std::vector<std::string>;

class PasswordFileTest : public ::testing::Test {
 protected:
  PasswordFile readBack() const {
    PasswordFile file(path_);
    file.read();
    return file;
  }

  std::vector<std::filesystem::path> filesInDirectory() const {
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
      files.push_back(entry.path().filename());
    }
    return files;
  }

  TemporaryDirectory directory_;
  std::filesystem::path path_ = directory_.path() / "passwords.json";
};

TEST_F(PasswordFileTest, MissingFileReadsAsSchemaOnly) {
  PasswordFile file(path_);
  file.read();
  ASSERT_EQ(file.entries().size(), 1u);
  EXPECT_EQ(file.entries()[0].name(), "$schema");
  EXPECT_TRUE(file.entries()[0].uuid().isNull());
  EXPECT_EQ(file.entries()[0].value(), PasswordFile::schemaUrl());
  EXPECT_TRUE(PasswordFile::schemaUrl().starts_with("https://"));
  EXPECT_TRUE(PasswordFile::schemaUrl().ends_with("/korvane/schema-korvane-passwords.json"));
}

TEST_F(PasswordFileTest, NewFileHoldsSchemaThenTheUser) {
  PasswordFile file(path_);
  file.read();
  file.set(uuidA, "$6$salt$hash");
  file.write();
  EXPECT_EQ(readFile(path_), "{\n  \"$schema\": \"" + std::string(PasswordFile::schemaUrl()) +
                                 "\",\n  \"11111111-2222-4333-8444-555555555555\": "
                                 "\"$6$salt$hash\"\n}\n");
  EXPECT_EQ(filesInDirectory(), std::vector<std::filesystem::path>{"passwords.json"});
}

TEST_F(PasswordFileTest, EmptyObjectHasNoSchema) {
  writeFile(path_, "{}");
  PasswordFile file(path_);
  file.read();
  EXPECT_TRUE(file.entries().empty());
  file.set(uuidA, "h");
  file.write();
  EXPECT_EQ(namesOf(readBack()), Names{"11111111-2222-4333-8444-555555555555"});
}

TEST_F(PasswordFileTest, SetKeepsPositionAndSpellingOfTheName) {
  writeFile(path_, R"({"$schema": "s", "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE": "old",
                       "x": "y", "11111111-2222-4333-8444-555555555555": "a"})");
  PasswordFile file(path_);
  file.read();
  file.set(uuidB, "new");
  file.write();
  const PasswordFile back = readBack();
  EXPECT_EQ(namesOf(back), (Names{"$schema", "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE", "x",
                                  "11111111-2222-4333-8444-555555555555"}));
  EXPECT_EQ(back.entries()[1].value(), "new");
  EXPECT_EQ(back.entries()[1].uuid(), uuidB);
  EXPECT_EQ(back.entries()[2].value(), "y");
  EXPECT_EQ(back.entries()[3].value(), "a");
}

TEST_F(PasswordFileTest, SetChangesTheFirstAndDropsLaterDuplicates) {
  writeFile(path_, R"({"11111111-2222-4333-8444-555555555555": "1", "b": "2",
                       "11111111-2222-4333-8444-555555555555": "3", "c": "4"})");
  PasswordFile file(path_);
  file.read();
  file.set(uuidA, "new");
  EXPECT_EQ(namesOf(file), (Names{"11111111-2222-4333-8444-555555555555", "b", "c"}));
  EXPECT_EQ(file.entries()[0].value(), "new");
}

TEST_F(PasswordFileTest, EraseRemovesEveryEntryOfTheUserAndKeepsTheRest) {
  writeFile(path_, R"({"$schema": "s", "11111111-2222-4333-8444-555555555555": "1", "b": "2",
                       "11111111-2222-4333-8444-555555555555": "3", "c": "4"})");
  PasswordFile file(path_);
  file.read();
  file.erase(uuidA);
  EXPECT_EQ(namesOf(file), (Names{"$schema", "b", "c"}));
  file.erase(uuidB);  // no entry: no change
  EXPECT_EQ(namesOf(file), (Names{"$schema", "b", "c"}));
}

TEST_F(PasswordFileTest, UnknownMembersAreWrittenBackUnchanged) {
  const std::string odd = "tab\t quote\" backslash\\ control\x01 unicode \xC3\xA9 \xF0\x9F\x94\x91";
  PasswordFile file(path_);
  file.read();
  file.set(uuidB, odd);
  file.write();
  const PasswordFile back = readBack();
  ASSERT_EQ(back.entries().size(), 2u);
  EXPECT_EQ(back.entries()[1].value(), odd);
}

TEST_F(PasswordFileTest, ManyEntriesAndHugeValuesSurviveARewriteByteForByte) {
  // Enough to fill several blocks of the entries' storage, with values
  // longer than a block among them, and a second read into the same object.
  std::string text = "{\n  \"$schema\": \"s\"";
  for (int i = 0; i < 30000; ++i) {
    const std::string value =
        i % 9999 == 5 ? std::string(1500000 + i, 'v') : "$6$" + std::to_string(i);
    text += ",\n  \"name " + std::to_string(i) + "\": \"" + value + "\"";
  }
  text += ",\n  \"11111111-2222-4333-8444-555555555555\": \"old\"\n}\n";
  writeFile(path_, text);
  PasswordFile file(path_);
  file.read();
  file.read();
  ASSERT_EQ(file.entries().size(), 30002u);
  EXPECT_EQ(file.entries()[6].value().size(), 1500005u);
  file.set(uuidA, "new");
  file.set(uuidA, "newer");
  file.write();
  const std::size_t old = text.rfind("old");
  EXPECT_EQ(readFile(path_), text.substr(0, old) + "newer" + text.substr(old + 3));
}

TEST_F(PasswordFileTest, NonStringValuesMakeReadingFail) {
  for (const std::string content :
       {R"({"a": 1})", R"({"a": {}})", R"({"a": []})", R"({"a": true})", R"({"a": null})",
        R"({"a": "b",})", R"([])", R"({"a": "b"} x)"}) {
    writeFile(path_, content);
    PasswordFile file(path_);
    try {
      file.read();
      FAIL() << content;
    } catch (const std::runtime_error& error) {
      EXPECT_TRUE(std::string(error.what()).starts_with("\"" + path_.string() + "\", line 1"))
          << error.what();
    }
  }
}

TEST_F(PasswordFileTest, OtherOpenErrorsPropagate) {
  std::filesystem::create_directory(path_);
  PasswordFile file(path_);
  EXPECT_THROW(file.read(), std::runtime_error);
}

TEST_F(PasswordFileTest, NewFileIsPrivateWhateverTheUmask) {
  const mode_t old = ::umask(0);
  PasswordFile file(path_);
  file.read();
  file.set(uuidA, "h");
  file.write();
  ::umask(old);
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
}

TEST_F(PasswordFileTest, ReplacementKeepsTheOldMode) {
  writeFile(path_, "{}");
  ::chmod(path_.c_str(), 0640);
  PasswordFile file(path_);
  file.read();
  file.set(uuidA, "h");
  file.write();
  struct stat status {};
  ASSERT_EQ(::stat(path_.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);
}

TEST_F(PasswordFileTest, FailingWriteLeavesTheOldFile) {
  writeFile(path_, R"({"a": "b"})");
  PasswordFile file(path_);
  file.read();
  file.set(uuidA, "h");
  ::chmod(directory_.path().c_str(), 0500);
  korvane::testing::runUnprivileged([&] { EXPECT_THROW(file.write(), std::system_error); },
                                    {directory_.path(), path_});
  ::chmod(directory_.path().c_str(), 0700);
  EXPECT_EQ(readFile(path_), R"({"a": "b"})");
}

TEST_F(PasswordFileTest, MissingDirectoryFailsWithoutCreatingIt) {
  PasswordFile file(directory_.path() / "missing" / "passwords.json");
  file.read();
  file.set(uuidA, "h");
  EXPECT_THROW(file.write(), std::system_error);
  EXPECT_FALSE(std::filesystem::exists(directory_.path() / "missing"));
}

TEST_F(PasswordFileTest, SymbolicLinksAreKept) {
  std::filesystem::create_directories(directory_.path() / "real");
  const auto target = directory_.path() / "real" / "passwords.json";
  writeFile(target, R"({"a": "b"})");
  // A relative link to a relative link, as installations make them.
  std::filesystem::create_symlink("real/passwords.json", directory_.path() / "middle.json");
  std::filesystem::create_symlink("middle.json", path_);
  PasswordFile file(path_);
  file.read();
  file.set(uuidA, "h");
  file.write();
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_TRUE(std::filesystem::is_symlink(directory_.path() / "middle.json"));
  EXPECT_EQ(namesOf(readBack()), (Names{"a", "11111111-2222-4333-8444-555555555555"}));
  PasswordFile direct(target);
  direct.read();
  EXPECT_EQ(direct.entries().size(), 2u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_.path() / "real"),
                          std::filesystem::directory_iterator()),
            1);
}

TEST_F(PasswordFileTest, AbsoluteSymbolicLinkIsKept) {
  const auto target = directory_.path() / "target.json";
  writeFile(target, "{}");
  std::filesystem::create_symlink(target, path_);
  PasswordFile file(path_);
  file.read();
  file.set(uuidB, "h");
  file.write();
  EXPECT_TRUE(std::filesystem::is_symlink(path_));
  EXPECT_NE(readFile(target).find("aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee"), std::string::npos);
}

TEST_F(PasswordFileTest, SymbolicLinkLoopIsAnError) {
  std::filesystem::create_symlink("loop.json", path_);
  std::filesystem::create_symlink("passwords.json", directory_.path() / "loop.json");
  PasswordFile file(path_);
  EXPECT_THROW(file.read(), std::system_error);
  try {
    file.write();
    FAIL() << "wrote through a link loop";
  } catch (const std::system_error& error) {
    EXPECT_EQ(std::string(error.what()), "could not follow the links of \"" + path_.string() +
                                             "\": Too many levels of symbolic links");
  }
}

// ---- The two passes of read(): the fast skim against the exact readFrom()

using utils::json::test::MemoryInputStream;
using utils::json::test::PieceReader;

// Every entry: name, value and UUID.
std::string describe(const PasswordFile& file) {
  std::string text;
  for (const auto& entry : file.entries()) {
    text += utils::core::format("[{}|{}|{}]", entry.name(), entry.value(), entry.uuid());
  }
  return text;
}

struct ExactRead {
  std::string text;  // the entries, or the error's text
  bool read = false;
};

ExactRead exactRead(const std::string& content) {
  PasswordFile file("passwords.json");
  MemoryInputStream stream(content);
  try {
    file.readFrom(stream);
    return {describe(file), true};
  } catch (const std::exception& error) {
    return {error.what(), false};
  }
}

std::optional<std::string> skimRead(
    const std::string& content, std::size_t split = static_cast<std::size_t>(-1),
    std::size_t piece = static_cast<std::size_t>(-1),
    std::size_t window = utils::json::decoder::Skimmer::defaultWindow) {
  PasswordFile file("passwords.json");
  if (!file.skim(PieceReader(content, split, piece), window)) {
    EXPECT_TRUE(file.entries().empty());
    return std::nullopt;
  }
  return describe(file);
}

// The skim gives up or reads what the exact pass reads; returns whether it read.
bool expectSkimAgrees(const std::string& content, const std::string& label = {}) {
  const std::optional<std::string> skimmed = skimRead(content);
  if (!skimmed) return false;
  const ExactRead exact = exactRead(content);
  EXPECT_TRUE(exact.read) << label << ": the skim read what the exact pass refuses: " << exact.text;
  EXPECT_EQ(*skimmed, exact.text) << label;
  return true;
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
  EXPECT_TRUE(expectSkimAgrees(text));
  writeFile(path_, text);
  PasswordFile file(path_);
  SearchPass pass = SearchPass::exact;
  file.read(&pass);
  EXPECT_EQ(pass, SearchPass::skim);
  EXPECT_EQ(describe(file), exactRead(text).text);
  EXPECT_EQ(file.entries().size(), 33u);
  EXPECT_EQ(file.entries()[31].uuid(), uuidB);
}

TEST_F(PasswordFileTest, EscapesAndErrorsAreLeftToTheExactPass) {
  for (const std::string content :
       {R"({"a": "x\/y"})", R"({"\u0061": "b"})", R"({"a": 1})", R"({"a": {}})", R"({"a": []})",
        R"({"a": true})", R"({"a": null})", R"({"a": "b",})", R"([])", R"({"a": "b"} x)", "",
        "\xEF\xBB\xBF", "{\"a\": \"\x01\"}", "{\"a\": \"\xC3\"}"}) {
    EXPECT_FALSE(skimRead(content).has_value()) << content;
  }
  // Read through read(), the escaped value is decoded by the exact pass.
  writeFile(
      path_,
      R"({"$schema": "https:\/\/example.com", "11111111-2222-4333-8444-555555555555": "\u0024"})");
  PasswordFile file(path_);
  SearchPass pass = SearchPass::skim;
  file.read(&pass);
  EXPECT_EQ(pass, SearchPass::exact);
  EXPECT_EQ(describe(file),
            "[$schema|https://example.com|00000000-0000-0000-0000-000000000000]"
            "[11111111-2222-4333-8444-555555555555|$|11111111-2222-4333-8444-555555555555]");
}

TEST_F(PasswordFileTest, SkimEditsAtEveryPositionAgreeWithTheExactPass) {
  const std::string text = passwordsText(3);
  const std::string bytes =
      std::string("\"\\{}[],:x 0u") + std::string("\x00\x1F\x80\xC3\xED\xFF", 6);
  int read = 0;
  for (std::size_t at = 0; at <= text.size(); ++at) {
    if (expectSkimAgrees(text.substr(0, at), "cut at " + std::to_string(at))) ++read;
    if (at == text.size()) break;
    for (const char byte : bytes) {
      std::string edited = text;
      edited[at] = byte;
      if (expectSkimAgrees(edited, "byte at " + std::to_string(at))) ++read;
    }
  }
  EXPECT_GT(read, 1000);
}

TEST_F(PasswordFileTest, SkimCutAtEveryPointAndInSmallWindowsReadsAlike) {
  const std::string text = passwordsText(4);
  const std::optional<std::string> whole = skimRead(text);
  ASSERT_TRUE(whole.has_value());
  for (std::size_t split = 1; split < text.size(); ++split) {
    ASSERT_EQ(skimRead(text, split), whole) << split;
  }
  ASSERT_EQ(skimRead(text, 1, 1), whole);
  // The longest token with the whitespace behind it is a value of 107 bytes.
  for (std::size_t window = 16; window <= 300; window += 7) {
    const std::optional<std::string> small = skimRead(text, 50, 13, window);
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
  PasswordFile file(fifo);
  try {
    file.read();
    FAIL() << "read";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "could not open \"" + fifo.string() +
                  "\": it is a FIFO, not a regular file, and is not read");
  }
  ::close(writer);
  std::string left(text.size() + 1, '\0');
  EXPECT_EQ(::read(keeper, left.data(), left.size()), static_cast<ssize_t>(text.size()))
      << "something was read from the FIFO";
  ::close(keeper);
}

}  // namespace
}  // namespace korvane::setUserPassword
