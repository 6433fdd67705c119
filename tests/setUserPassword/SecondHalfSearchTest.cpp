// The search in two halves against the one pass: at every place a worker
// could be started (just after each '}'), the outcome must be the one pass's,
// error texts and locations included. Whether the worker's outcome was
// taken is seen by giving the pass a damaged copy of the text after the
// boundary: reading it would give another outcome.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "setUserPassword/SecondHalfSearch.h"
#include "setUserPassword/UserConfiguration.h"
#include "tests/support/ChildProcess.h"
#include "tests/utils/json/MemoryStreams.h"
#include "utils/core/Uuid.h"
#include "utils/io/File.h"
#include "utils/io/InputStream.h"

namespace korvane::setUserPassword {
namespace {

using utils::json::test::MemoryInputStream;

const std::filesystem::path path = "users.json";
constexpr std::string_view sought = "alice";

std::string outcomeOf(const UserTally& tally) {
  try {
    return "found " + tally.result(path).toString().str();
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

std::string onePass(const std::string& text) {
  try {
    MemoryInputStream stream(text, 7);
    return outcomeOf(readUsers(stream, path, sought));
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

// The pass reads `passText` while a worker reads `text` from `boundary` on.
std::string inHalves(const std::string& passText, const std::string& text, std::size_t boundary) {
  try {
    SecondHalfSearch secondHalf(
        [rest = text.substr(boundary)](const std::atomic<bool>&) {
          return std::make_unique<MemoryInputStream>(rest, 5);
        },
        boundary, sought, path);
    MemoryInputStream stream(passText, 7);
    return outcomeOf(readUsers(stream, path, sought, &secondHalf));
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

// The text with everything after `boundary` made unreadable.
std::string damagedAfter(const std::string& text, std::size_t boundary) {
  return text.substr(0, boundary) + std::string(text.size() - boundary, '#');
}

// Checks every boundary of `text`; returns those where the worker's
// outcome was taken.
std::vector<std::size_t> checkEveryBoundary(const std::string& text) {
  const std::string expected = onePass(text);
  std::vector<std::size_t> taken;
  for (std::size_t boundary = 1; boundary <= text.size(); ++boundary) {
    if (text[boundary - 1] != '}') continue;
    EXPECT_EQ(inHalves(text, text, boundary), expected) << "boundary " << boundary << "\n" << text;
    if (inHalves(damagedAfter(text, boundary), text, boundary) == expected) {
      taken.push_back(boundary);
    }
  }
  return taken;
}

// Just after the object that starts at `at` (strings without escapes).
std::size_t endOfObject(const std::string& text, std::size_t at) {
  int depth = 0;
  bool inString = false;
  for (; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '"') inString = !inString;
    if (inString) continue;
    if (c == '{') ++depth;
    if (c == '}' && --depth == 0) return at + 1;
  }
  return text.size();
}

// The offsets just after each user object of `text`, whose users are the
// objects that start with `{"userName"`.
std::vector<std::size_t> userEnds(const std::string& text) {
  std::vector<std::size_t> ends;
  for (std::size_t at = text.find("{\"userName\""); at != std::string::npos;
       at = text.find("{\"userName\"", at + 1)) {
    ends.push_back(endOfObject(text, at));
  }
  return ends;
}

// The same from the `first`-th user object on.
std::vector<std::size_t> userEndsFrom(const std::string& text, std::size_t first) {
  const std::vector<std::size_t> ends = userEnds(text);
  return {ends.begin() + static_cast<std::ptrdiff_t>(first), ends.end()};
}

std::string user(const std::string& name, const std::string& uuid, const std::string& more = "") {
  return "{\"userName\": \"" + name + "\", \"UUID\": \"" + uuid + "\"" + more + "}";
}

const std::string uuidA = "11111111-2222-4333-8444-555555555555";
const std::string uuidB = "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee";
const std::string uuidC = "01234567-89ab-4def-8123-456789abcdef";
const std::string uuidD = "fedcba98-7654-4321-8fed-cba987654321";
const std::string nullUuid = "00000000-0000-0000-0000-000000000000";

std::string users(const std::vector<std::string>& objects, const std::string& after = "") {
  std::string text =
      "{\"version\": 3, \"settings\": {\"nested\": [{}, {\"a\": [{}]}]},\n \"users\": [\n";
  for (std::size_t i = 0; i < objects.size(); ++i) {
    text += (i == 0 ? "  " : ",\n  ") + objects[i];
  }
  return text + "\n ]" + after + "}\n";
}

// User objects "user0", "user1", ..., with the UUIDs `uuidOf` gives, until
// users() of them is at least `size` bytes long.
template <typename UuidOf>
std::vector<std::string> usersOfAtLeast(std::size_t size, UuidOf uuidOf) {
  std::vector<std::string> objects;
  std::string text;
  for (int i = 0; text.size() < size; ++i) {
    objects.push_back(user("user" + std::to_string(i), uuidOf(i)));
    if (objects.size() % 1024 == 0) text = users(objects);
  }
  return objects;
}

TEST(SecondHalfSearchTest, TakesTheWorkersOutcomeAfterEachUserWhateverTheMatch) {
  const std::vector<std::string> texts = {
      users({user("bob", uuidB), user("alice", uuidA), user("carol", uuidC), user("dave", uuidD)}),
      users({user("alice", uuidA), user("bob", uuidB), user("carol", uuidC)}),
      users({user("bob", uuidB), user("carol", uuidC), user("alice", uuidA)}),
      // No match; two matches, one on each side; a null UUID.
      users({user("bob", uuidB), user("carol", uuidC), user("dave", uuidD)}),
      users({user("alice", uuidA), user("bob", uuidB), user("alice", uuidC)}),
      users({user("bob", uuidB), user("carol", uuidC), user("alice", nullUuid)}),
      // A second member named "users", after others.
      users({user("bob", uuidB), user("carol", uuidC)},
            ", \"other\": {\"x\": [{}, {}]}, \"users\": [" + user("alice", uuidA) + "]"),
  };
  for (const std::string& text : texts) {
    EXPECT_EQ(checkEveryBoundary(text), userEnds(text)) << text;
  }
}

TEST(SecondHalfSearchTest, AnErrorAfterTheBoundaryIsTheOnePasssOwn) {
  // Each text and what its error is found at.
  const std::vector<std::pair<std::string, std::string>> texts = {
      {users({user("bob", uuidB), user("carol", uuidC), user("dave", uuidD, ", \"x\": tru")}),
       "tru"},
      {users({user("bob", uuidB), user("alice", uuidA, ", \"userName\": \"al\"")}), "\"al\""},
      {users({user("bob", uuidB), user("alice", uuidA), user("carol", uuidC)}, ", \"x\": 1 2"),
       "1 2"},
      {users({user("bob", uuidB), user("carol", uuidC)}) + "x", "}\nx"},
  };
  for (const auto& [text, marker] : texts) {
    ASSERT_EQ(onePass(text).rfind("error \"users.json\", line ", 0), 0u) << onePass(text);
    // Never taken before the error: the pass reads on and finds it itself.
    // (Past the error, the damaged copy gives the same error.)
    const std::vector<std::size_t> taken = checkEveryBoundary(text);
    EXPECT_TRUE(taken.empty() || taken.front() > text.find(marker)) << text;
  }
}

TEST(SecondHalfSearchTest, AUuidTheWorkerMayHaveSeenIsCountedByThePass) {
  // The match comes first; the worker sees its UUID again.
  const std::string text =
      users({user("alice", uuidA), user("bob", uuidB), user("carol", uuidA), user("dave", uuidD)});
  EXPECT_EQ(onePass(text),
            "error there is more than one user with UUID " + uuidA + " in the file \"users.json\"");
  // Taken only once the duplicate is behind the boundary.
  EXPECT_EQ(checkEveryBoundary(text), userEndsFrom(text, 2));
}

TEST(SecondHalfSearchTest, ABoundaryInsideAValueIsNeverTaken) {
  const std::string text =
      users({user("bob", uuidB, ", \"notes\": \"}, {\", \"g\": [{\"a\": 1}, {}]"),
             user("alice", uuidA), user("carol", uuidC)});
  const std::vector<std::size_t> taken = checkEveryBoundary(text);
  EXPECT_EQ(taken, userEnds(text));
}

// The pass is told once that it reads on itself where the worker's outcome
// is dropped (the boundary inside a value, or a rest the worker cannot
// read), and never where the outcome is taken or the boundary never
// reached.
TEST(SecondHalfSearchTest, ThePassIsToldOnceWhenItReadsOnItself) {
  const std::string text = users({user("bob", uuidB, ", \"g\": [{\"a\": 1}, {}]"),
                                  user("alice", uuidA), user("carol", uuidC)});
  const std::vector<std::size_t> ends = userEnds(text);
  for (std::size_t boundary = 1; boundary <= text.size(); ++boundary) {
    if (text[boundary - 1] != '}') continue;
    for (const bool damaged : {false, true}) {
      const std::string rest = (damaged ? damagedAfter(text, boundary) : text).substr(boundary);
      SecondHalfSearch secondHalf(
          [rest](const std::atomic<bool>&) { return std::make_unique<MemoryInputStream>(rest, 5); },
          boundary, sought, path);
      MemoryInputStream stream(text, 7);
      int told = 0;
      EXPECT_EQ(outcomeOf(readUsers(stream, path, sought, &secondHalf, [&told] { ++told; })),
                "found " + uuidA);
      const bool userEnd = std::find(ends.begin(), ends.end(), boundary) != ends.end();
      const int expected = boundary > ends.back() ? 0 : userEnd ? (damaged ? 1 : 0) : 1;
      EXPECT_EQ(told, expected) << "boundary " << boundary << (damaged ? ", damaged" : "");
    }
  }
}

// Two different UUIDs whose fingerprints are equal, found among random
// ones (in about 80,000 draws).
std::pair<std::string, std::string> collidingUuids() {
  std::mt19937_64 random(42);
  std::unordered_map<std::uint32_t, utils::core::Uuid> seen;
  for (;;) {
    utils::core::Uuid::Bytes bytes{};
    for (std::size_t k = 0; k < bytes.size(); k += 8) {
      const std::uint64_t word = random();
      std::memcpy(bytes.data() + k, &word, sizeof word);
    }
    const utils::core::Uuid uuid(bytes);
    const auto [at, added] = seen.emplace(SecondHalfSearch::fingerprint(uuid), uuid);
    if (!added && !(at->second == uuid)) {
      return {std::string(at->second.toString().view()), std::string(uuid.toString().view())};
    }
  }
}

TEST(SecondHalfSearchTest, AFingerprintTheWorkerCannotTellApartIsCountedByThePass) {
  const auto [uuidX, uuidY] = collidingUuids();
  ASSERT_NE(uuidX, uuidY);
  // The match first, a UUID of the same fingerprint later: the worker
  // cannot tell whether it is a duplicate until it is behind the boundary.
  const std::string before =
      users({user("alice", uuidX), user("bob", uuidB), user("carol", uuidY), user("dave", uuidD)});
  EXPECT_EQ(onePass(before), "found " + uuidX);
  EXPECT_EQ(checkEveryBoundary(before), userEndsFrom(before, 2));
  // The same fingerprint before the match, both after the boundary.
  const std::string after =
      users({user("bob", uuidB), user("carol", uuidY), user("dave", uuidD), user("alice", uuidX)});
  EXPECT_EQ(onePass(after), "found " + uuidX);
  EXPECT_EQ(checkEveryBoundary(after), userEndsFrom(after, 1));
}

// Whitespace without end, until the stop flag is set; counts what it gave.
class EndlessWhitespace : public utils::io::InputStream<char> {
 public:
  // Ends the input after `limit` bytes, so that a worker that is never
  // stopped still ends.
  static constexpr std::size_t limit = std::size_t{256} << 20;

  EndlessWhitespace(const std::atomic<bool>& stop, std::atomic<std::size_t>& given)
      : stop_(stop), given_(given) {}

 protected:
  std::size_t readSome(std::span<char> into) override {
    if (stop_) throw std::runtime_error("stopped");
    if (given_ >= limit) return 0;
    std::fill(into.begin(), into.end(), ' ');
    given_ += into.size();
    return into.size();
  }

 private:
  const std::atomic<bool>& stop_;
  std::atomic<std::size_t>& given_;
};

TEST(SecondHalfSearchTest, TheWorkerStopsWhenThePassIsPastTheBoundaryOrDone) {
  for (const bool past : {true, false}) {
    std::atomic<std::size_t> given{0};
    {
      SecondHalfSearch secondHalf(
          [&given](const std::atomic<bool>& stop) {
            return std::make_unique<EndlessWhitespace>(stop, given);
          },
          100, sought, path);
      while (given == 0) std::this_thread::yield();
      if (past) {
        EXPECT_FALSE(secondHalf.reachedBy(101));
      }
    }
    EXPECT_LT(given, EndlessWhitespace::limit);
  }
}

TEST(SecondHalfSearchTest, ALargeFilesSecondHalfIsReadFromTheFile) {
  korvane::testing::TemporaryDirectory directory;
  for (const bool matchAfter : {true, false}) {
    // Some room above the least size, for the changes below.
    std::vector<std::string> objects = usersOfAtLeast(
        SecondHalfSearch::minimumFileSize + 4096,
        [](int i) { return uuidB.substr(0, 24) + std::to_string(100000000000 + i); });
    objects[matchAfter ? objects.size() * 3 / 4 : objects.size() / 4] = user("alice", uuidA);
    const std::string text = "\xEF\xBB\xBF" + users(objects);
    const auto large = directory.path() / "large.json";
    korvane::testing::writeFile(large, text);
    if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "one thread at a time here";
    const utils::io::File file(large, utils::io::File::Access::read);
    const auto secondHalf = SecondHalfSearch::startFor(file, sought, large);
    ASSERT_NE(secondHalf, nullptr);
    // Taken: the pass would find no such text after the boundary.
    MemoryInputStream stream(damagedAfter(text, secondHalf->boundary()));
    EXPECT_EQ(outcomeOf(readUsers(stream, path, sought, secondHalf.get())), "found " + uuidA);
    EXPECT_EQ(findUser(large, sought), *utils::core::Uuid::fromString(uuidA));
  }
}

TEST(SecondHalfSearchTest, FindsTheFirstPlaceBetweenTwoObjects) {
  EXPECT_EQ(SecondHalfSearch::findBoundary("ab}, {"), 3u);
  EXPECT_EQ(SecondHalfSearch::findBoundary("} ]}, \n {\"a\": 1},{}"), 4u);
  EXPECT_EQ(SecondHalfSearch::findBoundary("}\t,\r\n{"), 1u);
  EXPECT_EQ(SecondHalfSearch::findBoundary("} ] , {"), std::nullopt);
  EXPECT_EQ(SecondHalfSearch::findBoundary("}, "), std::nullopt);
  EXPECT_EQ(SecondHalfSearch::findBoundary("}, ["), std::nullopt);
  EXPECT_EQ(SecondHalfSearch::findBoundary(""), std::nullopt);
}

TEST(SecondHalfSearchTest, StartsOnlyForALargeFile) {
  korvane::testing::TemporaryDirectory directory;
  const auto small = directory.path() / "small.json";
  korvane::testing::writeFile(small, users({user("alice", uuidA), user("bob", uuidB)}));
  EXPECT_EQ(SecondHalfSearch::startFor(utils::io::File(small, utils::io::File::Access::read),
                                       sought, small),
            nullptr);

  const std::string text =
      users(usersOfAtLeast(SecondHalfSearch::minimumFileSize, [](int) { return uuidB; }));
  const auto large = directory.path() / "large.json";
  korvane::testing::writeFile(large, text);
  if (std::thread::hardware_concurrency() < 2) GTEST_SKIP() << "one thread at a time here";
  const utils::io::File file(large, utils::io::File::Access::read);
  const auto secondHalf = SecondHalfSearch::startFor(file, sought, large);
  ASSERT_NE(secondHalf, nullptr);
  // Just after a user object past the middle.
  const std::uint64_t boundary = secondHalf->boundary();
  EXPECT_GE(boundary, text.size() / 2);
  EXPECT_LT(boundary, text.size() / 2 + SecondHalfSearch::boundaryWindow);
  EXPECT_EQ(text.substr(boundary - 2, 5), "\"},\n ");
}

}  // namespace
}  // namespace korvane::setUserPassword
