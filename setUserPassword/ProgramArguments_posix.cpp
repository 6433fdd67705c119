#include "setUserPassword/ProgramArguments.h"

namespace korvane::setUserPassword {

std::vector<std::string> commandLineArguments(int argc, const char* const* argv) {
  return std::vector<std::string>(argv, argv + argc);
}

std::filesystem::path pathFromArgument(std::string_view argument) {
  return std::filesystem::path(argument);
}

}  // namespace korvane::setUserPassword
