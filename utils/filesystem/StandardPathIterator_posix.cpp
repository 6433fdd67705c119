#include <cstdlib>
#include <string_view>

#include "utils/filesystem/StandardPathIterator.h"

namespace korvane::utils::filesystem::detail {

std::vector<std::filesystem::path> standardDirectories(StandardPath) {
  std::vector<std::filesystem::path> directories;
  const char* variable = std::getenv("XDG_CONFIG_DIRS");
  std::string_view rest = variable != nullptr ? variable : "";
  while (!rest.empty()) {
    const std::size_t colon = rest.find(':');
    const std::string_view entry = rest.substr(0, colon);
    // Relative entries are invalid by the base-directory rules and ignored.
    if (!entry.empty() && entry.front() == '/') directories.emplace_back(entry);
    if (colon == std::string_view::npos) break;
    rest.remove_prefix(colon + 1);
  }
  if (directories.empty()) directories.emplace_back("/etc/xdg");
  return directories;
}

}  // namespace korvane::utils::filesystem::detail
