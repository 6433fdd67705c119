#include "setUserPassword/Application.h"

#include <string>

#include "lineEdit/CancelledException.h"
#include "security/ShaCrypt.h"
#include "setUserPassword/ConfigurationSearch.h"
#include "setUserPassword/Messages.h"
#include "setUserPassword/PasswordStrength.h"
#include "setUserPassword/UserConfiguration.h"
#include "utils/core/Format.h"
#include "utils/io/File.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/ReplacementLock.h"
#include "utils/string/PrintableText.h"

namespace korvane::setUserPassword {

namespace {

// The most the console editor accepts; longer redirected lines are refused
// (the hash's cost grows with the square of the password's length).
constexpr std::size_t longestPassword = lineEdit::LineEditor::longestLine;

constexpr lineEdit::LineEditorOptions maskedOptions{false, 0, true, '*'};
constexpr lineEdit::LineEditorOptions plainOptions{false, 0, false, '*'};

constexpr std::string_view answerPrompt =
    "Please answer \"y\" or \"n\", or press Return to accept the default of \"n\".";

// The "C" locale's lower case: only 'A' to 'Z' change.
std::string toLowerClassic(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

enum class Answer { yes, no, invalid };

Answer askYesNo(std::string_view prompt) {
  lineEdit::LineEditor question(prompt, plainOptions);
  const std::string answer = toLowerClassic(std::string(question.readLine().view()));
  if (answer.empty() || answer == "n") return Answer::no;
  if (answer == "y") return Answer::yes;
  printLine(answerPrompt);
  return Answer::invalid;
}

}  // namespace

Application::Application(const CommandLine& commandLine)
    : commandLine_(commandLine),
      passwordEditor_("Password: ", maskedOptions),
      repeatPasswordEditor_("Repeat password: ", maskedOptions),
      userConfigPath_(resolveUserConfigurationFile(commandLine_)),
      passwordFile_(resolvePasswordFile(commandLine_)),
      userName_(commandLine_.userName) {}

int Application::run() {
  userUuid_ = findUser(userConfigPath_, userName_);
  if (commandLine_.stdinIsConsole) {
    checkPasswordFile();
    if (commandLine_.remove) {
      confirmRemoval();
    } else {
      hashPassword(promptNewPasswordTwice());
    }
    replacePasswordFile();
  } else {
    replaceUnattended();
  }
  printLine(utils::core::format("Password for user \"{}\" was {}",
                                utils::string::toPrintableText(userName_),
                                commandLine_.remove ? "removed." : "updated."));
  return 0;
}

// The file is read through before anything is asked, so that an error in
// it ends the run before the user types; nothing of it is kept, since the
// change is applied to the file as it is under the lock.
void Application::checkPasswordFile() const { passwordFile_.check(); }

void Application::hashPassword(const utils::core::SecureString& password) {
  const security::ShaCrypt crypt(security::ShaCrypt::sha512Tag, security::ShaCrypt::defaultRounds);
  newHash_ = crypt.hash(password.view());
}

// Another run may have replaced the file while this one waited for its user.
// Under the lock, the file is read again and this run's one change applied
// as it is copied, so that no run's change is lost. It is the file resolved
// before the prompt: whatever the folder's names point to now, the change
// goes where the first read looked.
void Application::replacePasswordFile() const {
  const utils::io::ReplacementLock lock(passwordFile_.target());
  rewritePasswordFile();
}

// REQUIRES: the folder's lock is held.
void Application::rewritePasswordFile() const {
  const PasswordChange change{userUuid_, newHash_ ? std::optional(newHash_->view()) : std::nullopt};
  passwordFile_.rewrite(change);
}

// Nothing is asked, so nothing is gained by checking the file first: it is
// read once, under the lock, where its errors come first too. Whatever
// fails before that read (an unusable password, a failure to read it or
// to take the lock) is reported once the file has been checked, as at a
// console, and then nothing is written.
void Application::replaceUnattended() {
  const auto checkedFirst = [this](const auto& step) {
    try {
      step();
    } catch (...) {
      checkPasswordFile();
      throw;
    }
  };
  if (!commandLine_.remove) checkedFirst([this] { hashPassword(readRedirectedPassword()); });
  std::optional<utils::io::ReplacementLock> lock;
  checkedFirst([&] { lock.emplace(passwordFile_.target()); });
  rewritePasswordFile();
}

void Application::confirmRemoval() const {
  const std::string prompt =
      utils::core::format("Are you sure you mant to remove the password for user \"{}\" (y|N)? ",
                          utils::string::toPrintableText(userName_));
  for (;;) {
    switch (askYesNo(prompt)) {
      case Answer::yes:
        return;
      case Answer::no:
        throw lineEdit::CancelledException("delete cancelled by user");
      case Answer::invalid:
        break;
    }
  }
}

utils::core::SecureString Application::readRedirectedPassword() const {
  // Braces: clang reads the parenthesised form as a function declaration.
  utils::io::FileInputStream<char> input{
      utils::io::File(utils::io::File::PseudoFile::standardInput)};
  utils::core::SecureString password;
  password.reserve(longestPassword + 1);
  // One byte more than allowed is enough to know the line is too long, so
  // an endless line is refused at once.
  while (password.size() <= longestPassword && input.ensureBuffer()) {
    const int c = input.get();
    if (c == '\n' || c == '\r') break;
    password.push_back(static_cast<char>(c));
  }
  if (password.empty()) throw WeakPasswordException("empty password");
  if (password.size() > longestPassword) {
    throw WeakPasswordException(
        utils::core::format("password is too long (at most {} bytes)", longestPassword));
  }
  // No login form can send a NUL byte and crypt(3) stops at it: such a
  // password could never be used.
  if (password.view().find('\0') != std::string_view::npos) {
    throw WeakPasswordException("password contains a NUL character");
  }
  if (!commandLine_.dontRejectInsecurePasswords &&
      !isStrongEnough(estimatePasswordEntropy(password.c_str()))) {
    throw WeakPasswordException(
        "password is too weak (use -DontRejectInsecurePasswords\" to allow weak passwords");
  }
  return password;
}

utils::core::SecureString Application::promptNewPasswordTwice() {
  printLine(utils::core::format("\nPlease enter the new password for user \" {}\".",
                                utils::string::toPrintableText(userName_)));
  for (;;) {
    utils::core::SecureString password = enterPassword();
    const utils::core::SecureString confirmation = repeatPasswordEditor_.readLine();
    if (password == confirmation) return password;
    printLine("The passwords do not match.");
  }
}

utils::core::SecureString Application::enterPassword() {
  for (;;) {
    utils::core::SecureString password = passwordEditor_.readLine();
    if (password.empty()) {
      printLine(
          "The password may not be empty. Please enter a password, or press \"Ctrl+C\" to "
          "exit.");
      continue;
    }
    if (isStrongEnough(estimatePasswordEntropy(password.c_str()))) return password;
    if (!commandLine_.dontRejectInsecurePasswords) {
      printLine(
          "The password you entered is too weak. Please enter a stronger password, or use the "
          "command line option \"-DontRejectInsecurePasswords\" to allow weak passwords.");
      continue;
    }
    if (confirmWeakPassword()) return password;
  }
}

bool Application::confirmWeakPassword() const {
  for (;;) {
    switch (
        askYesNo("The password you entered is too weak. Are you sure you want to use it "
                 "(y|N)? ")) {
      case Answer::yes:
        return true;
      case Answer::no:
        return false;
      case Answer::invalid:
        break;
    }
  }
}

}  // namespace korvane::setUserPassword
