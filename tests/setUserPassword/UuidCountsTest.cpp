#include "setUserPassword/UuidCounts.h"

#include <gtest/gtest.h>

#include <unordered_map>
#include <vector>

namespace korvane::setUserPassword {
namespace {

using utils::core::Uuid;

TEST(UuidCountsTest, CountsLikeAMap) {
  UuidCounts counts;
  std::unordered_map<Uuid, std::uint32_t, utils::core::UuidHash> reference;
  std::vector<Uuid> pool;
  for (int i = 0; i < 5000; ++i) pool.push_back(Uuid::create());
  pool.push_back(Uuid());
  for (int i = 0; i < 20000; ++i) {
    const Uuid& uuid = pool[static_cast<std::size_t>(i * 7919) % pool.size()];
    counts.increment(uuid);
    ++reference[uuid];
  }
  for (const auto& uuid : pool) {
    EXPECT_EQ(counts.count(uuid), std::min<std::uint32_t>(reference[uuid], 255));
  }
  EXPECT_EQ(counts.count(Uuid::create()), 0u);
  EXPECT_EQ(counts.distinct(), pool.size());
}

TEST(UuidCountsTest, IncrementsNotYetAppliedAreCounted) {
  UuidCounts counts;
  const Uuid a = Uuid::create();
  const Uuid b = Uuid::create();
  counts.increment(a);
  EXPECT_EQ(counts.count(a), 1u);
  counts.increment(b);
  counts.increment(a);
  EXPECT_EQ(counts.count(a), 2u);
  EXPECT_EQ(counts.count(b), 1u);
  EXPECT_EQ(counts.distinct(), 2u);
}

TEST(UuidCountsTest, NullUuidIsCounted) {
  UuidCounts counts;
  EXPECT_EQ(counts.count(Uuid()), 0u);
  counts.increment(Uuid());
  counts.increment(Uuid());
  EXPECT_EQ(counts.count(Uuid()), 2u);
}

TEST(UuidCountsTest, CountsSaturateAboveOne) {
  UuidCounts counts;
  const Uuid uuid = Uuid::create();
  for (int i = 0; i < 1000; ++i) counts.increment(uuid);
  EXPECT_GT(counts.count(uuid), 1u);
}

}  // namespace
}  // namespace korvane::setUserPassword
