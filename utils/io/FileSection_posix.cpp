#include <unistd.h>

#include "utils/core/PosixCall.h"
#include "utils/io/FileSection.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

// pread on the File's descriptor leaves its position alone.
class PositionalReader : public FileSection::Reader {
 public:
  explicit PositionalReader(const File& file) : file_(file) {}

  std::size_t readAt(std::uint64_t offset, std::span<char> into) override {
    const ssize_t got = core::retryOnInterrupt([&] {
      return ::pread(static_cast<int>(file_.nativeHandle()), into.data(), into.size(),
                     static_cast<off_t>(offset));
    });
    if (got < 0) throwFileError("read", file_.path(), lastSystemError());
    return static_cast<std::size_t>(got);
  }

 private:
  const File& file_;
};

}  // namespace

std::unique_ptr<FileSection::Reader> FileSection::openReader(const File& file) {
  return std::make_unique<PositionalReader>(file);
}

}  // namespace korvane::utils::io
