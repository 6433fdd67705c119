// The whole program with redirected standard input: what it prints, its
// exit status, and what it leaves in the password file.
#include <crypt.h>
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "security/ShaCrypt.h"
#include "tests/support/ChildProcess.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::ChildResult;
using korvane::testing::readFile;
using korvane::testing::runProgram;
using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;

const std::string program = KORVANE_PASSWORD_PROGRAM;
constexpr const char* strongPassword = "Correct-Horse-Battery-Staple-91";
constexpr const char* aliceUuid = "3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b";
constexpr const char* bobUuid = "8c9d0e1f-2a3b-4c5d-8e6f-7a8b9c0d1e2f";

// The hash stored for `uuid` in a password file written by the tool.
std::string storedHash(const std::string& file, const std::string& uuid) {
  const std::string key = "\"" + uuid + "\": \"";
  const std::size_t at = file.find(key);
  if (at == std::string::npos) return {};
  const std::size_t start = at + key.size();
  return file.substr(start, file.find('"', start) - start);
}

bool verifies(const std::string& password, const std::string& hash) {
  crypt_data data{};
  const char* result = ::crypt_r(password.c_str(), hash.c_str(), &data);
  return result != nullptr && hash == result;
}

class EndToEndTest : public ::testing::Test {
 protected:
  void SetUp() override {
    writeFile(directory_.path() / "users.json",
              std::string(R"({"users": [{"userName": "alice", "UUID": ")") + aliceUuid +
                  R"("}, {"userName": "bob", "UUID": ")" + bobUuid + R"("}]})");
  }

  ChildResult run(std::vector<std::string> arguments, std::optional<std::string_view> input) {
    arguments.insert(arguments.begin(), {"-ConfigDir", directory_.path().string()});
    return runProgram(program, std::move(arguments), input,
                      {{"XDG_CONFIG_DIRS", (directory_.path() / "no-base").string()}});
  }

  std::string passwordFile() const { return readFile(passwordsPath()); }
  std::filesystem::path passwordsPath() const { return directory_.path() / "passwords.json"; }
  bool passwordFileExists() const { return std::filesystem::exists(passwordsPath()); }

  std::string fileLines(bool existing) const {
    return "Using user configuration file \"" + (directory_.path() / "users.json").string() +
           "\"\n" + (existing ? "Using password file \"" : "Will create new password file at \"") +
           passwordsPath().string() + "\"\n";
  }

  TemporaryDirectory directory_;
};

TEST_F(EndToEndTest, SetsAPasswordThatVerifies) {
  const ChildResult result = run({"alice"}, std::string(strongPassword) + "\n");
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(result.err, "");
  EXPECT_EQ(result.out, fileLines(false) + "Password for user \"alice\" was updated.\n");
  const std::string hash = storedHash(passwordFile(), aliceUuid);
  ASSERT_EQ(hash.size(), 106u) << passwordFile();
  EXPECT_TRUE(hash.starts_with("$6$"));
  EXPECT_EQ(hash[19], '$');
  EXPECT_TRUE(verifies(strongPassword, hash));
  EXPECT_FALSE(verifies(std::string(strongPassword) + "x", hash));
}

TEST_F(EndToEndTest, NewFileHoldsSchemaThenTheUser) {
  ASSERT_EQ(run({"alice"}, std::string(strongPassword) + "\n").exitStatus, 0);
  const std::string file = passwordFile();
  EXPECT_TRUE(file.starts_with("{\n  \"$schema\": \"https://")) << file;
  EXPECT_LT(file.find("$schema"), file.find(aliceUuid));
  EXPECT_TRUE(file.ends_with("\"\n}\n")) << file;
}

TEST_F(EndToEndTest, CarriageReturnLineEndIsNotPartOfThePassword) {
  ASSERT_EQ(run({"alice"}, std::string(strongPassword) + "\r\n").exitStatus, 0);
  EXPECT_TRUE(verifies(strongPassword, storedHash(passwordFile(), aliceUuid)));
}

TEST_F(EndToEndTest, InputWithoutLineEndIsThePassword) {
  ASSERT_EQ(run({"alice"}, std::string(strongPassword)).exitStatus, 0);
  EXPECT_TRUE(verifies(strongPassword, storedHash(passwordFile(), aliceUuid)));
}

TEST_F(EndToEndTest, OnlyTheFirstLineIsUsed) {
  ASSERT_EQ(run({"alice"}, std::string(strongPassword) + "\nsecond line\n").exitStatus, 0);
  EXPECT_TRUE(verifies(strongPassword, storedHash(passwordFile(), aliceUuid)));
}

TEST_F(EndToEndTest, EmptyInputIsRefusedWithStatus2) {
  for (const std::string input : {"", "\n", "\r\n", "\nsecond"}) {
    const ChildResult result = run({"alice"}, input);
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.err, "ERROR: empty password\n");
    EXPECT_EQ(result.out, fileLines(false));
    EXPECT_FALSE(passwordFileExists());
  }
}

TEST_F(EndToEndTest, WeakPasswordIsRefusedWithStatus2) {
  const ChildResult result = run({"alice"}, "password\n");
  EXPECT_EQ(result.exitStatus, 2);
  EXPECT_EQ(result.err,
            "ERROR: password is too weak (use -DontRejectInsecurePasswords\" to allow weak "
            "passwords\n");
  EXPECT_FALSE(passwordFileExists());
}

TEST_F(EndToEndTest, WeakPasswordIsTakenWithTheOption) {
  const ChildResult result = run({"-DontRejectInsecurePasswords", "alice"}, "password\n");
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_TRUE(verifies("password", storedHash(passwordFile(), aliceUuid)));
}

TEST_F(EndToEndTest, LongestPasswordIsAccepted) {
  std::string password(4095, 'x');
  for (std::size_t i = 0; i < password.size(); ++i) password[i] = static_cast<char>('!' + i % 90);
  const ChildResult result = run({"alice"}, password + "\n");
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  // libcrypt takes keys of at most 511 bytes: recompute with the same salt.
  const std::string hash = storedHash(passwordFile(), aliceUuid);
  ASSERT_EQ(hash.size(), 106u);
  const security::ShaCrypt crypt(6, 5000, hash.substr(3, 16));
  EXPECT_EQ(crypt.hash(password).view(), hash);
}

TEST_F(EndToEndTest, LongerPasswordsAreRefusedEvenWhenWeakOnesAreAllowed) {
  for (const std::size_t length : {4096u, 1u << 20}) {
    for (const bool allowWeak : {false, true}) {
      std::vector<std::string> arguments{"alice"};
      if (allowWeak) arguments.insert(arguments.begin(), "-DontRejectInsecurePasswords");
      const ChildResult result = run(arguments, std::string(length, 'k') + "\n");
      EXPECT_EQ(result.exitStatus, 2) << length;
      EXPECT_EQ(result.err, "ERROR: password is too long (at most 4095 bytes)\n");
      EXPECT_FALSE(passwordFileExists());
    }
  }
}

TEST_F(EndToEndTest, EndlessLineIsRefusedAtOnce) {
  // /dev/zero as standard input: a line that never ends.
  const ChildResult result = runProgram("/bin/sh",
                                        {"-c", "exec \"$0\" \"$@\" </dev/zero", program,
                                         "-ConfigDir", directory_.path().string(), "alice"},
                                        std::nullopt);
  EXPECT_FALSE(result.timedOut);
  EXPECT_EQ(result.exitStatus, 2);
  EXPECT_EQ(result.err, "ERROR: password is too long (at most 4095 bytes)\n");
}

TEST_F(EndToEndTest, PasswordWithNulByteIsRefusedEvenWhenWeakOnesAreAllowed) {
  using namespace std::string_literals;
  // A strong password with a NUL inside, a NUL alone, a NUL first, and a
  // weak password with a NUL (refused for the NUL before any estimate).
  for (const std::string& input : {"Qx7-vortex-MARBLE-quill-93-zephyr\0abc\n"s, "\0\n"s,
                                   "\0Qx7-vortex-MARBLE-quill-93-zephyr"s, "ab\0c\r\n"s}) {
    for (const bool allowWeak : {false, true}) {
      std::vector<std::string> arguments{"alice"};
      if (allowWeak) arguments.insert(arguments.begin(), "-DontRejectInsecurePasswords");
      const ChildResult result = run(arguments, input);
      EXPECT_EQ(result.exitStatus, 2) << input.size() << allowWeak;
      EXPECT_EQ(result.err, "ERROR: password contains a NUL character\n");
      EXPECT_EQ(result.out, fileLines(false));
      EXPECT_FALSE(passwordFileExists());
    }
  }
}

TEST_F(EndToEndTest, NulByteAfterTheFirstLineIsNotLookedAt) {
  using namespace std::string_literals;
  const ChildResult result = run({"alice"}, std::string(strongPassword) + "\n\0second\n"s);
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_TRUE(verifies(strongPassword, storedHash(passwordFile(), aliceUuid)));
}

TEST_F(EndToEndTest, EmptyAndLengthTestsComeBeforeTheNulTest) {
  using namespace std::string_literals;
  const ChildResult tooLong = run({"alice"}, "\0"s + std::string(5000, 'k') + "\n");
  EXPECT_EQ(tooLong.exitStatus, 2);
  EXPECT_EQ(tooLong.err, "ERROR: password is too long (at most 4095 bytes)\n");
  const ChildResult empty = run({"alice"}, "\n\0"s);
  EXPECT_EQ(empty.exitStatus, 2);
  EXPECT_EQ(empty.err, "ERROR: empty password\n");
  EXPECT_FALSE(passwordFileExists());
}

TEST_F(EndToEndTest, TwoRunsUseDifferentSalts) {
  ASSERT_EQ(run({"alice"}, std::string(strongPassword) + "\n").exitStatus, 0);
  const std::string first = storedHash(passwordFile(), aliceUuid);
  ASSERT_EQ(run({"alice"}, std::string(strongPassword) + "\n").exitStatus, 0);
  const std::string second = storedHash(passwordFile(), aliceUuid);
  EXPECT_NE(first.substr(3, 16), second.substr(3, 16));
  EXPECT_TRUE(verifies(strongPassword, second));
}

TEST_F(EndToEndTest, RemoveWithRedirectedInputAsksNothing) {
  writeFile(passwordsPath(), std::string(R"({"$schema": "s", ")") + aliceUuid + R"(": "h", ")" +
                                 bobUuid + R"(": "k", "other": "o"})");
  const ChildResult result = run({"-Remove", "alice"}, std::nullopt);
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(result.out, fileLines(true) + "Password for user \"alice\" was removed.\n");
  EXPECT_EQ(passwordFile(), std::string("{\n  \"$schema\": \"s\",\n  \"") + bobUuid +
                                "\": \"k\",\n  \"other\": \"o\"\n}\n");
}

TEST_F(EndToEndTest, RemoveWithoutPasswordFileCreatesSchemaOnly) {
  const ChildResult result = run({"-Remove", "alice"}, std::nullopt);
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_EQ(result.out, fileLines(false) + "Password for user \"alice\" was removed.\n");
  EXPECT_NE(passwordFile().find("$schema"), std::string::npos);
  EXPECT_EQ(passwordFile().find(aliceUuid), std::string::npos);
}

TEST_F(EndToEndTest, UnknownUserFailsBeforeAnyPasswordIsRead) {
  const ChildResult result = run({"carol"}, "");
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, "ERROR: the user \"carol\" was not found in the file \"" +
                            (directory_.path() / "users.json").string() + "\"\n");
  EXPECT_EQ(result.out, fileLines(false));
  EXPECT_FALSE(passwordFileExists());
}

TEST_F(EndToEndTest, MalformedPasswordFileFailsBeforeAnyPasswordIsRead) {
  const std::string malformed = R"({"a": 1})";
  writeFile(passwordsPath(), malformed);
  const ChildResult result = run({"alice"}, "");
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_TRUE(result.err.starts_with("ERROR: \"" + passwordsPath().string() + "\", line 1, column"))
      << result.err;
  EXPECT_EQ(passwordFile(), malformed);
}

// With redirected input the password is read before the file, which is
// then read once; still the file's error comes first, as when it is
// checked before anything is read: before a weak password and before an
// input that cannot be read (a folder).
TEST_F(EndToEndTest, MalformedPasswordFileComesBeforeAnUnusableRedirectedPassword) {
  const std::string malformed = R"({"a": 1})";
  writeFile(passwordsPath(), malformed);
  const std::string expected = "ERROR: \"" + passwordsPath().string() + "\", line 1, column";
  const ChildResult weak = run({"alice"}, "abc\n");
  EXPECT_EQ(weak.exitStatus, 1);
  EXPECT_TRUE(weak.err.starts_with(expected)) << weak.err;
  const ChildResult unreadable = runProgram(
      "/bin/sh",
      {"-c", "exec \"$0\" \"$@\" < /", program, "-ConfigDir", directory_.path().string(), "alice"},
      "", {{"XDG_CONFIG_DIRS", (directory_.path() / "no-base").string()}});
  EXPECT_EQ(unreadable.exitStatus, 1);
  EXPECT_TRUE(unreadable.err.starts_with(expected)) << unreadable.err;
  EXPECT_EQ(passwordFile(), malformed);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(directory_.path()),
                          std::filesystem::directory_iterator()),
            2);
}

TEST_F(EndToEndTest, MissingUsersFileListsTheSearch) {
  const ChildResult result =
      runProgram(program, {"alice"}, "", {{"XDG_CONFIG_DIRS", "/nonexistent-a:/nonexistent-b"}});
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.out, "");
  EXPECT_EQ(result.err,
            "ERROR: could not find user configuration file \"users.json\" in any of the following "
            "locations:\n- /nonexistent-a/Korvane/Config/users.json\n- "
            "/nonexistent-b/Korvane/Config/users.json\n");
}

TEST_F(EndToEndTest, ExplicitMissingUsersFileIsAFileError) {
  const ChildResult result = run({"-Users", (directory_.path() / "none.json").string(), "alice"},
                                 std::string(strongPassword));
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, "ERROR: could not open \"" + (directory_.path() / "none.json").string() +
                            "\": No such file or directory\n");
}

TEST_F(EndToEndTest, ExplicitMissingPasswordFileIsCreatedThere) {
  const auto path = directory_.path() / "elsewhere.json";
  const ChildResult result =
      run({"-Passwords", path.string(), "bob"}, std::string(strongPassword) + "\n");
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_TRUE(result.out.find("Using password file \"" + path.string() + "\"\n") !=
              std::string::npos);
  EXPECT_TRUE(verifies(strongPassword, storedHash(readFile(path), bobUuid)));
}

TEST_F(EndToEndTest, SuccessLineQuotesTheNameAsGiven) {
  writeFile(directory_.path() / "users.json",
            R"({"users": [{"userName": "J\u00f6rg \"the\" admin", "UUID": ")" +
                std::string(aliceUuid) + R"("}]})");
  const ChildResult result = run({"J\xC3\xB6rg \"the\" admin"}, std::string(strongPassword) + "\n");
  EXPECT_EQ(result.exitStatus, 0) << result.err;
  EXPECT_TRUE(
      result.out.ends_with("Password for user \"J\xC3\xB6rg \"the\" admin\" was updated.\n"));
}

TEST_F(EndToEndTest, FailedWriteReportsNoSuccess) {
  // The password file's directory does not exist: the write fails.
  const auto path = directory_.path() / "missing-dir" / "passwords.json";
  const ChildResult result =
      run({"-Passwords", path.string(), "alice"}, std::string(strongPassword) + "\n");
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.out.find("was updated"), std::string::npos);
  EXPECT_TRUE(result.err.starts_with("ERROR: could not open \"" + path.string() + "."))
      << result.err;
  EXPECT_FALSE(std::filesystem::exists(directory_.path() / "missing-dir"));
}

// User names in several scripts, with combining marks, and names that differ
// from another only by an accent: each name selects its own entry, byte for
// byte, with no normalisation, and prints with its real characters.
struct NamedUser {
  const char* name;
  const char* uuid;
};
// Source files are UTF-8 (MSVC: /utf-8), and so are these literals. The two
// spellings of "Zoë" are written out, as they look alike.
constexpr NamedUser namedUsers[] = {
    {"Łukasz", "a1000000-0000-4000-8000-000000000001"},
    {"Lukasz", "a1000000-0000-4000-8000-000000000002"},
    {"Jürgen", "a1000000-0000-4000-8000-000000000003"},
    {"Jurgen", "a1000000-0000-4000-8000-000000000004"},
    {"山田", "a1000000-0000-4000-8000-000000000005"},
    {"Алёна", "a1000000-0000-4000-8000-000000000006"},
    {"Αθηνᾶ", "a1000000-0000-4000-8000-000000000007"},
    {"محمد", "a1000000-0000-4000-8000-000000000008"},
    {"Zo\u00EB", "a1000000-0000-4000-8000-000000000009"},   // one code point
    {"Zoe\u0308", "a1000000-0000-4000-8000-00000000000a"},  // "e" and a combining diaeresis
    {"🔑-admin", "a1000000-0000-4000-8000-00000000000b"},    // above U+FFFF: 4 bytes
};

std::string namedUsersJson() {
  std::string json = R"({"users": [)";
  for (const NamedUser& user : namedUsers) {
    if (json.back() == '}') json += ", ";
    json += std::string(R"({"userName": ")") + user.name + R"(", "UUID": ")" + user.uuid + "\"}";
  }
  return json + "]}";
}

std::string passwordFor(std::size_t index) {
  return std::string(strongPassword) + "-" + std::to_string(index);
}

TEST_F(EndToEndTest, NamesInSeveralScriptsEachSetTheirOwnEntry) {
  writeFile(directory_.path() / "users.json", namedUsersJson());
  for (std::size_t i = 0; i < std::size(namedUsers); ++i) {
    const NamedUser& user = namedUsers[i];
    const ChildResult result = run({user.name}, passwordFor(i) + "\n");
    ASSERT_EQ(result.exitStatus, 0) << user.name << ": " << result.err;
    EXPECT_EQ(result.out,
              fileLines(i > 0) + "Password for user \"" + user.name + "\" was updated.\n");
    const std::string file = passwordFile();
    EXPECT_TRUE(verifies(passwordFor(i), storedHash(file, user.uuid))) << user.name;
    // Nothing set yet for the names that come later, the look-alikes
    // included (each follows the name it differs from by an accent or a
    // combining mark).
    for (std::size_t later = i + 1; later < std::size(namedUsers); ++later) {
      EXPECT_EQ(storedHash(file, namedUsers[later].uuid), "")
          << user.name << " set " << namedUsers[later].name;
    }
  }
  const std::string file = passwordFile();
  for (std::size_t i = 0; i < std::size(namedUsers); ++i) {
    EXPECT_TRUE(verifies(passwordFor(i), storedHash(file, namedUsers[i].uuid)))
        << namedUsers[i].name;
  }
}

TEST_F(EndToEndTest, ANameThatIsNotInTheFileIsReportedWithItsCharacters) {
  writeFile(directory_.path() / "users.json", namedUsersJson());
  // A name cut short, the combining mark on another letter, another name.
  for (const std::string name : {"Łukas", "Zo\u0308e", "山本"}) {
    const ChildResult result = run({name}, std::string(strongPassword) + "\n");
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.err, "ERROR: the user \"" + name + "\" was not found in the file \"" +
                              (directory_.path() / "users.json").string() + "\"\n");
    EXPECT_FALSE(passwordFileExists());
  }
}

// Names and file bytes another account may have chosen: control characters
// and bytes that are not UTF-8 print as "\xNN", so that none can set the
// terminal's title, move the cursor or hide a line.
constexpr const char* titleSequence = "\x1b]0;owned\x07";
constexpr const char* titleSequenceShown = "\\x1b]0;owned\\x07";

// Whether `text` holds a byte that a terminal acts on (C0 but the line
// feed, or DEL).
bool holdsControlBytes(const std::string& text) {
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte < 0x20 && byte != '\n') || byte == 0x7F) return true;
  }
  return false;
}

TEST_F(EndToEndTest, HostileFolderAndUserNamesPrintEscaped) {
  const std::string folderName = std::string("k-") + titleSequence + "-\xFF";
  const std::filesystem::path folder = directory_.path() / folderName;
  const std::string folderShown =
      (directory_.path() / (std::string("k-") + titleSequenceShown + "-\\xff")).string();
  std::filesystem::create_directories(folder);
  const std::string userName = std::string("ev") + titleSequence + "il";
  const std::string userShown = std::string("ev") + titleSequenceShown + "il";
  writeFile(folder / "users.json",
            R"({"users": [{"userName": "ev\u001b]0;owned\u0007il", "UUID": ")" +
                std::string(aliceUuid) + R"("}]})");
  const std::map<std::string, std::optional<std::string>> environment{
      {"XDG_CONFIG_DIRS", (directory_.path() / "no-base").string()}};

  const ChildResult updated = runProgram(program, {"-ConfigDir", folder.string(), userName},
                                         std::string(strongPassword) + "\n", environment);
  EXPECT_EQ(updated.exitStatus, 0) << updated.err;
  EXPECT_EQ(updated.err, "");
  EXPECT_EQ(updated.out, "Using user configuration file \"" + folderShown +
                             "/users.json\"\nWill create new password file at \"" + folderShown +
                             "/passwords.json\"\nPassword for user \"" + userShown +
                             "\" was updated.\n");
  EXPECT_TRUE(verifies(strongPassword, storedHash(readFile(folder / "passwords.json"), aliceUuid)));

  // A name that is not in the file, with a byte that is not UTF-8.
  const ChildResult missing =
      runProgram(program, {"-ConfigDir", folder.string(), userName + "\xFF"},
                 std::string(strongPassword) + "\n", environment);
  EXPECT_EQ(missing.exitStatus, 1);
  EXPECT_EQ(missing.err, "ERROR: the user \"" + userShown + "\\xff\" was not found in the file \"" +
                             folderShown + "/users.json\"\n");
  for (const ChildResult* result : {&updated, &missing}) {
    EXPECT_FALSE(holdsControlBytes(result->out)) << result->out;
    EXPECT_FALSE(holdsControlBytes(result->err)) << result->err;
  }
}

TEST_F(EndToEndTest, HostileUnknownOptionPrintsEscaped) {
  const ChildResult result = run({std::string("-Users\x1b[2K\r") + "\xC2\x9B" + "\xFF", "alice"},
                                 std::string(strongPassword) + "\n");
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err,
            "COMMAND LINE ERROR: unknown option '-Users\\x1b[2K\\x0d\\xc2\\x9b\\xff'\n\n");
  EXPECT_EQ(result.out, "");
}

TEST_F(EndToEndTest, AControlByteInAFileIsQuotedEscaped) {
  writeFile(passwordsPath(), std::string(titleSequence) + "{}");
  const ChildResult result = run({"alice"}, std::string(strongPassword) + "\n");
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.err, "ERROR: \"" + passwordsPath().string() +
                            "\", line 1, column 1: expected an object, found '\\x1b'\n");
  EXPECT_FALSE(holdsControlBytes(result.err)) << result.err;
  EXPECT_EQ(passwordFile(), std::string(titleSequence) + "{}");
}

TEST_F(EndToEndTest, FoldersAndFilesInSeveralScripts) {
  const std::filesystem::path folder = directory_.path() / "配置-Łódź";
  std::filesystem::create_directories(folder / "hasła-パスワード");
  writeFile(folder / "users.json", namedUsersJson());
  const ChildResult found =
      runProgram(program, {"-ConfigDir", folder.string(), namedUsers[4].name},
                 std::string(strongPassword) + "\n",
                 {{"XDG_CONFIG_DIRS", (directory_.path() / "no-base").string()}});
  EXPECT_EQ(found.exitStatus, 0) << found.err;
  EXPECT_EQ(found.out, "Using user configuration file \"" + (folder / "users.json").string() +
                           "\"\nWill create new password file at \"" +
                           (folder / "passwords.json").string() + "\"\nPassword for user \"" +
                           namedUsers[4].name + "\" was updated.\n");
  EXPECT_TRUE(verifies(strongPassword,
                       storedHash(readFile(folder / "passwords.json"), namedUsers[4].uuid)));

  const std::filesystem::path users = folder / "użytkownicy.json";
  const std::filesystem::path passwords = folder / "hasła-パスワード" / "hasła.json";
  std::filesystem::copy_file(folder / "users.json", users);
  const ChildResult explicitPaths = runProgram(
      program, {"-Users", users.string(), "-Passwords", passwords.string(), namedUsers[0].name},
      std::string(strongPassword) + "\n",
      {{"XDG_CONFIG_DIRS", (directory_.path() / "no-base").string()}});
  EXPECT_EQ(explicitPaths.exitStatus, 0) << explicitPaths.err;
  EXPECT_EQ(explicitPaths.out, "Using user configuration file \"" + users.string() +
                                   "\"\nUsing password file \"" + passwords.string() +
                                   "\"\nPassword for user \"" + namedUsers[0].name +
                                   "\" was updated.\n");
  EXPECT_TRUE(verifies(strongPassword, storedHash(readFile(passwords), namedUsers[0].uuid)));
}

}  // namespace
}  // namespace korvane::setUserPassword
