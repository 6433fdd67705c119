#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "setUserPassword/PasswordStrength.h"

namespace korvane::setUserPassword {
namespace {

TEST(TestPasswordStrengthTest, EmptyIsZeroBits) { EXPECT_EQ(estimatePasswordEntropy(""), 0.0); }

TEST(TestPasswordStrengthTest, LengthTimesTheBitsOfTheClassesUsed) {
  EXPECT_DOUBLE_EQ(estimatePasswordEntropy("abc"), 3 * std::log2(26.0));
  EXPECT_DOUBLE_EQ(estimatePasswordEntropy("ABC"), 3 * std::log2(26.0));
  EXPECT_DOUBLE_EQ(estimatePasswordEntropy("123"), 3 * std::log2(10.0));
  EXPECT_DOUBLE_EQ(estimatePasswordEntropy("-- "), 3 * std::log2(33.0));
  EXPECT_DOUBLE_EQ(estimatePasswordEntropy("aB1"), 3 * std::log2(62.0));
  EXPECT_DOUBLE_EQ(estimatePasswordEntropy("aB1-"), 4 * std::log2(95.0));
  EXPECT_DOUBLE_EQ(estimatePasswordEntropy("\xc3\xa9"), 2 * std::log2(33.0));
}

TEST(TestPasswordStrengthTest, ThePasswordsOfTheEndToEndRuns) {
  EXPECT_FALSE(isStrongEnough(estimatePasswordEntropy("abc")));
  EXPECT_FALSE(isStrongEnough(estimatePasswordEntropy("password")));
  EXPECT_TRUE(isStrongEnough(estimatePasswordEntropy("Tangerine-Kettle-Orbit-47")));
  EXPECT_TRUE(isStrongEnough(estimatePasswordEntropy("Tangerine-Kettle-Orbit-47x")));
}

TEST(TestPasswordStrengthTest, SameBytesSameValue) {
  const std::string password = "Lantern-Quill-82";
  EXPECT_EQ(estimatePasswordEntropy(password.c_str()),
            estimatePasswordEntropy(std::string(password).c_str()));
}

}  // namespace
}  // namespace korvane::setUserPassword
