#include <unistd.h>

#include "setUserPassword/PlatformConsole.h"

namespace korvane::setUserPassword {

std::vector<std::string> commandLineArguments(int argc, const char* const* argv) {
  return std::vector<std::string>(argv, argv + argc);
}

bool standardInputIsConsole() noexcept { return ::isatty(STDIN_FILENO) == 1; }

std::filesystem::path pathFromArgument(std::string_view argument) {
  return std::filesystem::path(argument);
}

// A terminal outlives the processes it runs: nothing to keep open.
void retainConsole() noexcept {}

}  // namespace korvane::setUserPassword
