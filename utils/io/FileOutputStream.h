// FileOutputStream: an OutputStream over a File.
//
// close() flushes, closes and reports any failure; the destructor does the
// same when close() was not called, but cannot report a failure, so owners
// that must know whether the data arrived call close() (and sync() first
// when it must be durable).
//
// Thread safety: one object must not be used from two threads at once.
#pragma once

#include <filesystem>
#include <span>
#include <utility>

#include "utils/io/File.h"
#include "utils/io/OutputStream.h"

namespace korvane::utils::io {

template <typename CharT>
class FileOutputStream : public virtual OutputStream<CharT> {
 public:
  FileOutputStream(const std::filesystem::path& path, File::Access access,
                   std::filesystem::perms createPermissions = File::defaultCreatePermissions)
      : OutputStream<CharT>(), file_(path, access, createPermissions) {}

  explicit FileOutputStream(File&& file) : OutputStream<CharT>(), file_(std::move(file)) {}

  ~FileOutputStream() override {
    try {
      close();
    } catch (...) {
      // Reported by an explicit close(); a destructor must not throw.
    }
  }

  // Flushes and makes the data durable.
  void sync() {
    this->flush();
    file_.sync();
  }

  void close() {
    if (!file_.isOpen()) return;
    try {
      this->flush();
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

  File& file() noexcept { return file_; }

 protected:
  void writeSome(std::span<const CharT> text) override {
    file_.write({reinterpret_cast<const char*>(text.data()), text.size()});
  }

 private:
  File file_;
};

}  // namespace korvane::utils::io
