#include "utils/io/SystemError.h"

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/FileNotFoundError.h"

namespace korvane::utils::io {

std::string describeFileOperation(std::string_view operation, const std::filesystem::path& path) {
  return core::format("could not {} \"{}\"", operation, filesystem::toPrintable(path));
}

void throwFileError(std::string_view operation, const std::filesystem::path& path,
                    std::error_code code, bool notFoundMeansMissing) {
  const std::string what = describeFileOperation(operation, path);
  if (notFoundMeansMissing && code == std::errc::no_such_file_or_directory) {
    throw FileNotFoundError(code, what, path);
  }
  throw std::system_error(code, what);
}

}  // namespace korvane::utils::io
