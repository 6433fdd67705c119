#include "utils/io/WindowsHandle.h"

// After windows.h: the native API's types and NtCreateFile.
#include <winternl.h>

namespace korvane::utils::io {

namespace {

constexpr NTSTATUS statusObjectNameCollision = static_cast<NTSTATUS>(0xC0000035L);

}  // namespace

WindowsHandle WindowsHandle::openRelative(HANDLE folder, std::wstring_view name, ACCESS_MASK access,
                                          ULONG share, ULONG disposition, ULONG options,
                                          PSECURITY_DESCRIPTOR security) noexcept {
  UNICODE_STRING objectName{};
  // Names are limited to 32767 characters; longer ones cannot exist.
  if (name.size() > 32767) {
    ::SetLastError(ERROR_FILENAME_EXCED_RANGE);
    return WindowsHandle();
  }
  objectName.Buffer = const_cast<PWSTR>(name.data());
  objectName.Length = static_cast<USHORT>(name.size() * sizeof(wchar_t));
  objectName.MaximumLength = objectName.Length;
  OBJECT_ATTRIBUTES attributes{};
  attributes.Length = sizeof attributes;
  attributes.RootDirectory = folder;
  attributes.ObjectName = &objectName;
  // Names compare without case, as everywhere in Win32.
  attributes.Attributes = OBJ_CASE_INSENSITIVE;
  attributes.SecurityDescriptor = security;
  IO_STATUS_BLOCK status{};
  HANDLE handle = nullptr;
  const NTSTATUS result = ::NtCreateFile(
      &handle, access | SYNCHRONIZE, &attributes, &status, nullptr, FILE_ATTRIBUTE_NORMAL, share,
      disposition, options | FILE_OPEN_REPARSE_POINT | FILE_SYNCHRONOUS_IO_NONALERT, nullptr, 0);
  if (result < 0) {
    // The Win32 error of a name taken is ERROR_FILE_EXISTS, which the
    // callers know as std::errc::file_exists.
    ::SetLastError(result == statusObjectNameCollision ? ERROR_FILE_EXISTS
                                                       : ::RtlNtStatusToDosError(result));
    return WindowsHandle();
  }
  return WindowsHandle(handle);
}

}  // namespace korvane::utils::io
