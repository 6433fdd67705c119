#include <windows.h>

#include <system_error>

#include "utils/core/Format.h"
#include "utils/filesystem/FileExists.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::filesystem {

namespace {

bool meansNotFound(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
         error == ERROR_BAD_NETPATH || error == ERROR_INVALID_NAME;
}

}  // namespace

bool fileExists(const std::filesystem::path& path) {
  // Opening with no access rights follows links and junctions to their
  // target; FILE_FLAG_BACKUP_SEMANTICS lets directories be opened too.
  const HANDLE handle =
      ::CreateFileW(path.c_str(), 0, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (handle != INVALID_HANDLE_VALUE) {
    ::CloseHandle(handle);
    return true;
  }
  const DWORD error = ::GetLastError();
  if (meansNotFound(error)) return false;
  // The path goes into the text in its printable form only: the error's
  // own path members would put its raw characters into what().
  throw std::filesystem::filesystem_error(
      core::format("exists \"{}\"", toPrintable(path)),
      std::error_code(static_cast<int>(error), std::system_category()));
}

}  // namespace korvane::utils::filesystem
