// BlockRing: a fixed number of equal blocks of memory passed in turn between
// one producer thread, which fills them, and one consumer thread, which
// uses them in the order they were filled. ReadAhead's worker produces what
// the stream's owner consumes; WriteBehind's owner produces what its worker
// consumes. With more than one block, each side works while the other
// waits for the system.
//
// A side that waits is woken only once half of the blocks are ready for it
// (or the last block is): waking a thread on another processor costs
// microseconds, so each wake-up should bring several blocks of work.
//
// The memory is wiped when the ring goes away: it may have held a file's
// secrets. It is not touched before a block is first filled, so unused
// blocks cost no pages.
//
// Thread safety: one producer thread and one consumer thread at a time;
// close() may be called from either.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

namespace korvane::utils::io {

class BlockRing {
 public:
  struct Block {
    std::span<char> space;       // the whole block
    std::size_t size = 0;        // how much of it holds data
    std::exception_ptr failure;  // why producing it failed, if it did
    bool last = false;           // no block follows this one
  };

  // The ring of the workers that read and write large files, and what makes
  // a file large: as much read or written directly as starting a thread is
  // worth.
  static constexpr std::size_t defaultBlockSize = 256 * 1024;
  static constexpr std::size_t defaultBlockCount = 8;
  static constexpr std::size_t workerAfter = 4 * 1024 * 1024;

  // REQUIRES: blockCount > 0 and blockSize > 0.
  BlockRing(std::size_t blockCount, std::size_t blockSize);
  ~BlockRing();
  BlockRing(const BlockRing&) = delete;
  BlockRing& operator=(const BlockRing&) = delete;

  // Producer: the next block to fill, emptied, once the consumer has given
  // it back; nullptr once the ring is closed.
  Block* nextEmpty();

  // Producer: hands over the block nextEmpty() returned.
  void publish();

  // Consumer: the next block published, in order; nullptr once the ring is
  // closed.
  Block* nextFilled();

  // Consumer: gives back the block nextFilled() returned.
  void release();

  // Wakes both sides for good: from now on nextEmpty() and nextFilled()
  // return nullptr.
  void close();

 private:
  std::size_t indexOf(std::uint64_t count) const noexcept { return count % blocks_.size(); }

  std::size_t wakeAt() const noexcept { return (blocks_.size() + 1) / 2; }

  std::mutex mutex_;
  std::condition_variable emptied_;  // the producer waits on it
  std::condition_variable filled_;   // the consumer waits on it
  std::unique_ptr<char[]> memory_;
  std::vector<Block> blocks_;
  std::uint64_t published_ = 0;  // blocks handed to the consumer so far
  std::uint64_t released_ = 0;   // blocks given back so far
  std::size_t handedOut_ = 0;    // blocks ever handed to the producer (the first ones)
  bool producerWaits_ = false;
  bool consumerWaits_ = false;
  bool lastPublished_ = false;
  bool closed_ = false;
};

}  // namespace korvane::utils::io
