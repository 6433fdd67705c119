#include "utils/windows/RetainConsole.h"

namespace korvane::utils::windows {

// A terminal outlives the processes it runs: nothing to keep open.
void retainConsole() noexcept {}

}  // namespace korvane::utils::windows
