#include "setUserPassword/UuidCounts.h"

#include <limits>

namespace korvane::setUserPassword {

namespace {

constexpr std::size_t initialCapacity = 1024;  // a power of two

std::uint8_t saturatingIncrement(std::uint8_t count) {
  return count == std::numeric_limits<std::uint8_t>::max() ? count
                                                           : static_cast<std::uint8_t>(count + 1);
}

}  // namespace

UuidCounts::UuidCounts() : keys_(initialCapacity), counts_(initialCapacity) {}

std::size_t UuidCounts::findSlot(const utils::core::Uuid& uuid) const noexcept {
  const std::size_t mask = keys_.size() - 1;
  std::size_t slot = uuid.hash() & mask;
  while (counts_[slot] != 0 && keys_[slot] != uuid) slot = (slot + 1) & mask;
  return slot;
}

void UuidCounts::increment(const utils::core::Uuid& uuid) {
  if (uuid.isNull()) {
    if (nullCount_ != std::numeric_limits<std::uint32_t>::max()) ++nullCount_;
    return;
  }
  // Keep the load at most three quarters so probe runs stay short.
  if ((used_ + 1) * 4 > keys_.size() * 3) grow();
  const std::size_t slot = findSlot(uuid);
  if (counts_[slot] == 0) {
    keys_[slot] = uuid;
    ++used_;
  }
  counts_[slot] = saturatingIncrement(counts_[slot]);
}

std::uint32_t UuidCounts::count(const utils::core::Uuid& uuid) const {
  if (uuid.isNull()) return nullCount_;
  return counts_[findSlot(uuid)];
}

void UuidCounts::grow() {
  std::vector<utils::core::Uuid> oldKeys(keys_.size() * 2);
  std::vector<std::uint8_t> oldCounts(counts_.size() * 2);
  oldKeys.swap(keys_);
  oldCounts.swap(counts_);
  for (std::size_t i = 0; i < oldKeys.size(); ++i) {
    if (oldCounts[i] == 0) continue;
    const std::size_t slot = findSlot(oldKeys[i]);
    keys_[slot] = oldKeys[i];
    counts_[slot] = oldCounts[i];
  }
}

}  // namespace korvane::setUserPassword
