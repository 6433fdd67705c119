#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <utility>

#include "utils/io/FileSection.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

// A read with an offset still moves a synchronous handle's position, so
// the section reads through a handle of its own to the same open file.
class OwnHandleReader : public FileSection::Reader {
 public:
  explicit OwnHandleReader(const File& file) : own_(reopen(file)) {}

  std::size_t readAt(std::uint64_t offset, std::span<char> into) override {
    OVERLAPPED at{};
    at.Offset = static_cast<DWORD>(offset);
    at.OffsetHigh = static_cast<DWORD>(offset >> 32);
    DWORD got = 0;
    const auto wanted = static_cast<DWORD>(std::min<std::size_t>(into.size(), 1u << 30));
    if (!::ReadFile(reinterpret_cast<HANDLE>(own_.nativeHandle()), into.data(), wanted, &got,
                    &at)) {
      const DWORD error = ::GetLastError();
      if (error == ERROR_HANDLE_EOF) return 0;
      throwFileError("read", own_.path(), {static_cast<int>(error), std::system_category()});
    }
    return got;
  }

 private:
  static File reopen(const File& file) {
    // The path first: once the handle exists, nothing may throw before a
    // File owns it.
    std::filesystem::path path = file.path();
    const HANDLE handle = ::ReOpenFile(reinterpret_cast<HANDLE>(file.nativeHandle()), GENERIC_READ,
                                       FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, 0);
    if (handle == INVALID_HANDLE_VALUE) throwFileError("open", path, lastSystemError());
    return File(reinterpret_cast<File::NativeHandle>(handle), std::move(path));
  }

  File own_;
};

}  // namespace

std::unique_ptr<FileSection::Reader> FileSection::openReader(const File& file) {
  return std::make_unique<OwnHandleReader>(file);
}

}  // namespace korvane::utils::io
