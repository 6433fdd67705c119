#include "setUserPassword/UuidCounts.h"

namespace korvane::setUserPassword {

void UuidCounts::startBlock() {
  blocks_.push_back(std::make_unique<Block>());
  current_ = blocks_.back()->data();
  used_ = 0;
}

void UuidCounts::choose(const utils::core::Uuid& uuid) {
  chosen_ = true;
  uuid_ = uuid;
  for (std::size_t block = 0; block < blocks_.size(); ++block) {
    const std::size_t used = block + 1 == blocks_.size() ? used_ : blockSize;
    const utils::core::Uuid* const uuids = blocks_[block]->data();
    for (std::size_t i = 0; i < used; ++i) count_ += uuids[i] == uuid ? 1 : 0;
  }
  blocks_.clear();
  blocks_.shrink_to_fit();
  current_ = nullptr;
}

}  // namespace korvane::setUserPassword
