#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "setUserPassword/UuidCounts.h"

namespace korvane::setUserPassword {
namespace {

using utils::core::Uuid;

Uuid numbered(std::uint8_t high, std::uint8_t low) {
  Uuid::Bytes bytes{};
  bytes[0] = high;
  bytes[15] = low;
  return Uuid(bytes);
}

// Chooses pool[chosen] after `before` additions, out of `total`; the count
// must be the plain number of occurrences.
void expectCountLikeAScan(std::size_t total, std::size_t before, std::size_t chosen) {
  std::vector<Uuid> pool;
  for (int i = 0; i < 300; ++i) pool.push_back(Uuid::create());
  pool.push_back(Uuid());
  std::vector<Uuid> added;
  for (std::size_t i = 0; i < total; ++i) added.push_back(pool[(i * 7919) % pool.size()]);
  UuidCounts counts;
  for (std::size_t i = 0; i < before; ++i) counts.add(added[i]);
  counts.choose(pool[chosen]);
  for (std::size_t i = before; i < total; ++i) counts.add(added[i]);
  std::uint64_t expected = 0;
  for (const Uuid& uuid : added) expected += uuid == pool[chosen] ? 1 : 0;
  EXPECT_EQ(counts.count(), expected) << total << " " << before << " " << chosen;
}

TEST(UuidCountsTest, CountsTheChosenUuidBeforeAndAfterTheChoice) {
  // Block boundaries (4096 UUIDs a block) on either side of the choice.
  for (const std::size_t before : {0u, 1u, 4095u, 4096u, 4097u, 9000u, 20000u}) {
    for (const std::size_t chosen : {0u, 17u, 300u}) expectCountLikeAScan(20000, before, chosen);
  }
}

TEST(UuidCountsTest, NothingAddedCountsZero) {
  UuidCounts counts;
  counts.choose(Uuid::create());
  EXPECT_EQ(counts.count(), 0u);
  counts.add(Uuid::create());
  EXPECT_EQ(counts.count(), 0u);
}

TEST(UuidCountsTest, EveryByteCounts) {
  for (std::uint8_t differing = 0; differing < 16; ++differing) {
    Uuid::Bytes bytes{};
    bytes[differing] = 1;
    UuidCounts counts;
    counts.add(Uuid(bytes));
    counts.add(Uuid());
    counts.choose(Uuid());
    counts.add(Uuid(bytes));
    EXPECT_EQ(counts.count(), 1u) << int{differing};
  }
  UuidCounts counts;
  counts.add(numbered(1, 2));
  counts.add(numbered(2, 1));
  counts.choose(numbered(1, 2));
  counts.add(numbered(1, 2));
  EXPECT_EQ(counts.count(), 2u);
}

}  // namespace
}  // namespace korvane::setUserPassword
