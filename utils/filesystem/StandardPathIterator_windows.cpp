#include <windows.h>
// windows.h first: shlobj.h needs its types.
#include <shlobj.h>

#include <system_error>

#include "utils/filesystem/StandardPathIterator.h"

namespace korvane::utils::filesystem::detail {

std::vector<std::filesystem::path> standardDirectories(StandardPath) {
  PWSTR folder = nullptr;
  const HRESULT result = ::SHGetKnownFolderPath(FOLDERID_ProgramData, 0, nullptr, &folder);
  if (FAILED(result)) {
    ::CoTaskMemFree(folder);
    throw std::system_error(static_cast<int>(result), std::system_category(),
                            "SHGetKnownFolderPath(ProgramData)");
  }
  std::vector<std::filesystem::path> directories{std::filesystem::path(folder)};
  ::CoTaskMemFree(folder);
  return directories;
}

}  // namespace korvane::utils::filesystem::detail
