#include "utils/io/ReplacementLock.h"

#include <stdexcept>

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"

namespace korvane::utils::io::detail {

void throwLockHeld(std::string_view what, const std::filesystem::path& path) {
  throw std::runtime_error(core::format(
      "could not lock the {} \"{}\": another process has held its lock for {} seconds; "
      "nothing was written, try again when it has finished",
      what, filesystem::toPrintable(path), ReplacementLock::longestWait.count()));
}

}  // namespace korvane::utils::io::detail
