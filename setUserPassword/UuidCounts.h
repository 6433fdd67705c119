// UuidCounts: how often each UUID was seen during one pass over the user
// configuration file, so that a duplicate UUID of the matched user is found
// without reading the file twice.
//
// An open-addressing table (linear probing) keyed with Uuid::hash and Uuid
// equality: a million UUIDs take about 36 MB and no allocation per entry.
// Counts saturate; only "once" and "more than once" matter.
//
// Thread safety: one object, one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

class UuidCounts {
 public:
  UuidCounts();

  void increment(const utils::core::Uuid& uuid);
  std::uint32_t count(const utils::core::Uuid& uuid) const;
  std::size_t distinct() const noexcept { return used_ + (nullCount_ != 0 ? 1 : 0); }

 private:
  std::size_t findSlot(const utils::core::Uuid& uuid) const noexcept;
  void grow();

  // The null UUID marks an empty slot, so its own count is kept aside.
  std::vector<utils::core::Uuid> keys_;
  std::vector<std::uint8_t> counts_;
  std::size_t used_ = 0;
  std::uint32_t nullCount_ = 0;
};

}  // namespace korvane::setUserPassword
