#include <gtest/gtest.h>

#include <string>
#include <string_view>

#include "utils/core/Format.h"

namespace korvane::utils::core {
namespace {

TEST(FormattingTest, EveryKindOfArgumentIsFormattedByTheOneEngine) {
  const std::string name = "alice";
  EXPECT_EQ(format("user \"{}\" has {} roles", name, 2), "user \"alice\" has 2 roles");
  EXPECT_EQ(format("{:.2f} bits, {:>4}|{:<3}|", 59.125, 'x', std::string_view("ab")),
            "59.12 bits,    x|ab |");
  EXPECT_EQ(format("{:#x} {}", 255U, -7LL), "0xff -7");
  EXPECT_EQ(format("no fields"), "no fields");
}

TEST(FormattingTest, TextWithBracesAndNulBytesPassesThrough) {
  EXPECT_EQ(format("{{{}}}", 1), "{1}");
  const std::string withNul("a\0b", 3);
  EXPECT_EQ(format("[{}]", withNul), std::string("[a\0b]", 5));
}

TEST(FormattingTest, ARuntimeFormatThatDoesNotFitThrows) {
  EXPECT_EQ(formatRuntime("{}-{}", 1, "two"), "1-two");
  EXPECT_THROW((void)formatRuntime("{}-{}", 1), FormatError);
  EXPECT_THROW((void)formatRuntime("{", 1), FormatError);
  EXPECT_THROW((void)formatRuntime("{:d}", "text"), FormatError);
}

}  // namespace
}  // namespace korvane::utils::core
