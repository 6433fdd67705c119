#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <random>
#include <string_view>

#include "security/SeededDraw.h"
#include "utils/core/ProcessorFeatures.h"

namespace korvane::security {
namespace {

// What the standard library draws for the same seed and range.
int libraryDraw(std::uint32_t seed, int highest) {
  std::mt19937 engine(seed);
  std::uniform_int_distribution<int> index(0, highest);
  return index(engine);
}

TEST(SeededDrawTest, TheDefaultSeedGivesTheTwisterFirstOutputScaledToTheRange) {
  // 3499211612 is the first output of a std::mt19937 seeded with 5489.
  // libstdc++ (the library of every toolchain here) maps a 32-bit output x
  // to 0..61 as the high word of x * 62, drawing again while the low word
  // is below 2^32 mod 62, which it is not here.
  constexpr std::uint64_t first = 3499211612U;
  constexpr std::uint64_t product = first * 62U;
  static_assert((product & 0xffffffffU) >= 4U);
  for (const SeededDrawImplementation& implementation : seededDrawImplementations()) {
    EXPECT_EQ(implementation.draw(5489U, 61), static_cast<int>(product >> 32))
        << implementation.name;
  }
}

TEST(SeededDrawTest, EveryImplementationDrawsWhatTheStandardLibraryDraws) {
  constexpr int ranges[] = {0, 1, 61, 1000, INT_MAX};
  for (const SeededDrawImplementation& implementation : seededDrawImplementations()) {
    for (const int highest : ranges) {
      for (std::uint32_t seed = 0; seed < 3000; ++seed) {
        ASSERT_EQ(implementation.draw(seed, highest), libraryDraw(seed, highest))
            << implementation.name << " seed " << seed << " highest " << highest;
      }
      const std::uint32_t spread = 0x9e3779b9U * 977U;
      for (std::uint32_t seed = UINT32_MAX; seed > UINT32_MAX - 1000; --seed) {
        ASSERT_EQ(implementation.draw(seed * spread, highest), libraryDraw(seed * spread, highest))
            << implementation.name << " seed " << seed * spread << " highest " << highest;
      }
    }
  }
}

TEST(SeededDrawTest, TheBestImplementationIsUsedAndThePortableOneIsLast) {
  const auto implementations = seededDrawImplementations();
  ASSERT_GE(implementations.size(), 1U);
  EXPECT_EQ(std::string_view(implementations.back().name), "portable");
  EXPECT_EQ(&seededDrawImplementation(), &implementations.front());
  const utils::core::ProcessorFeatures& processor = utils::core::processorFeatures();
  if (processor.avx2 && processor.bmi2) {
    ASSERT_EQ(implementations.size(), 2U);
    EXPECT_EQ(std::string_view(implementations.front().name), "avx2");
    // Two variants in name only would pass every comparison above.
    EXPECT_NE(implementations.front().draw, implementations.back().draw);
  }
  for (std::uint32_t seed = 0; seed < 200; ++seed) {
    EXPECT_EQ(seededDraw(seed, 61), libraryDraw(seed, 61)) << seed;
  }
}

}  // namespace
}  // namespace korvane::security
