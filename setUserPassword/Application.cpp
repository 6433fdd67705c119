#include "setUserPassword/Application.h"

#include "setUserPassword/ConfigurationSearch.h"

namespace korvane::setUserPassword {

Application::Application(const CommandLine& commandLine)
    : commandLine_(commandLine),
      userConfigPath_(resolveUserConfigurationFile(commandLine_)),
      passwordFilePath_(resolvePasswordFile(commandLine_)) {}

int Application::run() {
  throw std::runtime_error("setting and removing passwords is not available in this build yet");
}

}  // namespace korvane::setUserPassword
