#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "setUserPassword/UserConfiguration.h"
#include "tests/support/ChildProcess.h"
#include "utils/io/FileNotFoundError.h"
#include "utils/json/decoder/Exception.h"

namespace korvane::setUserPassword {
namespace {

using korvane::testing::TemporaryDirectory;
using korvane::testing::writeFile;
using utils::core::Uuid;

constexpr const char* uuidA = "11111111-2222-4333-8444-555555555555";
constexpr const char* uuidB = "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee";

class UserConfigurationTest : public ::testing::Test {
 protected:
  std::filesystem::path file(std::string_view content) {
    writeFile(path_, content);
    return path_;
  }

  // The error's whole text.
  std::string errorOf(std::string_view content, std::string_view name) {
    try {
      (void)findUser(file(content), name);
    } catch (const std::exception& error) {
      return error.what();
    }
    return "no error";
  }

  TemporaryDirectory directory_;
  std::filesystem::path path_ = directory_.path() / "users.json";
};

TEST_F(UserConfigurationTest, FindsTheUser) {
  const auto path = file(R"({"users": [{"userName": "alice", "UUID": ")" + std::string(uuidA) +
                         R"("}, {"UUID": ")" + uuidB + R"(", "userName": "bob"}]})");
  EXPECT_EQ(findUser(path, "alice"), *Uuid::fromString(uuidA));
  EXPECT_EQ(findUser(path, "bob"), *Uuid::fromString(uuidB));
}

TEST_F(UserConfigurationTest, SkipsEveryKindOfOtherMember) {
  const std::string content = std::string(R"({
    "version": 3, "flags": [true, false, null, {"x": [1, 2.5e-3, -0]}],
    "users": [
      {"extra": {"deep": [[[{"a": "b"}]]], "n": -12.5E+3}, "userName": "alice",
       "list": [1, "two", null], "t": true, "f": false, "z": null, "UUID": ")") +
                              uuidA + R"(", "s": "text with \" and \\ and \u00e9"},
      {"userName": "bob", "UUID": ")" +
                              uuidB + R"("}
    ],
    "trailer": {"users": "not here"}
  })";
  EXPECT_EQ(findUser(file(content), "alice"), *Uuid::fromString(uuidA));
}

TEST_F(UserConfigurationTest, SecondUsersMemberIsReadToo) {
  const std::string content = std::string(R"({"users": [{"userName": "alice", "UUID": ")") + uuidA +
                              R"("}], "other": 1, "users": [{"userName": "bob", "UUID": ")" +
                              uuidB + R"("}]})";
  EXPECT_EQ(findUser(file(content), "bob"), *Uuid::fromString(uuidB));
}

TEST_F(UserConfigurationTest, FileWithoutUsersMember) {
  EXPECT_EQ(errorOf(R"({"people": []})", "alice"),
            "the user \"alice\" was not found in the file \"" + path_.string() + "\"");
}

TEST_F(UserConfigurationTest, NamesDifferingInCaseDoNotMatch) {
  const std::string content =
      std::string(R"({"users": [{"userName": "Alice", "UUID": ")") + uuidA + R"("}]})";
  EXPECT_EQ(errorOf(content, "alice"),
            "the user \"alice\" was not found in the file \"" + path_.string() + "\"");
  EXPECT_EQ(errorOf(content, "alice "),
            "the user \"alice \" was not found in the file \"" + path_.string() + "\"");
}

TEST_F(UserConfigurationTest, TwoUsersWithTheSameName) {
  const std::string content = std::string(R"({"users": [{"userName": "alice", "UUID": ")") + uuidA +
                              R"("}, {"userName": "alice", "UUID": ")" + uuidA + R"("}]})";
  EXPECT_EQ(errorOf(content, "alice"),
            "there is more than one user named \"alice\" in the file \"" + path_.string() + "\"");
}

TEST_F(UserConfigurationTest, DuplicateUuidOfTheMatchedUser) {
  const std::string content = std::string(R"({"users": [{"userName": "bob", "UUID": ")") + uuidA +
                              R"("}, {"userName": "alice", "UUID": ")" + uuidA + R"("}]})";
  EXPECT_EQ(errorOf(content, "alice"), std::string("there is more than one user with UUID ") +
                                           uuidA + " in the file \"" + path_.string() + "\"");
  // Also when the other object has no name at all.
  const std::string nameless = std::string(R"({"users": [{"userName": "alice", "UUID": ")") +
                               uuidA + R"("}, {"UUID": ")" + uuidA + R"("}]})";
  EXPECT_EQ(errorOf(nameless, "alice"), std::string("there is more than one user with UUID ") +
                                            uuidA + " in the file \"" + path_.string() + "\"");
}

TEST_F(UserConfigurationTest, DuplicateUuidInAnyPlace) {
  const std::string duplicate = std::string("there is more than one user with UUID ") + uuidA +
                                " in the file \"" + path_.string() + "\"";
  // Before the match in a user with two UUIDs, and after the match.
  for (const std::string& users : {
           std::string(R"({"UUID": ")") + uuidB + R"(", "UUID": ")" + uuidA +
               R"("}, {"userName": "alice", "UUID": ")" + uuidA + R"("})",
           std::string(R"({"userName": "alice", "UUID": ")") + uuidA + R"("}, {"UUID": ")" + uuidB +
               R"("}, {"x": 1, "UUID": ")" + uuidA + R"("})",
       }) {
    EXPECT_EQ(errorOf(R"({"users": [)" + users + "]}", "alice"), duplicate) << users;
  }
  // In another spelling, with the matched user's UUID ahead of its name.
  const std::string spelled =
      std::string(R"({"users": [{"UUID": ")") + uuidB +
      R"(", "userName": "alice"}, {"UUID": "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE"}]})";
  EXPECT_EQ(errorOf(spelled, "alice"), std::string("there is more than one user with UUID ") +
                                           uuidB + " in the file \"" + path_.string() + "\"");
  // A UUID that differs from the matched one in its last digit is no duplicate.
  const std::string near = std::string(R"({"users": [{"userName": "alice", "UUID": ")") + uuidA +
                           R"("}, {"UUID": "11111111-2222-4333-8444-555555555554"}]})";
  EXPECT_EQ(findUser(file(near), "alice"), *Uuid::fromString(uuidA));
}

TEST_F(UserConfigurationTest, TwoMatchesAreReportedBeforeADuplicateUuid) {
  const std::string content = std::string(R"({"users": [{"userName": "alice", "UUID": ")") + uuidA +
                              R"("}, {"UUID": ")" + uuidA +
                              R"("}, {"userName": "alice", "UUID": ")" + uuidB + R"("}]})";
  EXPECT_EQ(errorOf(content, "alice"),
            "there is more than one user named \"alice\" in the file \"" + path_.string() + "\"");
}

TEST_F(UserConfigurationTest, DuplicateUuidsAmongOtherUsersAreNoError) {
  const std::string content = std::string(R"({"users": [{"userName": "bob", "UUID": ")") + uuidA +
                              R"("}, {"userName": "carol", "UUID": ")" + uuidA +
                              R"("}, {"userName": "alice", "UUID": ")" + uuidB + R"("}]})";
  EXPECT_EQ(findUser(file(content), "alice"), *Uuid::fromString(uuidB));
}

TEST_F(UserConfigurationTest, NullUuidOfTheMatchedUser) {
  const std::string content =
      R"({"users": [{"userName": "alice", "UUID": "00000000-0000-0000-0000-000000000000"}]})";
  EXPECT_EQ(errorOf(content, "alice"),
            "the UUID of user \"alice\" is 00000000-0000-0000-0000-000000000000");
}

TEST_F(UserConfigurationTest, UnmatchedObjectsMayBeIncomplete) {
  const std::string content = std::string(R"({"users": [{"userName": "bob", "userName": "b2"},
    {"note": "no name"}, {"userName": "alice", "UUID": ")") +
                              uuidA + R"("}]})";
  EXPECT_EQ(findUser(file(content), "alice"), *Uuid::fromString(uuidA));
}

TEST_F(UserConfigurationTest, MatchedUserErrorsCarryTheObjectsLocation) {
  const std::string prefix = "\"" + path_.string() + "\", line 3, column 3: ";
  EXPECT_EQ(
      errorOf("{\"users\": [\n  {\"userName\": \"bob\"},\n  {\"userName\": \"alice\"}]}", "alice"),
      prefix + "missing user UUID in the configuration of user \"alice\"");
  EXPECT_EQ(
      errorOf(std::string("{\"users\": [\n  {\"userName\": \"bob\"},\n  {\"userName\": \"alice\", "
                          "\"UUID\": \"") +
                  uuidA + "\", \"UUID\": \"" + uuidB + "\"}]}",
              "alice"),
      prefix + "multiple UUIDs specified for user \"alice\"");
  EXPECT_EQ(
      errorOf(std::string("{\"users\": [\n  {\"userName\": \"bob\"},\n  {\"userName\": \"x\", "
                          "\"userName\": \"alice\", \"UUID\": \"") +
                  uuidA + "\"}]}",
              "alice"),
      prefix + "multiple user names specified for user \"alice\"");
}

TEST_F(UserConfigurationTest, LocatedErrorsAreRuntimeErrorsAndDecoderExceptions) {
  const std::string content = "{\"users\": [{\"userName\": \"alice\"}]}";
  const auto path = file(content);
  EXPECT_THROW((void)findUser(path, "alice"), std::runtime_error);
  EXPECT_THROW((void)findUser(path, "alice"), utils::json::decoder::Exception);
}

TEST_F(UserConfigurationTest, MalformedFileNamesFileLineAndColumn) {
  const std::string text =
      errorOf("{\"users\": [\n  {\"userName\": \"alice\" \"UUID\": 1}]}", "alice");
  EXPECT_TRUE(text.starts_with("\"" + path_.string() + "\", line 2, column 24: ")) << text;
}

TEST_F(UserConfigurationTest, WrongKindsAreDecoderErrors) {
  for (const std::string content :
       {R"({"users": {}})", R"({"users": [1]})", R"({"users": [{"userName": 5}]})",
        R"({"users": [{"userName": "alice", "UUID": "not-a-uuid"}]})", R"([])"}) {
    const std::string text = errorOf(content, "alice");
    EXPECT_TRUE(text.starts_with("\"" + path_.string() + "\", line 1, column ")) << text;
  }
}

TEST_F(UserConfigurationTest, EscapedNamesAndUuidsAreComparedDecoded) {
  const auto path =
      file(std::string(R"({"users": [{"userName": "al\u0069ce", "UUID": "\u0031)") + (uuidA + 1) +
           R"("}, {"\u0075serName": "b\/ob", "UUID": ")" + uuidB + R"("}]})");
  EXPECT_EQ(findUser(path, "alice"), *Uuid::fromString(uuidA));
  EXPECT_EQ(findUser(path, "b/ob"), *Uuid::fromString(uuidB));
  EXPECT_THROW((void)findUser(path, "al\\u0069ce"), std::runtime_error);
}

// A FIFO at the name is refused before anything is read from it, and
// without waiting for a writer: another account could hold one open to
// make a run wait for ever, or feed it any text.
TEST_F(UserConfigurationTest, AFifoIsRefusedUnread) {
  const auto fifo = directory_.path() / "users.json";
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  const int keeper = ::open(fifo.c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_GE(keeper, 0);
  const int writer = ::open(fifo.c_str(), O_WRONLY);
  ASSERT_GE(writer, 0);
  const std::string content =
      std::string(R"({"users": [{"userName": "alice", "UUID": ")") + uuidA + R"("}]})";
  ASSERT_EQ(::write(writer, content.data(), content.size()), static_cast<ssize_t>(content.size()));
  try {
    (void)findUser(fifo, "alice");
    ADD_FAILURE() << "read";
  } catch (const std::runtime_error& error) {
    EXPECT_EQ(std::string(error.what()),
              "could not open \"" + fifo.string() +
                  "\": it is a FIFO, not a regular file, and is not read");
  }
  // Every byte is still in the pipe.
  std::string left(content.size() + 1, '\0');
  EXPECT_EQ(::read(keeper, left.data(), left.size()), static_cast<ssize_t>(content.size()));
  ::close(writer);
  ::close(keeper);
}

TEST_F(UserConfigurationTest, MissingFileIsFileNotFoundError) {
  EXPECT_THROW((void)findUser(directory_.path() / "missing.json", "alice"),
               utils::io::FileNotFoundError);
}

}  // namespace
}  // namespace korvane::setUserPassword
