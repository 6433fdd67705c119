#include "utils/io/FileReplacement.h"

#include <system_error>

namespace korvane::utils::io {

namespace {

// As many links as the kernel follows before it reports ELOOP.
constexpr int maxLinksFollowed = 40;

}  // namespace

std::filesystem::path resolveReplacementTarget(const std::filesystem::path& path) {
  std::filesystem::path current = path;
  for (int followed = 0; followed <= maxLinksFollowed; ++followed) {
    std::error_code error;
    const auto status = std::filesystem::symlink_status(current, error);
    if (error && status.type() != std::filesystem::file_type::not_found) {
      throw std::filesystem::filesystem_error("stat", current, error);
    }
    if (status.type() != std::filesystem::file_type::symlink) return current;
    const std::filesystem::path target = std::filesystem::read_symlink(current);
    current = target.is_absolute() ? target : current.parent_path() / target;
  }
  throw std::filesystem::filesystem_error(
      "resolve link", path, std::make_error_code(std::errc::too_many_symbolic_link_levels));
}

}  // namespace korvane::utils::io
