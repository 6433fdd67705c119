#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <random>
#include <set>

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {
namespace {

// The kernel's source, not the processor's: the standard library's default
// on x86 would probe the processor for every device made.
TEST(SystemRandomTest, TheRandomDeviceReadsTheKernelsSource) {
  EXPECT_EQ(randomDeviceToken(), "/dev/urandom");
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
