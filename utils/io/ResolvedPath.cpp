#include "utils/io/ResolvedPath.h"

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::io::detail {

void throwChangedDuringRun(const std::filesystem::path& path) {
  throw std::runtime_error(core::format(
      "\"{}\" was changed or replaced by another program during the run; nothing was replaced",
      filesystem::toPrintable(path)));
}

}  // namespace korvane::utils::io::detail
