// FileOutputStream: an OutputStream over a new or emptied file, for the
// benchmarks that measure the JSON encoder writing to a disk file.
//
// close() flushes, closes and reports any failure; the destructor does the
// same when close() was not called, but cannot report a failure.
//
// Thread safety: one object must not be used from two threads at once.
#pragma once

#include <filesystem>
#include <span>

#include "utils/io/File.h"
#include "utils/io/OutputStream.h"

namespace korvane::bench {

class FileOutputStream final : public utils::io::OutputStream<char> {
 public:
  // Creates `path`, or empties the file at it.
  explicit FileOutputStream(const std::filesystem::path& path)
      : file_(path, utils::io::File::Access::createOrTruncate) {}

  FileOutputStream(const FileOutputStream&) = delete;
  FileOutputStream& operator=(const FileOutputStream&) = delete;

  ~FileOutputStream() override {
    try {
      close();
    } catch (...) {
      // Reported by an explicit close(); a destructor must not throw.
    }
  }

  void close() {
    if (!file_.isOpen()) return;
    try {
      flush();
    } catch (...) {
      try {
        file_.close();
      } catch (...) {
        // The write failure is the one worth reporting.
      }
      throw;
    }
    file_.close();
  }

 protected:
  void writeSome(std::span<const char> text) override { file_.write(text); }

 private:
  utils::io::File file_;
};

}  // namespace korvane::bench
