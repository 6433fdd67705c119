#include "utils/io/ReadAhead.h"

#include <exception>

namespace korvane::utils::io {

ReadAhead::ReadAhead(File& file, std::size_t blockSize, std::size_t blockCount)
    : file_(file), ring_(blockCount, blockSize), worker_([this] { work(); }) {}

ReadAhead::~ReadAhead() {
  ring_.close();
  worker_.join();
}

std::span<const char> ReadAhead::next() {
  if (current_ != nullptr) {
    // The last block (the end, or the failure) is kept, so that every
    // later call answers the same.
    if (!current_->last) {
      ring_.release();
      // Never null: only the destructor closes the ring.
      current_ = ring_.nextFilled();
    }
  } else {
    current_ = ring_.nextFilled();
  }
  if (current_->failure) std::rethrow_exception(current_->failure);
  return {current_->space.data(), current_->size};
}

void ReadAhead::work() noexcept {
  for (;;) {
    BlockRing::Block* const block = ring_.nextEmpty();
    if (block == nullptr) return;
    try {
      block->size = file_.read(block->space);
      block->last = block->size == 0;
    } catch (...) {
      block->failure = std::current_exception();
      block->last = true;
    }
    const bool last = block->last;
    ring_.publish();
    if (last) return;
  }
}

}  // namespace korvane::utils::io
