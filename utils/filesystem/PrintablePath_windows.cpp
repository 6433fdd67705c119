#include <windows.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <system_error>

#include "utils/filesystem/PrintablePath.h"
#include "utils/string/PrintableText.h"
#include "utils/string/Utf8.h"

namespace korvane::utils::filesystem {

std::string toPrintable(const std::filesystem::path& path) {
  const std::wstring& wide = path.native();
  if (wide.size() > static_cast<std::size_t>(std::numeric_limits<int>::max())) {
    throw std::invalid_argument("korvane::utils::filesystem::toPrintable(): path too long");
  }
  // UTF-8 whatever the code pages: a code page would show the characters it
  // lacks as others ("Ł" as "L"), naming a file that is not the one meant.
  std::optional<std::string> narrow = string::utf16ToUtf8(
      std::u16string_view(reinterpret_cast<const char16_t*>(wide.data()), wide.size()));
  if (!narrow) {
    throw std::system_error(
        ERROR_NO_UNICODE_TRANSLATION, std::system_category(),
        "korvane::utils::filesystem::toPrintable(): unpaired surrogate in a path");
  }
  std::replace(narrow->begin(), narrow->end(), '/', '\\');
  return string::toPrintableText(*narrow);
}

}  // namespace korvane::utils::filesystem
