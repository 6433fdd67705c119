// Application: one run of the tool, setting or removing one user's password.
//
// Construction resolves the user configuration file and then the password
// file, printing the line that names each. run() finds the user, reads the
// password file, then either confirms and erases the user's entry or
// obtains, checks and hashes a new password, and replaces the password
// file. Nothing is written before that replace, so any failure or
// cancellation before it leaves both files as they were.
//
// Thread safety: one object, used on the main thread.
#pragma once

#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "lineEdit/LineEditor.h"
#include "setUserPassword/CommandLine.h"
#include "setUserPassword/PasswordFile.h"
#include "setUserPassword/SecureString.h"
#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

class Application {
 public:
  // Redirected password input that cannot be used: empty, too long, holding
  // a NUL byte, or too weak. The program ends with status 2.
  class WeakPasswordException : public std::runtime_error {
   public:
    using std::runtime_error::runtime_error;
  };

  // REQUIRES: `commandLine` outlives the Application.
  explicit Application(const CommandLine& commandLine);
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;

  // Returns 0 after the change; every failure is an exception.
  int run();

 private:
  void setPassword();
  void replacePasswordFile() const;
  void confirmRemoval() const;

  // The new password: typed twice at a console, or the first line of
  // redirected input.
  SecureString readNewPassword();
  SecureString readRedirectedPassword() const;
  SecureString promptNewPasswordTwice();
  SecureString enterPassword();
  bool confirmWeakPassword() const;

  const CommandLine& commandLine_;
  lineEdit::LineEditor passwordEditor_;
  lineEdit::LineEditor repeatPasswordEditor_;
  std::filesystem::path userConfigPath_;
  PasswordFile passwordFile_;
  std::string_view userName_;
  utils::core::Uuid userUuid_;
};

}  // namespace korvane::setUserPassword
