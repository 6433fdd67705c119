#include "utils/io/BlockRing.h"

#include <algorithm>

#include "utils/core/SecureZero.h"

namespace korvane::utils::io {

BlockRing::BlockRing(std::size_t blockCount, std::size_t blockSize)
    : memory_(std::make_unique_for_overwrite<char[]>(blockCount * blockSize)), blocks_(blockCount) {
  for (std::size_t i = 0; i < blockCount; ++i) {
    blocks_[i].space = {memory_.get() + i * blockSize, blockSize};
  }
}

BlockRing::~BlockRing() {
  if (!blocks_.empty()) core::secureZero(memory_.get(), handedOut_ * blocks_.front().space.size());
}

BlockRing::Block* BlockRing::nextEmpty() {
  std::unique_lock lock(mutex_);
  if (!closed_ && published_ - released_ == blocks_.size()) {
    producerWaits_ = true;
    emptied_.wait(lock,
                  [&] { return closed_ || blocks_.size() - (published_ - released_) >= wakeAt(); });
    producerWaits_ = false;
  }
  if (closed_) return nullptr;
  const std::size_t index = indexOf(published_);
  handedOut_ = std::max(handedOut_, index + 1);
  Block& block = blocks_[index];
  block.size = 0;
  block.failure = nullptr;
  block.last = false;
  return &block;
}

void BlockRing::publish() {
  bool wake = false;
  {
    const std::lock_guard lock(mutex_);
    lastPublished_ = blocks_[indexOf(published_)].last;
    ++published_;
    wake = consumerWaits_ && (published_ - released_ >= wakeAt() || lastPublished_);
  }
  if (wake) filled_.notify_one();
}

BlockRing::Block* BlockRing::nextFilled() {
  std::unique_lock lock(mutex_);
  if (!closed_ && released_ == published_) {
    consumerWaits_ = true;
    filled_.wait(lock, [&] {
      return closed_ || published_ - released_ >= wakeAt() ||
             (lastPublished_ && released_ < published_);
    });
    consumerWaits_ = false;
  }
  if (closed_) return nullptr;
  return &blocks_[indexOf(released_)];
}

void BlockRing::release() {
  bool wake = false;
  {
    const std::lock_guard lock(mutex_);
    ++released_;
    wake = producerWaits_ && blocks_.size() - (published_ - released_) >= wakeAt();
  }
  if (wake) emptied_.notify_one();
}

void BlockRing::close() {
  {
    const std::lock_guard lock(mutex_);
    closed_ = true;
  }
  emptied_.notify_one();
  filled_.notify_one();
}

}  // namespace korvane::utils::io
