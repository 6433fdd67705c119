#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "utils/core/Format.h"
#include "utils/filesystem/FileExists.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::filesystem {

bool fileExists(const std::filesystem::path& path) {
  struct stat status;
  if (::stat(path.c_str(), &status) == 0) return true;
  const int error = errno;
  if (error == ENOENT || error == ENOTDIR) return false;
  // The path goes into the text in its printable form only: the error's
  // own path members would put its raw bytes into what().
  throw std::filesystem::filesystem_error(core::format("exists \"{}\"", toPrintable(path)),
                                          std::error_code(error, std::generic_category()));
}

}  // namespace korvane::utils::filesystem
