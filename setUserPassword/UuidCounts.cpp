#include "setUserPassword/UuidCounts.h"

namespace korvane::setUserPassword {

void UuidCounts::startBlock() {
  capacity_ = blockSize(blocks_.size());
  blocks_.push_back(std::make_unique<utils::core::Uuid[]>(capacity_));
  current_ = blocks_.back().get();
  used_ = 0;
}

void UuidCounts::choose(const utils::core::Uuid& uuid) {
  chosen_ = true;
  uuid_ = uuid;
  for (std::size_t block = 0; block < blocks_.size(); ++block) {
    const std::size_t used = block + 1 == blocks_.size() ? used_ : blockSize(block);
    const utils::core::Uuid* const uuids = blocks_[block].get();
    for (std::size_t i = 0; i < used; ++i) count_ += uuids[i] == uuid ? 1 : 0;
  }
  blocks_.clear();
  blocks_.shrink_to_fit();
  current_ = nullptr;
  used_ = capacity_ = 0;
}

}  // namespace korvane::setUserPassword
