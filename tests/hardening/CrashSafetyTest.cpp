// A process that replaces a large password file again and again is killed
// (SIGKILL) at random moments. Whenever it dies, the password file must be
// whole: it parses, and it is byte for byte the last version known to be
// written or what the replacements after it make (each round of the
// rewriter replaces the file twice, see PasswordFileRewriter.cpp), never a
// mixture or a truncated file. Temporary files of the interrupted
// replacement may remain beside it.
#include <gtest/gtest.h>
#include <signal.h>

#include <charconv>
#include <chrono>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/hardening/Installation.h"
#include "tests/support/PasswordFileReference.h"
#include "utils/core/Format.h"

namespace korvane::hardening {
namespace {

using Clock = std::chrono::steady_clock;
using testing::ChildProcess;

// Large enough that a replacement takes a while; unoptimised builds read and
// write so much more slowly that a smaller file keeps the kills many.
#if defined(NDEBUG)
constexpr int entryCount = 100000;
#else
constexpr int entryCount = 5000;
#endif
constexpr int maxIterations = 200;
constexpr int minIterations = 10;
constexpr auto timeBudget = std::chrono::seconds(20);

std::string entryUuid(int index) {
  return utils::core::format("{:08x}-2222-4333-8444-{:012x}", index, index * 31);
}

std::string middleValue(int index) {
  return utils::core::format("$6$salt{:06}${:0>86}", index, index);
}

std::string generationValue(unsigned long generation) {
  return "generation " + std::to_string(generation);
}

void writeInitialFile(const std::filesystem::path& path) {
  std::string text = "{\n  \"$schema\": \"x\"";
  text.reserve(static_cast<std::size_t>(entryCount) * 130);
  for (int i = 0; i < entryCount; ++i) {
    const bool edge = i == 0 || i == entryCount - 1;
    text += utils::core::format(",\n  \"{}\": \"{}\"", entryUuid(i),
                                edge ? generationValue(0) : middleValue(i));
  }
  text += "\n}\n";
  testing::writeFile(path, text);
}

// The generations of the file's first and last entries.
struct Generations {
  unsigned long first = 0;
  unsigned long last = 0;

  friend bool operator==(const Generations&, const Generations&) = default;
};

unsigned long generationIn(std::string_view value) {
  unsigned long generation = 0;
  if (value.starts_with("generation ")) {
    std::from_chars(value.data() + 11, value.data() + value.size(), generation);
  }
  return generation;
}

// The generations the whole file holds; fails the test when the file is
// not one complete version.
Generations checkWhole(const std::filesystem::path& path) {
  const testing::PasswordMembers members = testing::readPasswordFile(path);
  EXPECT_EQ(members.size(), static_cast<std::size_t>(entryCount) + 1);
  if (members.size() != static_cast<std::size_t>(entryCount) + 1) return {};
  for (int i = 1; i + 1 < entryCount; ++i) {
    const auto& member = members[static_cast<std::size_t>(i) + 1];
    if (member.name != entryUuid(i) || member.value != middleValue(i)) {
      ADD_FAILURE() << "entry " << i << " changed: " << member.name << " " << member.value;
      return {};
    }
  }
  const Generations found{generationIn(members[1].value), generationIn(members.back().value)};
  EXPECT_TRUE(found.first == found.last || found.first == found.last + 1)
      << "first and last entries from unrelated versions: " << members[1].value << ", "
      << members.back().value;
  return found;
}

// The file's bytes for `generations`, made from a file written for `from`
// (the encoder writes the same text around the two values).
std::string textFor(std::string text, Generations from, Generations generations) {
  const auto replace = [&](bool first, unsigned long old, unsigned long generation) {
    const std::string quoted = utils::core::format("\"generation {}\"", old);
    const std::size_t at = first ? text.find(quoted) : text.rfind(quoted);
    if (at == std::string::npos) return false;
    text.replace(at, quoted.size(), utils::core::format("\"generation {}\"", generation));
    return true;
  };
  if (!replace(true, from.first, generations.first)) return "";
  if (!replace(false, from.last, generations.last)) return "";
  return text;
}

unsigned long lastReported(const std::string& output, unsigned long known) {
  const std::size_t at = output.rfind("wrote ");
  if (at == std::string::npos) return known;
  unsigned long generation = known;
  std::from_chars(output.data() + at + 6, output.data() + output.size(), generation);
  return generation;
}

TEST(CrashSafetyTest, KilledReplacementLeavesOldOrNewFile) {
  testing::TemporaryDirectory directory;
  const auto path = directory.path() / "passwords.json";
  writeInitialFile(path);

  // One undisturbed round tells how long a replacement takes.
  auto cycle = std::chrono::milliseconds(0);
  {
    ChildProcess::Options options;
    options.arguments = {path.string()};
    ChildProcess calibration(KORVANE_REWRITER_PROGRAM, std::move(options));
    ASSERT_TRUE(calibration.expect("ready\n", std::chrono::seconds(60)));
    ASSERT_TRUE(calibration.expect("wrote 1\n", std::chrono::seconds(60)));
    const auto start = Clock::now();
    ASSERT_TRUE(calibration.expect("wrote 2\n", std::chrono::seconds(60)));
    cycle = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    calibration.signal(SIGKILL);
    calibration.wait();
  }
  Generations known = checkWhole(path);
  ASSERT_GE(known.first, 2u);
  const std::string pattern = testing::readFile(path);
  const Generations patternGenerations = known;

  std::mt19937 random(20240611);
  std::uniform_int_distribution<long> delay(0, std::max<long>(1, cycle.count() * 3 / 2));
  const auto deadline = Clock::now() + timeBudget;
  int iterations = 0;
  int torn = 0;
  int advanced = 0;
  // At least a few kills however slow the machine; more while time is left.
  while (iterations < maxIterations && (iterations < minIterations || Clock::now() < deadline)) {
    ++iterations;
    ChildProcess::Options options;
    options.arguments = {path.string()};
    ChildProcess rewriter(KORVANE_REWRITER_PROGRAM, std::move(options));
    ASSERT_TRUE(rewriter.expect("ready\n", std::chrono::seconds(60)));
    std::this_thread::sleep_for(std::chrono::milliseconds(delay(random)));
    rewriter.signal(SIGKILL);
    const auto result = rewriter.wait();
    ASSERT_EQ(result.signal, SIGKILL) << result.err;
    // Byte for byte the last version reported (or, without a report, the
    // one before the run), or what the next replacements make, which may be
    // in place already; now and then also decoded whole. A round cut short
    // is finished first (one replacement), a whole one takes two.
    const unsigned long reported = lastReported(result.out, 0);
    const Generations base = reported != 0 ? Generations{reported, reported} : known;
    std::vector<Generations> candidates{base};
    if (base.first != base.last) {
      candidates.push_back({base.first, base.first});
    } else {
      candidates.push_back({base.first + 1, base.last});
      candidates.push_back({base.first + 1, base.first + 1});
    }
    const std::string text = testing::readFile(path);
    std::optional<Generations> found;
    for (const Generations& candidate : candidates) {
      if (text == textFor(pattern, patternGenerations, candidate)) found = candidate;
    }
    if (!found) {
      FAIL() << "after kill " << iterations << " the file is neither generation " << base.first
             << "/" << base.last << " nor what the next replacements make (" << text.size()
             << " bytes)";
    }
    if (iterations % 20 == 0) {
      EXPECT_TRUE(checkWhole(path) == *found);
      ASSERT_FALSE(::testing::Test::HasFailure()) << "after kill " << iterations;
    }
    if (!(*found == known)) ++advanced;
    known = *found;
    for (const auto& entry : std::filesystem::directory_iterator(directory.path())) {
      if (entry.path() != path) {
        ++torn;
        std::filesystem::remove(entry.path());
      }
    }
  }
  std::cout << "crash safety: " << iterations << " kills of a " << entryCount
            << "-entry replacement (one round " << cycle.count() << " ms), " << advanced
            << " after a completed replacement, " << torn << " temporary files left behind"
            << std::endl;
  ::testing::Test::RecordProperty("killIterations", iterations);
}

}  // namespace
}  // namespace korvane::hardening
