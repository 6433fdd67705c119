#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <random>
#include <set>

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {
namespace {

TEST(SystemRandomTest, TheRandomDeviceOfTheTokenDraws) {
  std::random_device device(randomDeviceToken());
  std::set<unsigned> values;
  for (int i = 0; i < 8; ++i) values.insert(device());
  EXPECT_GT(values.size(), 1u);
}

TEST(SystemRandomTest, FillsEveryByte) {
  std::array<std::byte, 64> bytes{};
  fillSystemRandom(bytes);
  std::array<std::byte, 64> again{};
  fillSystemRandom(again);
  EXPECT_NE(bytes, again);
}

}  // namespace
}  // namespace korvane::utils::core
