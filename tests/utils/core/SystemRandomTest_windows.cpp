#include <gtest/gtest.h>

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {
namespace {

// The standard library's default device is the system's source here.
TEST(SystemRandomWindowsTest, TheTokenIsTheDefault) { EXPECT_EQ(randomDeviceToken(), "default"); }

}  // namespace
}  // namespace korvane::utils::core
