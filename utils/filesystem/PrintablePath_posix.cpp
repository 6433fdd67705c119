#include "utils/filesystem/PrintablePath.h"
#include "utils/string/PrintableText.h"

namespace korvane::utils::filesystem {

std::string toPrintable(const std::filesystem::path& path) {
  // "\" is an ordinary file-name character here: the native form is the
  // only faithful one.
  return string::toPrintableText(path.native());
}

}  // namespace korvane::utils::filesystem
