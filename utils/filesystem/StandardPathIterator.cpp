#include "utils/filesystem/StandardPathIterator.h"

namespace korvane::utils::filesystem {

StandardPathIterator::StandardPathIterator(StandardPath which)
    : directories_(detail::standardDirectories(which)) {}

}  // namespace korvane::utils::filesystem
