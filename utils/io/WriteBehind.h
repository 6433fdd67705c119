// WriteBehind: writes a file on a worker thread a few blocks behind its
// writer, so that copying to the system overlaps with the work of making
// what comes next. Worth it for large files only.
//
// Everything is written in order. A failure to write stops the writing; the
// writer learns of it at a later write() or at finish(), which throw it.
//
// Thread safety: one object, one thread (besides its own worker).
#pragma once

#include <cstddef>
#include <exception>
#include <span>

#include "utils/core/WorkerThread.h"
#include "utils/io/BlockRing.h"
#include "utils/io/File.h"

namespace korvane::utils::io {

class WriteBehind {
 public:
  // Starts writing to `file` at its current position. Throws
  // std::system_error when no thread can be started.
  // REQUIRES: `file` outlives the object and nothing else uses it meanwhile.
  explicit WriteBehind(File& file, std::size_t blockSize = BlockRing::defaultBlockSize,
                       std::size_t blockCount = BlockRing::defaultBlockCount);

  // Stops the worker and waits for it; what it was not yet given or had
  // not yet written is dropped.
  ~WriteBehind();
  WriteBehind(const WriteBehind&) = delete;
  WriteBehind& operator=(const WriteBehind&) = delete;

  // Copies `bytes` to be written after everything given before. Throws the
  // failure of an earlier write once it is known. Bytes already in place,
  // written into the front of space(), are taken there without a copy.
  void write(std::span<const char> bytes);

  // The free part of the block being filled, taking an empty block when
  // there is none, for the caller to write into and then give with
  // write(); valid until the next write() or finish(). Throws the failure
  // of an earlier write once it is known.
  std::span<char> space();

  // Writes what is left and waits until everything given was written;
  // throws the failure that stopped the writing, if any.
  // REQUIRES: nothing is written after it.
  void finish();

 private:
  void work() noexcept;
  [[noreturn]] void rethrowFailure();

  File& file_;
  BlockRing ring_;
  BlockRing::Block* current_ = nullptr;  // the block being filled
  std::exception_ptr failure_;           // the worker's, set before it closes the ring
  core::WorkerThread worker_;            // last: started once the rest exists
};

}  // namespace korvane::utils::io
