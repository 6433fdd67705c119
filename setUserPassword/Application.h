// Application: one run of the tool, setting or removing one user's password.
//
// Construction resolves the user configuration file and the password file,
// printing the line that names each. run() finds the user, reads the
// password file, makes the one change and replaces the password file.
//
// Thread safety: one object, used on the main thread.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "setUserPassword/CommandLine.h"

namespace korvane::setUserPassword {

class Application {
 public:
  // Redirected password input that cannot be used: empty or too weak.
  class WeakPasswordException : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  explicit Application(const CommandLine& commandLine);
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  // Returns 0 after the change; every failure is an exception.
  int run();

 private:
  const CommandLine& commandLine_;
  std::filesystem::path userConfigPath_;
  std::filesystem::path passwordFilePath_;
};

}  // namespace korvane::setUserPassword
