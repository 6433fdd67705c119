#include "utils/io/WriteBehind.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <stdexcept>

namespace korvane::utils::io {

WriteBehind::WriteBehind(File& file, std::size_t blockSize, std::size_t blockCount)
    : file_(file), ring_(blockCount, blockSize), worker_([this] { work(); }) {}

WriteBehind::~WriteBehind() {
  ring_.close();
  worker_.join();
}

void WriteBehind::write(std::span<const char> bytes) {
  while (!bytes.empty()) {
    const std::span<char> room = space();
    const std::size_t count = std::min(bytes.size(), room.size());
    // Bytes in place never run past the block.
    assert(bytes.data() != room.data() || bytes.size() <= room.size());
    if (bytes.data() != room.data()) std::memcpy(room.data(), bytes.data(), count);
    current_->size += count;
    bytes = bytes.subspan(count);
    if (current_->size == current_->space.size()) {
      ring_.publish();
      current_ = nullptr;
    }
  }
}

std::span<char> WriteBehind::space() {
  if (current_ == nullptr) {
    current_ = ring_.nextEmpty();
    if (current_ == nullptr) rethrowFailure();
  }
  return current_->space.subspan(current_->size);
}

void WriteBehind::finish() {
  if (current_ == nullptr) current_ = ring_.nextEmpty();
  if (current_ != nullptr) {
    current_->last = true;
    ring_.publish();
    current_ = nullptr;
  }
  worker_.join();
  if (failure_) std::rethrow_exception(failure_);
}

void WriteBehind::rethrowFailure() {
  // The ring closes early only when the worker failed, after it kept why.
  if (failure_) std::rethrow_exception(failure_);
  throw std::logic_error("korvane::utils::io::WriteBehind: the writing stopped without a failure");
}

void WriteBehind::work() noexcept {
  for (;;) {
    BlockRing::Block* const block = ring_.nextFilled();
    if (block == nullptr) return;
    const bool last = block->last;
    try {
      file_.write({block->space.data(), block->size});
    } catch (...) {
      failure_ = std::current_exception();
      ring_.close();
      return;
    }
    ring_.release();
    if (last) return;
  }
}

}  // namespace korvane::utils::io
