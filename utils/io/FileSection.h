// FileSection: an InputStream over a regular File from a given offset to
// its end, read without moving the File's own position, so that a second
// thread can read a later part of the file while the File's owner reads on
// from where it is. POSIX reads with pread on the same descriptor; Windows
// reads through a second handle to the same open file (ReOpenFile, which
// looks up no name), with the offset given on each read.
//
// A stop flag lets the thread that owns the reader end a long read early:
// once it is set, the next refill throws std::runtime_error.
//
// Thread safety: one object, one thread; the File itself may be read by
// another thread meanwhile.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <stdexcept>

#include "utils/io/File.h"
#include "utils/io/InputStream.h"

namespace korvane::utils::io {

class FileSection : public InputStream<char> {
 public:
  // Reads at an offset without moving the File's position: pread on its
  // descriptor (POSIX), or a handle of its own (Windows). Made by the
  // platform's source.
  class Reader {
   public:
    virtual ~Reader() = default;
    virtual std::size_t readAt(std::uint64_t offset, std::span<char> into) = 0;
  };

  // Reads `file` from `offset` on. Throws std::system_error when the
  // system gives no second handle (Windows).
  // REQUIRES: `file` is a regular file and outlives the object; `stop`, if
  // given, too.
  FileSection(const File& file, std::uint64_t offset, const std::atomic<bool>* stop = nullptr);
  ~FileSection() override;

 protected:
  std::size_t readSome(std::span<char> into) override;

 private:
  // The platform's reader of `file`.
  static std::unique_ptr<Reader> openReader(const File& file);

  // Throws once the stop flag is set.
  void checkStop() const {
    if (stop_ != nullptr && stop_->load(std::memory_order_relaxed)) {
      throw std::runtime_error("the read was stopped");
    }
  }

  std::unique_ptr<Reader> reader_;
  std::uint64_t offset_;
  const std::atomic<bool>* stop_;
};

}  // namespace korvane::utils::io
