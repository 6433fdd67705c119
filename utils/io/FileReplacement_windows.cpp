#include <windows.h>

#include <system_error>

#include "utils/io/FileReplacement.h"

namespace korvane::utils::io {

void copyAttributesForReplacement(File&, const std::filesystem::path&) {}

void replaceFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  const DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED | MOVEFILE_WRITE_THROUGH;
  if (!::MoveFileExW(from.c_str(), to.c_str(), flags)) {
    throw std::filesystem::filesystem_error(
        "rename", from, to,
        std::error_code(static_cast<int>(::GetLastError()), std::system_category()));
  }
}

}  // namespace korvane::utils::io
