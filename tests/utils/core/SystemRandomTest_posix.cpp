#include <gtest/gtest.h>

#include <random>

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {
namespace {

// The kernel's source, not the processor's: the standard library's default
// on x86 would probe the processor for every device made.
TEST(SystemRandomPosixTest, TheTokenNamesTheKernelsSource) {
  EXPECT_EQ(randomDeviceToken(), "getentropy");
  std::random_device device(randomDeviceToken());
  EXPECT_EQ(device.entropy(), 32.0);
}

}  // namespace
}  // namespace korvane::utils::core
