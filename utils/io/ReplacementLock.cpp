#include "utils/io/ReplacementLock.h"

#include <stdexcept>

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::io::detail {

void throwLockHeld(const std::filesystem::path& folder) {
  throw std::runtime_error(core::format(
      "could not lock the folder \"{}\": another process has held its lock for {} seconds; "
      "nothing was written, try again when it has finished",
      filesystem::toPrintable(folder), ReplacementLock::longestWait.count()));
}

}  // namespace korvane::utils::io::detail
