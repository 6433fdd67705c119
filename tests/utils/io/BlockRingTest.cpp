#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <cstring>
#include <exception>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "utils/io/BlockRing.h"

namespace korvane::utils::io {
namespace {

// The bytes of block number `index`: its own length and pattern, so that a
// block taken out of order, twice or torn shows.
std::string blockContent(std::size_t index, std::size_t blockSize) {
  const std::size_t size = 1 + (index * 37) % blockSize;
  std::string content(size, '\0');
  for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>((index * 131 + i) % 251);
  return content;
}

// Passes `blockCount` blocks from a producer thread to this thread through
// a ring of `ringSize` blocks; returns the blocks in the order received.
std::vector<std::string> passThrough(std::size_t ringSize, std::size_t blockSize,
                                     std::size_t blockCount) {
  BlockRing ring(ringSize, blockSize);
  std::thread producer([&] {
    for (std::size_t index = 0; index < blockCount; ++index) {
      BlockRing::Block* block = ring.nextEmpty();
      if (block == nullptr) return;
      const std::string content = blockContent(index, blockSize);
      std::memcpy(block->space.data(), content.data(), content.size());
      block->size = content.size();
      block->last = index + 1 == blockCount;
      ring.publish();
    }
  });
  std::vector<std::string> received;
  for (;;) {
    BlockRing::Block* block = ring.nextFilled();
    if (block == nullptr) break;
    received.emplace_back(block->space.data(), block->size);
    const bool last = block->last;
    ring.release();
    if (last) break;
  }
  producer.join();
  return received;
}

TEST(BlockRingTest, EveryBlockArrivesOnceAndInOrderWhateverTheRingsSize) {
  constexpr std::size_t blockSize = 64;
  constexpr std::size_t blockCount = 2000;
  for (const std::size_t ringSize : {1u, 2u, 3u, 8u}) {
    SCOPED_TRACE(ringSize);
    const std::vector<std::string> received = passThrough(ringSize, blockSize, blockCount);
    ASSERT_EQ(received.size(), blockCount);
    for (std::size_t index = 0; index < blockCount; ++index) {
      ASSERT_EQ(received[index], blockContent(index, blockSize)) << "block " << index;
    }
  }
}

TEST(BlockRingTest, AFreshBlockIsEmptiedOfWhatItHeldBefore) {
  BlockRing ring(1, 16);
  BlockRing::Block* block = ring.nextEmpty();
  block->size = 5;
  block->last = true;
  block->failure = std::make_exception_ptr(std::runtime_error("failed"));
  ring.publish();
  ASSERT_EQ(ring.nextFilled(), block);
  ring.release();
  BlockRing::Block* again = ring.nextEmpty();
  ASSERT_EQ(again, block);
  EXPECT_EQ(again->size, 0u);
  EXPECT_FALSE(again->last);
  EXPECT_FALSE(again->failure);
  EXPECT_EQ(again->space.size(), 16u);
}

TEST(BlockRingTest, ClosingWakesAWaitingConsumer) {
  BlockRing ring(2, 16);
  BlockRing::Block unset;
  BlockRing::Block* seen = &unset;
  std::thread consumer([&] { seen = ring.nextFilled(); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ring.close();
  consumer.join();
  EXPECT_EQ(seen, nullptr);
  EXPECT_EQ(ring.nextEmpty(), nullptr);
}

TEST(BlockRingTest, ClosingWakesAProducerWaitingForAFullRing) {
  BlockRing ring(2, 16);
  for (int i = 0; i < 2; ++i) {
    ASSERT_NE(ring.nextEmpty(), nullptr);
    ring.publish();
  }
  BlockRing::Block* seen = nullptr;
  bool returned = false;
  std::thread producer([&] {
    seen = ring.nextEmpty();
    returned = true;
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ring.close();
  producer.join();
  EXPECT_TRUE(returned);
  EXPECT_EQ(seen, nullptr);
  EXPECT_EQ(ring.nextFilled(), nullptr);
}

TEST(BlockRingTest, AWaitingProducerGetsTheBlockTheConsumerGivesBack) {
  BlockRing ring(1, 16);
  BlockRing::Block* first = ring.nextEmpty();
  ring.publish();
  BlockRing::Block* second = nullptr;
  std::thread producer([&] { second = ring.nextEmpty(); });
  ASSERT_EQ(ring.nextFilled(), first);
  ring.release();
  producer.join();
  EXPECT_EQ(second, first);
}

}  // namespace
}  // namespace korvane::utils::io
