#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "utils/core/SecureString.h"

namespace korvane::utils::core {
namespace {

// What the allocator under ZeroingAllocator saw when blocks came back.
struct Released {
  static std::vector<std::string>& blocks() {
    static std::vector<std::string> released;
    return released;
  }
};

template <typename T>
struct RecordingAllocator {
  using value_type = T;
  RecordingAllocator() = default;
  template <typename U>
  RecordingAllocator(const RecordingAllocator<U>&) {}  // NOLINT
  T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* block, std::size_t count) {
    Released::blocks().emplace_back(reinterpret_cast<const char*>(block), count * sizeof(T));
    std::allocator<T>().deallocate(block, count);
  }
  friend bool operator==(const RecordingAllocator&, const RecordingAllocator&) { return true; }
};

using TestString = BasicSecureString<ZeroingAllocator<char, RecordingAllocator<char>>>;

bool allZero(std::string_view bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](char c) { return c == 0; });
}

bool contains(const void* object, std::size_t size, std::string_view text) {
  const std::string_view bytes(static_cast<const char*>(object), size);
  return bytes.find(text) != std::string_view::npos;
}

const std::string longSecret = "a long secret that cannot live in the short buffer";

TEST(SecureStringTest, BehavesAsAString) {
  SecureString text("abc");
  text.push_back('d');
  text.append("ef");
  EXPECT_EQ(text.view(), "abcdef");
  EXPECT_EQ(text.size(), 6u);
  EXPECT_STREQ(text.c_str(), "abcdef");
  EXPECT_TRUE(text == SecureString("abcdef"));
  EXPECT_FALSE(text == SecureString("abcdeF"));
  EXPECT_FALSE(text == SecureString("abcde"));
}

TEST(SecureStringTest, ReleasedBlocksAreZeroedWithTheirTerminator) {
  Released::blocks().clear();
  {
    TestString text(longSecret);
    for (int i = 0; i < 200; ++i) text.push_back('x');  // grows: old blocks go back
    text.wipe();
    text.append(longSecret);
  }  // destruction releases the last block
  ASSERT_GE(Released::blocks().size(), 3u);
  for (const std::string& block : Released::blocks()) {
    EXPECT_TRUE(allZero(block)) << block.size();
  }
  // Blocks are capacity + 1 bytes: the terminator's byte is zeroed too.
  EXPECT_EQ(Released::blocks().front().size(), longSecret.size() + 1);
}

TEST(SecureStringTest, WipeZeroesTheObjectItselfAndLeavesItEmpty) {
  SecureString text("short-secret");  // fits the in-object buffer
  ASSERT_TRUE(contains(&text.storage(), sizeof(text.storage()), "short-secret"));
  text.wipe();
  EXPECT_TRUE(text.empty());
  EXPECT_FALSE(contains(&text.storage(), sizeof(text.storage()), "short"));
  text.append("usable again");
  EXPECT_EQ(text.view(), "usable again");
}

TEST(SecureStringTest, MovingWipesTheSource) {
  SecureString source("short-secret");
  SecureString target(std::move(source));
  EXPECT_EQ(target.view(), "short-secret");
  EXPECT_TRUE(source.empty());  // NOLINT: the moved-from state is defined
  EXPECT_FALSE(contains(&source.storage(), sizeof(source.storage()), "short"));
  SecureString other("other-secret");
  other = std::move(target);
  EXPECT_EQ(other.view(), "short-secret");
  EXPECT_FALSE(contains(&target.storage(), sizeof(target.storage()), "short"));  // NOLINT
}

}  // namespace
}  // namespace korvane::utils::core
