// A process that replaces a large password file again and again is killed
// (SIGKILL) at random moments. Whenever it dies, the password file must be
// whole: it parses, and it is either the last version known to be written
// or the one after it, never a mixture or a truncated file. Temporary files
// of the interrupted replacement may remain beside it.
#include <gtest/gtest.h>
#include <signal.h>

#include <charconv>
#include <chrono>
#include <iostream>
#include <random>
#include <string>
#include <thread>

#include "tests/hardening/Installation.h"
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

// The generation the whole file holds; fails the test when the file is not
// one complete version.
unsigned long checkWhole(const std::filesystem::path& path) {
  setUserPassword::PasswordFile file(path);
  file.read();
  const auto& entries = file.entries();
  EXPECT_EQ(entries.size(), static_cast<std::size_t>(entryCount) + 1);
  if (entries.size() != static_cast<std::size_t>(entryCount) + 1) return 0;
  const std::string_view first = entries[1].value();
  EXPECT_EQ(entries.back().value(), first) << "first and last entries from different versions";
  for (int i = 1; i + 1 < entryCount; ++i) {
    const auto& entry = entries[static_cast<std::size_t>(i) + 1];
    if (entry.name() != entryUuid(i) || entry.value() != middleValue(i)) {
      ADD_FAILURE() << "entry " << i << " changed: " << entry.name() << " " << entry.value();
      return 0;
    }
  }
  unsigned long generation = 0;
  std::from_chars(first.data() + 11, first.data() + first.size(), generation);
  return generation;
}

// The file's bytes for `generation`, made from a file written for another
// generation (the encoder writes the same text around the two values).
std::string textFor(std::string text, unsigned long from, unsigned long generation) {
  const std::string old = utils::core::format("\"generation {}\"", from);
  const std::string replacement = utils::core::format("\"generation {}\"", generation);
  for (int count = 0; count < 2; ++count) {
    const std::size_t at = count == 0 ? text.find(old) : text.rfind(old);
    if (at == std::string::npos) return "";
    text.replace(at, old.size(), replacement);
  }
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
  unsigned long known = checkWhole(path);
  ASSERT_GE(known, 2u);
  const std::string pattern = testing::readFile(path);
  const unsigned long patternGeneration = known;

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
    const unsigned long reported = lastReported(result.out, known);
    // Byte for byte the last reported version or the one after it, which
    // may be in place already; now and then also read as the program does.
    const std::string text = testing::readFile(path);
    unsigned long found = 0;
    if (text == textFor(pattern, patternGeneration, reported)) {
      found = reported;
    } else if (text == textFor(pattern, patternGeneration, reported + 1)) {
      found = reported + 1;
    } else {
      FAIL() << "after kill " << iterations << " the file is neither generation " << reported
             << " nor the next (" << text.size() << " bytes)";
    }
    if (iterations % 20 == 0) {
      EXPECT_EQ(checkWhole(path), found);
      ASSERT_FALSE(::testing::Test::HasFailure()) << "after kill " << iterations;
    }
    if (found > known) ++advanced;
    known = found;
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
