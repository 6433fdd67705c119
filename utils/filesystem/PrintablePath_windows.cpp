#include <windows.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <system_error>

#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::filesystem {

namespace {

UINT fileApiCodePage() {
  if (::GetACP() == CP_UTF8) return CP_UTF8;
  return ::AreFileApisANSI() ? CP_ACP : CP_OEMCP;
}

}  // namespace

std::string toPrintable(const std::filesystem::path& path) {
  const std::wstring& wide = path.native();
  if (wide.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw std::invalid_argument("korvane::utils::filesystem::toPrintable(): path too long");
  }
  std::string narrow;
  if (!wide.empty()) {
    const UINT codePage = fileApiCodePage();
    const int length = static_cast<int>(wide.size());
    const int needed =
        ::WideCharToMultiByte(codePage, 0, wide.data(), length, nullptr, 0, nullptr, nullptr);
    if (needed <= 0) {
      throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(),
                              "WideCharToMultiByte");
    }
    narrow.resize(static_cast<std::size_t>(needed));
    if (::WideCharToMultiByte(codePage, 0, wide.data(), length, narrow.data(), needed, nullptr,
                              nullptr) != needed) {
      throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(),
                              "WideCharToMultiByte");
    }
  }
  std::replace(narrow.begin(), narrow.end(), '/', '\\');
  return narrow;
}

}  // namespace korvane::utils::filesystem
