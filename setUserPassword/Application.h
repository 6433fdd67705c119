// Application: one run of the tool, setting or removing one user's password.
//
// Construction resolves the user configuration file and then the password
// file, printing the line that names each. run() finds the user; at a
// console it checks the password file (read through, nothing kept), then
// either confirms the removal or obtains, checks and hashes a new
// password; under the lock it copies the file to a new one, that one
// change applied on the way, and replaces the file with it. With
// redirected input nothing is asked: the password is read first and the
// file only once, under the lock, its errors still reported before those
// of the password.
// Nothing is written before that replace, so any failure or cancellation
// before it leaves both files as they were. Only the pending change is kept
// across the prompt, never a copy of the file.
//
// Thread safety: one object, used on the main thread.
#pragma once

#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string_view>

#include "lineEdit/LineEditor.h"
#include "security/ShaCrypt.h"
#include "setUserPassword/CommandLine.h"
#include "setUserPassword/PasswordFile.h"
#include "utils/core/SecureString.h"
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
  void checkPasswordFile() const;
  void hashPassword(const utils::core::SecureString& password);
  void replacePasswordFile() const;
  void rewritePasswordFile() const;
  void replaceUnattended();
  // Asks whether to remove the password; throws CancelledException unless
  // the answer is yes. REQUIRES: standard input is a console.
  void confirmRemoval() const;

  // The new password: the first line of redirected input, or typed twice
  // at a console.
  utils::core::SecureString readRedirectedPassword() const;
  utils::core::SecureString promptNewPasswordTwice();
  utils::core::SecureString enterPassword();
  bool confirmWeakPassword() const;

  const CommandLine& commandLine_;
  lineEdit::LineEditor passwordEditor_;
  lineEdit::LineEditor repeatPasswordEditor_;
  std::filesystem::path userConfigPath_;
  // The file's one resolution, not its content.
  PasswordFile passwordFile_;
  std::string_view userName_;
  utils::core::Uuid userUuid_;
  // The pending change: the new hash, or none for a removal.
  std::optional<security::ShaCrypt::HashString> newHash_;
};

}  // namespace korvane::setUserPassword
