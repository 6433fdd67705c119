// UuidCounts: how often one UUID, chosen during a pass over the user
// configuration file, occurs among all the UUIDs seen in that pass, so that
// a duplicate UUID of the matched user is found without reading the file
// twice.
//
// Only the chosen UUID's count is ever needed, and it is chosen once the
// matched user has been read. So the UUIDs seen until then are appended to
// a plain log (16 bytes each, in blocks that never move, so growing costs
// no copy) that is scanned once when the UUID is chosen and then released;
// the UUIDs seen after it are compared with it directly. That is a few
// nanoseconds a UUID instead of a hash table's cache misses, and at most
// 16 bytes a user before the match and nothing after it.
//
// Thread safety: one object, one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

class UuidCounts {
 public:
  UuidCounts() = default;

  // Counts one occurrence of `uuid`.
  void add(utils::core::Uuid uuid) {
    if (chosen_) {
      if (uuid == uuid_) ++count_;
      return;
    }
    if (used_ == capacity_) startBlock();
    current_[used_++] = uuid;
  }

  // From now on only `uuid` is counted, with every occurrence added so far.
  // REQUIRES: called at most once.
  void choose(const utils::core::Uuid& uuid);

  // Adds `occurrences` of the chosen UUID counted elsewhere (in another
  // part of the file). REQUIRES: choose() was called.
  void addChosen(std::uint64_t occurrences) noexcept { count_ += occurrences; }

  // The occurrences of the chosen UUID among all added, before and after
  // it was chosen. REQUIRES: choose() was called.
  std::uint64_t count() const noexcept { return count_; }

 private:
  // Blocks grow from 4 KiB to 64 KiB of UUIDs: a small file touches few
  // pages, a large one allocates seldom.
  static constexpr std::size_t firstBlockSize = 256;
  static constexpr std::size_t largestBlockSize = 4096;
  static constexpr std::size_t blockSize(std::size_t index) noexcept {
    return index >= 4 ? largestBlockSize : firstBlockSize << index;
  }

  void startBlock();

  std::vector<std::unique_ptr<utils::core::Uuid[]>> blocks_;
  utils::core::Uuid* current_ = nullptr;
  std::size_t used_ = 0;      // in the last block
  std::size_t capacity_ = 0;  // of the last block
  bool chosen_ = false;
  utils::core::Uuid uuid_;
  std::uint64_t count_ = 0;
};

}  // namespace korvane::setUserPassword
