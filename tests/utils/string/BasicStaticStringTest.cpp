#include <gtest/gtest.h>

#include <string>

#include "utils/string/BasicFixedString.h"
#include "utils/string/BasicStaticString.h"

namespace korvane::utils::string {
namespace {

TEST(BasicStaticStringTest, StartsEmptyAndTerminated) {
  const BasicStaticString<char, 8> text;
  EXPECT_TRUE(text.empty());
  EXPECT_EQ(text.size(), 0u);
  EXPECT_STREQ(text.c_str(), "");
  EXPECT_EQ(text.capacity(), 8u);
}

TEST(BasicStaticStringTest, HoldsUpToCapacity) {
  BasicStaticString<char, 8> text("12345678");
  EXPECT_EQ(text.view(), "12345678");
  EXPECT_EQ(text.c_str()[8], '\0');
  text.assign("abc");
  EXPECT_EQ(text.view(), "abc");
  EXPECT_EQ(text, std::string_view("abc"));
}

TEST(BasicStaticStringTest, SetLengthWritesTerminator) {
  BasicStaticString<char, 8> text("abcdefgh");
  text.setLength(3);
  EXPECT_EQ(text.view(), "abc");
  EXPECT_EQ(text.data()[3], '\0');
}

TEST(BasicStaticStringTest, LengthAboveCapacityIsRefusedWithExactText) {
  BasicStaticString<char, 124> text;
  try {
    text.setLength(125);
    FAIL() << "no error";
  } catch (const std::length_error& error) {
    EXPECT_STREQ(error.what(),
                 "korvane::utils::string::BasicStaticString: size of 125 exceeds capacity of 124");
  }
  EXPECT_TRUE(text.empty());
  EXPECT_THROW(text.assign(std::string(125, 'x')), std::length_error);
  EXPECT_NO_THROW(text.assign(std::string(124, 'x')));
  EXPECT_EQ(text.size(), 124u);
}

TEST(BasicStaticStringTest, KeepsEmbeddedNul) {
  const BasicStaticString<char, 8> text(std::string_view("a\0b", 3));
  EXPECT_EQ(text.size(), 3u);
  EXPECT_EQ(text.view(), std::string_view("a\0b", 3));
}

TEST(BasicStaticStringTest, LivesWithoutHeap) {
  // The characters are part of the object itself.
  EXPECT_GE(sizeof(BasicStaticString<char, 124>), 125u);
}

TEST(BasicFixedStringTest, AlwaysFullLength) {
  BasicFixedString<char, 4> text;
  EXPECT_EQ(text.size(), 4u);
  text.data()[0] = 'a';
  text.data()[1] = 'b';
  text.data()[2] = 'c';
  text.data()[3] = 'd';
  EXPECT_EQ(text.view(), "abcd");
  EXPECT_STREQ(text.c_str(), "abcd");
  EXPECT_EQ(text.str(), "abcd");
}

}  // namespace
}  // namespace korvane::utils::string
