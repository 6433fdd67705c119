#include "utils/io/ResolvedPath.h"

#include <utility>

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::io {

ResolvedPath::ResolvedPath(ResolvedPath&& other) noexcept
    : path_(std::move(other.path_)),
      folderPath_(std::move(other.folderPath_)),
      name_(std::move(other.name_)),
      folder_(std::exchange(other.folder_, File::invalidHandle)) {}

namespace detail {

void throwChangedDuringRun(const std::filesystem::path& path) {
  throw ChangedDuringRunError(core::format(
      "\"{}\" was changed or replaced by another program during the run; nothing was replaced",
      filesystem::toPrintable(path)));
}

}  // namespace detail

}  // namespace korvane::utils::io
