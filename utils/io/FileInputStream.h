// FileInputStream: an InputStream over a File. Once a regular file has
// proved large (readAheadAfter bytes read), the rest is read ahead on a
// worker thread (see ReadAhead.h); a small file, a pipe or a terminal is
// read by the calling thread alone. The owner may hold the worker back
// (readAlone) while other threads keep the processors busy, and let it
// start again later (allowReadAhead).
//
// Thread safety: one object must not be used from two threads at once.
#pragma once

#include <cassert>
#include <cstddef>
#include <exception>
#include <filesystem>
#include <optional>
#include <span>
#include <utility>

#include "utils/io/File.h"
#include "utils/io/InputStream.h"
#include "utils/io/ReadAhead.h"

namespace korvane::utils::io {

template <typename CharT>
class FileInputStream : public InputStream<CharT> {
 public:
  // Throws FileNotFoundError when `path` does not exist.
  explicit FileInputStream(const std::filesystem::path& path,
                           std::size_t readAheadAfter = BlockRing::workerAfter)
      : InputStream<CharT>(),
        file_(path, File::Access::read),
        readAheadAfter_(readAheadAfter),
        initialReadAheadAfter_(readAheadAfter) {}

  explicit FileInputStream(File&& file, std::size_t readAheadAfter = BlockRing::workerAfter)
      : InputStream<CharT>(),
        file_(std::move(file)),
        readAheadAfter_(readAheadAfter),
        initialReadAheadAfter_(readAheadAfter) {}

  // Closes the file; nothing more is read, and nothing buffered is left.
  void close() {
    this->dropBuffered();
    readAhead_.reset();
    file_.close();
  }
  const File& file() const noexcept { return file_; }

  // From now on the calling thread reads the file alone, with no worker
  // reading ahead: for when other threads already keep the processors busy.
  // REQUIRES: no worker reads ahead yet.
  void readAlone() noexcept {
    assert(!readAhead_.has_value());
    readAheadAfter_ = static_cast<std::size_t>(-1);
  }

  // Undoes readAlone(): a regular file that has proved large is read ahead
  // from the next refill on.
  void allowReadAhead() noexcept {
    if (!readAhead_) readAheadAfter_ = initialReadAheadAfter_;
  }

  // Whether a worker thread reads the rest of the file.
  bool readsAhead() const noexcept { return readAhead_.has_value(); }

 protected:
  std::size_t readSome(std::span<CharT> into) override {
    return file_.read({reinterpret_cast<char*>(into.data()), into.size()});
  }

  std::span<const CharT> readBlock() override {
    if (readAhead_) {
      const std::span<const char> block = readAhead_->next();
      return {reinterpret_cast<const CharT*>(block.data()), block.size()};
    }
    const std::span<const CharT> block = InputStream<CharT>::readBlock();
    readDirectly_ += block.size();
    if (!block.empty() && readDirectly_ >= readAheadAfter_) startReadAhead();
    return block;
  }

 private:
  void startReadAhead() noexcept {
    readAheadAfter_ = static_cast<std::size_t>(-1);  // decided once
    try {
      if (file_.isRegularFile()) readAhead_.emplace(file_);
    } catch (const std::exception&) {
      // No thread or no answer from the system: this thread reads on.
    }
  }

  File file_;
  std::size_t readAheadAfter_;
  const std::size_t initialReadAheadAfter_;  // as constructed, for allowReadAhead()
  std::size_t readDirectly_ = 0;
  std::optional<ReadAhead> readAhead_;  // after file_: stops before it closes
};

}  // namespace korvane::utils::io
