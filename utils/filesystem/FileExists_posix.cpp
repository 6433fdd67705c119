#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "utils/filesystem/FileExists.h"

namespace korvane::utils::filesystem {

bool fileExists(const std::filesystem::path& path) {
  struct stat status;
  if (::stat(path.c_str(), &status) == 0) return true;
  const int error = errno;
  if (error == ENOENT || error == ENOTDIR) return false;
  throw std::filesystem::filesystem_error("exists", path,
                                          std::error_code(error, std::generic_category()));
}

}  // namespace korvane::utils::filesystem
