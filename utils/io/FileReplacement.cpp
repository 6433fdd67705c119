#include "utils/io/FileReplacement.h"

#include <system_error>

#include "utils/io/SystemError.h"

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
      throwFileError("read the attributes of", current, error);
    }
    if (status.type() != std::filesystem::file_type::symlink) return current;
    std::error_code readError;
    const std::filesystem::path target = std::filesystem::read_symlink(current, readError);
    if (readError) throwFileError("read the link", current, readError);
    current = target.is_absolute() ? target : current.parent_path() / target;
  }
  throwFileError("follow the links of", path,
                 std::make_error_code(std::errc::too_many_symbolic_link_levels));
}

}  // namespace korvane::utils::io
