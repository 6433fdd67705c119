#include <windows.h>

// After windows.h, which it needs.
#include <shellapi.h>

#include <cwchar>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "setUserPassword/ProgramArguments.h"
#include "utils/string/Utf8.h"

namespace korvane::setUserPassword {

namespace {

struct LocalMemory {
  void operator()(void* memory) const noexcept { ::LocalFree(memory); }
};

[[noreturn]] void throwNoTranslation(const char* what) {
  throw std::system_error(ERROR_NO_UNICODE_TRANSLATION, std::system_category(), what);
}

}  // namespace

std::vector<std::string> commandLineArguments(int, const char* const*) {
  int count = 0;
  const std::unique_ptr<LPWSTR, LocalMemory> wide(
      ::CommandLineToArgvW(::GetCommandLineW(), &count));
  if (!wide) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(),
                            "CommandLineToArgvW");
  }
  std::vector<std::string> arguments;
  arguments.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    const wchar_t* argument = wide.get()[i];
    std::optional<std::string> utf8 = utils::string::utf16ToUtf8(
        std::u16string_view(reinterpret_cast<const char16_t*>(argument), std::wcslen(argument)));
    if (!utf8) throwNoTranslation("a command-line argument holds an unpaired surrogate");
    arguments.push_back(std::move(*utf8));
  }
  return arguments;
}

std::filesystem::path pathFromArgument(std::string_view argument) {
  if (argument.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw std::invalid_argument(
        "korvane::setUserPassword::pathFromArgument(): the option value is 2^31 bytes or longer");
  }
  // The arguments are UTF-8 (commandLineArguments); the path is made from
  // them explicitly, never through a code page that could change a name.
  const std::optional<std::u16string> wide = utils::string::utf8ToUtf16(argument);
  if (!wide) throwNoTranslation("korvane::setUserPassword::pathFromArgument(): invalid UTF-8");
  return std::filesystem::path(
      std::wstring(reinterpret_cast<const wchar_t*>(wide->data()), wide->size()));
}

}  // namespace korvane::setUserPassword
