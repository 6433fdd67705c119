// UuidCounts: how often each UUID was seen during one pass over the user
// configuration file, so that a duplicate UUID of the matched user is found
// without reading the file twice.
//
// An open-addressing table (linear probing) keyed with Uuid::hash and Uuid
// equality: a million UUIDs take about 36 MB and no allocation per entry.
// Counts saturate; only "once" and "more than once" matter. Increments are
// applied in small batches whose slots are fetched from memory ahead, so
// that a large table costs little more than a small one.
//
// Thread safety: one object, one thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

class UuidCounts {
 public:
  UuidCounts();

  void increment(const utils::core::Uuid& uuid);
  std::uint32_t count(const utils::core::Uuid& uuid);
  std::size_t distinct();

 private:
  struct Pending {
    utils::core::Uuid uuid;
    std::size_t hash;
  };
  static constexpr std::size_t batchSize = 16;

  void applyPending();
  void insert(const utils::core::Uuid& uuid, std::size_t hash);
  std::size_t findSlot(const utils::core::Uuid& uuid, std::size_t hash) const noexcept;
  void grow();

  // The null UUID marks an empty slot, so its own count is kept aside.
  std::vector<utils::core::Uuid> keys_;
  std::vector<std::uint8_t> counts_;
  std::size_t used_ = 0;
  std::uint32_t nullCount_ = 0;
  std::array<Pending, batchSize> pending_;
  std::size_t pendingCount_ = 0;
};

}  // namespace korvane::setUserPassword
