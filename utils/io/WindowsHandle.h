// WindowsHandle: an owned Windows HANDLE, closed when the object goes away,
// and the open of one name relative to an open folder through which the
// resolution, the replacement and the lock reach every file (see
// ResolvedPath.h). Windows only.
//
// Thread safety: one object, one thread.
#pragma once

#include <windows.h>

#include <string_view>
#include <utility>

namespace korvane::utils::io {

class WindowsHandle {
 public:
  explicit WindowsHandle(HANDLE handle = INVALID_HANDLE_VALUE) noexcept : handle_(handle) {}
  ~WindowsHandle() { reset(); }
  WindowsHandle(WindowsHandle&& other) noexcept : handle_(other.release()) {}
  WindowsHandle& operator=(WindowsHandle&& other) noexcept {
    if (this != &other) {
      reset();
      handle_ = other.release();
    }
    return *this;
  }
  WindowsHandle(const WindowsHandle&) = delete;
  WindowsHandle& operator=(const WindowsHandle&) = delete;

  bool valid() const noexcept { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
  HANDLE get() const noexcept { return handle_; }
  HANDLE release() noexcept { return std::exchange(handle_, INVALID_HANDLE_VALUE); }
  void reset() noexcept {
    if (valid()) ::CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }

  // Opens `name`, one component, relative to the open `folder`
  // (NtCreateFile with the folder as root directory; an empty name opens
  // `folder` itself again). The name is never looked up from the root
  // again, and a reparse point (symbolic link, junction) at it is opened
  // as itself. `disposition` is FILE_OPEN or FILE_CREATE; `options` are
  // added to FILE_OPEN_REPARSE_POINT | FILE_SYNCHRONOUS_IO_NONALERT, and
  // SYNCHRONIZE to `access`. On failure the handle is invalid and
  // GetLastError() says why (ERROR_FILE_EXISTS when FILE_CREATE meets a
  // name that is taken).
  static WindowsHandle openRelative(HANDLE folder, std::wstring_view name, ACCESS_MASK access,
                                    ULONG share, ULONG disposition, ULONG options,
                                    PSECURITY_DESCRIPTOR security = nullptr) noexcept;

 private:
  HANDLE handle_;
};

}  // namespace korvane::utils::io
