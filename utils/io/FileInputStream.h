// FileInputStream: an InputStream over a File.
//
// Thread safety: one object must not be used from two threads at once.
#pragma once

#include <filesystem>
#include <span>
#include <utility>

#include "utils/io/File.h"
#include "utils/io/InputStream.h"

namespace korvane::utils::io {

template <typename CharT>
class FileInputStream : public InputStream<CharT> {
 public:
  // Throws FileNotFoundError when `path` does not exist.
  explicit FileInputStream(const std::filesystem::path& path)
      : InputStream<CharT>(), file_(path, File::Access::read) {}

  explicit FileInputStream(File&& file) : InputStream<CharT>(), file_(std::move(file)) {}

  void close() { file_.close(); }
  const File& file() const noexcept { return file_; }

 protected:
  std::size_t readSome(std::span<CharT> into) override {
    return file_.read({reinterpret_cast<char*>(into.data()), into.size()});
  }

 private:
  File file_;
};

}  // namespace korvane::utils::io
