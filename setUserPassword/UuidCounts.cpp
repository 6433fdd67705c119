#include "setUserPassword/UuidCounts.h"

#include <limits>

namespace korvane::setUserPassword {

namespace {

constexpr std::size_t initialCapacity = 1024;  // a power of two

std::uint8_t saturatingIncrement(std::uint8_t count) {
  return count == std::numeric_limits<std::uint8_t>::max() ? count
                                                           : static_cast<std::uint8_t>(count + 1);
}

// A hint to load the memory at `address` now; it changes no result.
void prefetch(const void* address) noexcept {
#if defined(__GNUC__) || defined(__clang__)
  __builtin_prefetch(address);
#else
  (void)address;
#endif
}

}  // namespace

UuidCounts::UuidCounts() : keys_(initialCapacity), counts_(initialCapacity) {}

std::size_t UuidCounts::findSlot(const utils::core::Uuid& uuid, std::size_t hash) const noexcept {
  const std::size_t mask = keys_.size() - 1;
  std::size_t slot = hash & mask;
  while (counts_[slot] != 0 && keys_[slot] != uuid) slot = (slot + 1) & mask;
  return slot;
}

void UuidCounts::increment(const utils::core::Uuid& uuid) {
  if (uuid.isNull()) {
    if (nullCount_ != std::numeric_limits<std::uint32_t>::max()) ++nullCount_;
    return;
  }
  const std::size_t hash = uuid.hash();
  const std::size_t slot = hash & (keys_.size() - 1);
  prefetch(&keys_[slot]);
  prefetch(&counts_[slot]);
  pending_[pendingCount_++] = {uuid, hash};
  if (pendingCount_ == batchSize) applyPending();
}

void UuidCounts::applyPending() {
  const std::size_t count = pendingCount_;
  pendingCount_ = 0;
  for (std::size_t i = 0; i < count; ++i) insert(pending_[i].uuid, pending_[i].hash);
}

void UuidCounts::insert(const utils::core::Uuid& uuid, std::size_t hash) {
  // Keep the load at most three quarters so probe runs stay short.
  if ((used_ + 1) * 4 > keys_.size() * 3) grow();
  const std::size_t slot = findSlot(uuid, hash);
  if (counts_[slot] == 0) {
    keys_[slot] = uuid;
    ++used_;
  }
  counts_[slot] = saturatingIncrement(counts_[slot]);
}

std::uint32_t UuidCounts::count(const utils::core::Uuid& uuid) {
  if (uuid.isNull()) return nullCount_;
  applyPending();
  return counts_[findSlot(uuid, uuid.hash())];
}

std::size_t UuidCounts::distinct() {
  applyPending();
  return used_ + (nullCount_ != 0 ? 1 : 0);
}

void UuidCounts::grow() {
  std::vector<utils::core::Uuid> oldKeys(keys_.size() * 2);
  std::vector<std::uint8_t> oldCounts(counts_.size() * 2);
  oldKeys.swap(keys_);
  oldCounts.swap(counts_);
  for (std::size_t i = 0; i < oldKeys.size(); ++i) {
    if (oldCounts[i] == 0) continue;
    const std::size_t slot = findSlot(oldKeys[i], oldKeys[i].hash());
    keys_[slot] = oldKeys[i];
    counts_[slot] = oldCounts[i];
  }
}

}  // namespace korvane::setUserPassword
