// ReadAhead: reads a file on a worker thread a few blocks ahead of its
// reader, so that copying the file from the system overlaps with the work
// done on what was already read. Worth it for large files only: a small one
// is read before a thread has started.
//
// Everything arrives in order, and a failure to read arrives exactly where
// it struck: next() throws it once the data before it has been taken, and
// again on every later call, as a File would.
//
// Thread safety: one object, one thread (besides its own worker).
#pragma once

#include <cstddef>
#include <span>

#include "utils/core/WorkerThread.h"
#include "utils/io/BlockRing.h"
#include "utils/io/File.h"

namespace korvane::utils::io {

class ReadAhead {
 public:
  // Starts reading `file` from its current position. Throws
  // std::system_error when no thread can be started.
  // REQUIRES: `file` outlives the object and nothing else uses it meanwhile.
  explicit ReadAhead(File& file, std::size_t blockSize = BlockRing::defaultBlockSize,
                     std::size_t blockCount = BlockRing::defaultBlockCount);

  // Stops the worker and waits for it; what it read ahead is dropped.
  ~ReadAhead();
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  // The next block of the file, empty at its end; it stays valid until the
  // next call.
  std::span<const char> next();

 private:
  void work() noexcept;

  File& file_;
  BlockRing ring_;
  BlockRing::Block* current_ = nullptr;  // the block last returned
  core::WorkerThread worker_;            // last: started once the rest exists
};

}  // namespace korvane::utils::io
