// The fast pass of the user search (UserSkim) against the exact one
// (readUsers): on every input the skim either gives up or ends with the
// exact pass's outcome (the same UUID or the same error text), and then the
// exact pass reads the whole file without an error. On ordinary files the
// skim must settle the search itself. Inputs: files shaped like the
// benchmark's, every kind of error the search reports, edits at every
// position, the input cut at every point, small windows.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "setUserPassword/UserConfiguration.h"
#include "setUserPassword/UserSkim.h"
#include "tests/utils/json/MemoryStreams.h"
#include "utils/core/Format.h"
#include "utils/json/decoder/Parser.h"

namespace korvane::setUserPassword {
namespace {

using utils::json::decoder::Skimmer;
using utils::json::test::MemoryInputStream;
using utils::json::test::PieceReader;

const std::filesystem::path usersPath = "users.json";

std::string outcomeOf(const UserTally& tally) {
  try {
    return "found " + tally.result(usersPath).toString().str();
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

struct ExactOutcome {
  std::string text;
  bool readWhole = false;  // no error before result()
};

ExactOutcome exactOutcome(const std::string& content, std::string_view name) {
  MemoryInputStream stream(content);
  try {
    const UserTally tally = readUsers(stream, usersPath, name);
    return {outcomeOf(tally), true};
  } catch (const std::exception& error) {
    return {std::string("error ") + error.what(), false};
  }
}

std::optional<std::string> skimOutcome(const Skimmer::Reader& reader, std::string_view name,
                                       std::size_t window = Skimmer::defaultWindow) {
  const std::optional<UserTally> tally = UserSkim::run(reader, name, window);
  if (!tally) return std::nullopt;
  return outcomeOf(*tally);
}

// Checks the skim against the exact pass; returns whether the skim decided.
bool expectAgrees(const std::string& content, std::string_view name,
                  const std::string& label = {}) {
  const ExactOutcome exact = exactOutcome(content, name);
  const std::optional<std::string> skim = skimOutcome(PieceReader(content), name);
  if (!skim) return false;
  EXPECT_TRUE(exact.readWhole) << label
                               << ": the skim decided where the exact pass fails: " << exact.text;
  EXPECT_EQ(*skim, exact.text) << label;
  return true;
}

// The skim settles the search on `content`, as the exact pass does.
void expectDecides(const std::string& content, std::string_view name, const std::string& expected) {
  EXPECT_TRUE(expectAgrees(content, name)) << "the skim gave up on " << content;
  EXPECT_EQ(exactOutcome(content, name).text, expected);
}

// The skim leaves `content` to the exact pass.
void expectGivesUp(const std::string& content, std::string_view name) {
  EXPECT_FALSE(skimOutcome(PieceReader(content), name).has_value()) << content;
}

std::string userName(std::uint64_t i) { return utils::core::format("user{:07}", i); }
std::string uuidText(std::uint64_t i) {
  return utils::core::format("{:08x}-{:04x}-4{:03x}-8{:03x}-{:012x}", i * 2654435761u % 0xFFFFFFFFu,
                             i % 0xFFFF, i % 0xFFF, (i / 7) % 0xFFF, i);
}

// A users file shaped like the benchmark's: every user has a member of one
// of four kinds to skip (nested values, escapes, non-ASCII text, numbers).
std::string usersFile(std::uint64_t count) {
  std::string out =
      "{\n  \"version\": 3,\n  \"settings\": {\"limits\": [1, 2.5, -3e10, true, false, null],"
      " \"nested\": {\"a\": {\"b\": [[], {}]}}},\n  \"users\": [\n";
  for (std::uint64_t i = 1; i <= count; ++i) {
    out += "    {\"userName\": \"" + userName(i) + "\", ";
    switch (i % 4) {
      case 0:
        out += "\"groups\": [\"admins\", \"ops\", 42, null], ";
        break;
      case 1:
        out += "\"profile\": {\"age\": 37, \"ratio\": -0.125e-3, \"active\": true, \"tags\": []}, ";
        break;
      case 2:
        out +=
            "\"notes\": \"line one\\nline \\\"two\\\"\\t\\u00e9\\ud83d\\ude00 "
            "\xC3\xA9t\xC3\xA9\", ";
        break;
      default:
        out += "\"quota\": 1234567.891, \"locked\": false, \"manager\": null, ";
        break;
    }
    out += "\"UUID\": \"" + uuidText(i) + "\"}";
    out += i == count ? "\n" : ",\n";
  }
  out += "  ],\n  \"trailer\": {\"generated\": true}\n}\n";
  return out;
}

std::string found(std::uint64_t i) { return "found " + uuidText(i); }

std::string users(const std::string& elements) { return "{\"users\": [" + elements + "]}"; }

std::string user(std::string_view name, std::string_view uuid) {
  return utils::core::format(R"({{"userName": "{}", "UUID": "{}"}})", name, uuid);
}

constexpr const char* uuidA = "11111111-2222-4333-8444-555555555555";
constexpr const char* uuidB = "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee";

TEST(UserSkimTest, DecidesOnBenchmarkShapedFiles) {
  const std::string content = usersFile(300);
  for (const std::uint64_t i : {1u, 2u, 3u, 4u, 150u, 299u, 300u})
    expectDecides(content, userName(i), found(i));
  expectDecides(content, "nobody",
                "error the user \"nobody\" was not found in the file \"users.json\"");
  expectDecides(content, "", "error the user \"\" was not found in the file \"users.json\"");
}

TEST(UserSkimTest, DecidesOnEveryLayout) {
  const std::string pretty = usersFile(20);
  std::string compact;
  bool inString = false;
  for (std::size_t i = 0; i < pretty.size(); ++i) {
    const char c = pretty[i];
    if (c == '"' && (i == 0 || pretty[i - 1] != '\\')) inString = !inString;
    if (inString || (c != ' ' && c != '\n')) compact += c;
  }
  std::string windows;
  for (const char c : pretty) {
    if (c == '\n') {
      windows += "\r\n\t";
    } else {
      windows += c;
    }
  }
  for (const std::string& content :
       {compact, windows, "\xEF\xBB\xBF" + pretty, pretty + "  \n\n"}) {
    expectDecides(content, userName(7), found(7));
  }
}

TEST(UserSkimTest, DecidesTheSearchsOwnOutcomes) {
  const std::string path = "\"users.json\"";
  // Found, also with the UUID ahead of the name, upper case, other members.
  expectDecides(users(user("alice", uuidA) + "," + user("bob", uuidB)), "bob",
                std::string("found ") + uuidB);
  expectDecides(
      users(
          R"({"UUID": "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE", "x": [1, {"y": null}], "userName": "alice"})"),
      "alice", std::string("found ") + uuidB);
  // Names compared byte for byte, non-ASCII ones included.
  expectDecides(users(user("Alice", uuidA) + "," + user("\xC3\xA9lise", uuidB)), "\xC3\xA9lise",
                std::string("found ") + uuidB);
  expectDecides(users(user("Alice", uuidA)), "alice",
                "error the user \"alice\" was not found in the file " + path);
  // Duplicate UUIDs: of the matched user before and after it, in another
  // spelling, or only among other users.
  expectDecides(
      users(user("bob", uuidA) + "," + user("alice", uuidA)), "alice",
      std::string("error there is more than one user with UUID ") + uuidA + " in the file " + path);
  expectDecides(
      users(user("alice", uuidA) + R"(, {"UUID": "11111111-2222-4333-8444-555555555555"})"),
      "alice",
      std::string("error there is more than one user with UUID ") + uuidA + " in the file " + path);
  expectDecides(
      users(user("alice", uuidB) + R"(, {"UUID": "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE"})"),
      "alice",
      std::string("error there is more than one user with UUID ") + uuidB + " in the file " + path);
  expectDecides(
      users(R"({"UUID": ")" + std::string(uuidB) + R"(", "UUID": ")" + uuidA + R"("},)" +
            user("alice", uuidA)),
      "alice",
      std::string("error there is more than one user with UUID ") + uuidA + " in the file " + path);
  expectDecides(users(user("bob", uuidA) + "," + user("carol", uuidA) + "," + user("alice", uuidB)),
                "alice", std::string("found ") + uuidB);
  // Two users of the name come before a duplicate UUID.
  expectDecides(
      users(user("alice", uuidA) + R"(, {"UUID": ")" + uuidA + R"("},)" + user("alice", uuidB)),
      "alice", "error there is more than one user named \"alice\" in the file " + path);
  expectDecides(users(user("alice", "00000000-0000-0000-0000-000000000000")), "alice",
                "error the UUID of user \"alice\" is 00000000-0000-0000-0000-000000000000");
  // Unmatched users may be incomplete; every "users" member is walked, and
  // only at the top level.
  expectDecides(users(R"({"userName": "bob", "userName": "b2"}, {"note": 1}, {"UUID": ")" +
                      std::string(uuidB) + R"("},)" + user("alice", uuidA)),
                "alice", std::string("found ") + uuidA);
  expectDecides("{\"users\": [" + user("alice", uuidA) + "], \"x\": {\"users\": 5}, \"users\": [" +
                    user("bob", uuidB) + "]}",
                "bob", std::string("found ") + uuidB);
  expectDecides(R"({"people": []})", "alice",
                "error the user \"alice\" was not found in the file " + path);
  expectDecides(users(""), "alice", "error the user \"alice\" was not found in the file " + path);
}

TEST(UserSkimTest, LeavesLocatedAndEscapedCasesToTheExactPass) {
  for (const std::string& content : std::vector<std::string>{
           // The matched user's own errors, which carry its location.
           users(R"({"userName": "alice"})"),
           users(R"({"userName": "alice", "UUID": ")" + std::string(uuidA) + R"(", "UUID": ")" +
                 uuidB + R"("})"),
           users(R"({"userName": "x", "userName": "alice", "UUID": ")" + std::string(uuidA) +
                 R"("})"),
           // Escapes where the exact pass compares or reads decoded text.
           users(user("al\\u0069ce", uuidA)),
           users(user("bob\\n", uuidA) + "," + user("alice", uuidB)),
           users(R"({"user\u004eame": "alice", "UUID": ")" + std::string(uuidA) + R"("})"),
           "{\"u\\u0073ers\": [" + user("alice", uuidA) + "]}",
           users(R"({"userName": "alice", "UUID": "\u0031111111-2222-4333-8444-555555555555"})"),
           // Wrong kinds and malformed text.
           R"({"users": {}})",
           R"({"users": [1]})",
           R"({"users": [{"userName": 5}]})",
           users(user("alice", "not-a-uuid")),
           users(R"({"userName": "alice", "UUID": 1})"),
           "[]",
           "",
           users(user("alice", uuidA)) + "x",
           users(user("alice", uuidA) + ","),
       }) {
    expectGivesUp(content, "alice");
    expectAgrees(content, "alice", content);
  }
}

TEST(UserSkimTest, MemberNamesAsLongAsTheExactPassTakes) {
  // The exact pass refuses a member name of the top-level object or of a
  // user object longer than its limit; names inside skipped values have
  // none (up to the skim's window, they are skimmed too).
  const std::size_t limit = utils::json::decoder::detail::Parser::maxNameLength;
  static_assert(utils::json::decoder::Skimmer::defaultWindow > limit + limit / 4 + 16);
  const auto withName = [&](std::size_t length) {
    return R"({"users": [{")" + std::string(length, 'n') +
           R"(": 1, "userName": "alice", "UUID": ")" + uuidA + R"("}], "x": {")" +
           std::string(limit + limit / 4, 'm') + R"(": 2}})";
  };
  expectDecides(withName(limit), "alice", std::string("found ") + uuidA);
  expectGivesUp(withName(limit + 1), "alice");
  EXPECT_FALSE(exactOutcome(withName(limit + 1), "alice").readWhole);
  const std::string topLevel = R"({")" + std::string(limit + 1, 't') + R"(": 1, "users": []})";
  expectGivesUp(topLevel, "alice");
  EXPECT_FALSE(exactOutcome(topLevel, "alice").readWhole);
}

TEST(UserSkimTest, EditsAtEveryPositionAgreeWithTheExactPass) {
  const std::string content = usersFile(12);
  const std::string bytes =
      std::string("\"\\{}[],:x 0-eu") + std::string("\x00\x1F\x80\xC3\xED\xFF", 6);
  int decided = 0;
  for (std::size_t at = 0; at <= content.size(); ++at) {
    const std::string name = userName(1 + at % 12);
    if (expectAgrees(content.substr(0, at), name, "cut at " + std::to_string(at))) ++decided;
    if (at == content.size()) break;
    for (const char byte : bytes) {
      std::string edited = content;
      edited[at] = byte;
      if (expectAgrees(edited, name, "byte " + std::to_string(at))) ++decided;
    }
    std::string shorter = content;
    shorter.erase(at, 1);
    if (expectAgrees(shorter, name, "erased " + std::to_string(at))) ++decided;
  }
  // Many edits leave a valid file (inside strings, between tokens): those
  // the skim must settle itself.
  EXPECT_GT(decided, 2000);
}

TEST(UserSkimTest, RandomUsersFilesAgreeWithTheExactPass) {
  std::mt19937 random(15);
  const std::vector<std::string> names = {"alice",       "bob", "\xC3\xA9lise",
                                          "al\\u0069ce", "",    "a\\\"b"};
  const std::vector<std::string> uuids = {uuidA,
                                          uuidB,
                                          "00000000-0000-0000-0000-000000000000",
                                          "AAAAAAAA-BBBB-4CCC-8DDD-EEEEEEEEEEEE",
                                          "bad",
                                          "\\u0031111111-2222-4333-8444-555555555555"};
  int decided = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string elements;
    const int count = static_cast<int>(random() % 5);
    for (int i = 0; i < count; ++i) {
      std::string members;
      const int memberCount = static_cast<int>(random() % 4);
      for (int m = 0; m < memberCount; ++m) {
        if (!members.empty()) members += ", ";
        switch (random() % 4) {
          case 0:
            members += "\"userName\": \"" + names[random() % names.size()] + "\"";
            break;
          case 1:
            members += "\"UUID\": \"" + uuids[random() % uuids.size()] + "\"";
            break;
          case 2:
            members += "\"other\": [1, {\"userName\": \"alice\"}]";
            break;
          default:
            members += "\"UUID\": \"" + std::string(random() % 2 != 0 ? uuidA : uuidB) + "\"";
            break;
        }
      }
      elements += (i == 0 ? "" : ", ") + ("{" + members + "}");
    }
    const std::string content = users(elements);
    if (expectAgrees(content, "alice", content)) ++decided;
  }
  EXPECT_GT(decided, 1000);
}

TEST(UserSkimTest, CutAtEveryPointDecidesAlike) {
  for (const std::string& content :
       {usersFile(8), users(user("bob", uuidA) + "," + user("alice", uuidA)),
        "\xEF\xBB\xBF" + users(user("\xC3\xA9lise", uuidB))}) {
    for (const std::string& name :
         {userName(8), std::string("alice"), std::string("\xC3\xA9lise")}) {
      const std::optional<std::string> whole = skimOutcome(PieceReader(content), name);
      ASSERT_TRUE(whole.has_value());
      for (std::size_t split = 1; split < content.size(); ++split) {
        ASSERT_EQ(skimOutcome(PieceReader(content, split), name), whole) << split;
      }
      ASSERT_EQ(skimOutcome(PieceReader(content, 1, 1), name), whole);
      ASSERT_EQ(skimOutcome(PieceReader(content, 7, 5), name), whole);
    }
  }
}

TEST(UserSkimTest, SmallWindowsDecideAlike) {
  // The longest token with the whitespace behind it is a notes string of
  // 56 bytes: from a window a little larger on, every window must do.
  const std::string content = usersFile(40);
  for (std::size_t window = 16; window <= 400; window += 3) {
    const std::optional<std::string> outcome =
        skimOutcome(PieceReader(content, 100, 37), userName(40), window);
    if (window >= 80) {
      EXPECT_EQ(outcome, found(40)) << window;
    } else if (outcome) {
      EXPECT_EQ(*outcome, found(40)) << window;
    }
  }
}

TEST(UserSkimTest, AReadFailurePassesThrough) {
  // Reported as the exact pass reports it, never hidden by a second reading.
  const std::string content = usersFile(4);
  std::size_t position = 0;
  const Skimmer::Reader failing = [&](std::span<char> into) -> std::size_t {
    if (position >= 100) throw std::runtime_error("read failed");
    const std::size_t count = std::min<std::size_t>(into.size(), 100);
    std::memcpy(into.data(), content.data(), count);
    position += count;
    return count;
  };
  EXPECT_THROW((void)UserSkim::run(failing, userName(4)), std::runtime_error);
}

}  // namespace
}  // namespace korvane::setUserPassword
