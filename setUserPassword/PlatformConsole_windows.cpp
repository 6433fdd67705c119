#include <windows.h>

#include <clocale>
#include <limits>
#include <stdexcept>
#include <string>
#include <system_error>

#include "setUserPassword/PlatformConsole.h"

namespace korvane::setUserPassword {

namespace {

// The code page the standard library converts narrow paths with: UTF-8 when
// the C runtime runs in code page 65001, else the file APIs' code page.
UINT argumentCodePage() {
  if (___lc_codepage_func() == CP_UTF8) return CP_UTF8;
  return ::AreFileApisANSI() ? CP_ACP : CP_OEMCP;
}

}  // namespace

bool standardInputIsConsole() noexcept {
  return ::GetFileType(::GetStdHandle(STD_INPUT_HANDLE)) == FILE_TYPE_CHAR;
}

std::filesystem::path pathFromArgument(std::string_view argument) {
  if (argument.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw std::invalid_argument(
        "korvane::setUserPassword::pathFromArgument(): the option value is 2^31 bytes or longer");
  }
  if (argument.empty()) return {};
  const UINT codePage = argumentCodePage();
  const int length = static_cast<int>(argument.size());
  const int needed = ::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, argument.data(), length,
                                           nullptr, 0);
  if (needed <= 0) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(),
                            "MultiByteToWideChar");
  }
  std::wstring wide(static_cast<std::size_t>(needed), L'\0');
  if (::MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, argument.data(), length, wide.data(),
                            needed) != needed) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(),
                            "MultiByteToWideChar");
  }
  return std::filesystem::path(std::move(wide));
}

}  // namespace korvane::setUserPassword
