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
  // 3499211612 is the first output of a std::mt19937 seeded with 5489. An
  // index in 0 to 61 is the high word of that output times 62, unless the
  // low word falls below 2^32 mod 62 (it does not here).
  constexpr std::uint64_t first = 3499211612U;
  constexpr std::uint64_t product = first * 62U;
  ASSERT_GE(product & 0xffffffffU, 4U);
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
  const utils::core::ProcessorFeatures& processor = utils::core::processorFeatures();
  if (processor.avx2 && processor.bmi2) {
    EXPECT_EQ(std::string_view(implementations.front().name), "avx2");
  }
  for (std::uint32_t seed = 0; seed < 200; ++seed) {
    EXPECT_EQ(seededDraw(seed, 61), implementations.front().draw(seed, 61));
  }
}

}  // namespace
}  // namespace korvane::security
