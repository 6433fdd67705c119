// A deterministic stand-in for the zxcvbn strength estimate, for the test
// variant of the program (README.md in this folder): the password's length
// times log2 of the size of the character classes it uses.
#include <cmath>
#include <string_view>

#include "setUserPassword/PasswordStrength.h"

namespace korvane::setUserPassword {

namespace {

constexpr int lowerCaseLetters = 26;
constexpr int upperCaseLetters = 26;
constexpr int digits = 10;
constexpr int otherCharacters = 33;  // printable ASCII punctuation and space

int alphabetSize(std::string_view password) {
  bool lower = false;
  bool upper = false;
  bool digit = false;
  bool other = false;
  for (const char c : password) {
    if (c >= 'a' && c <= 'z') {
      lower = true;
    } else if (c >= 'A' && c <= 'Z') {
      upper = true;
    } else if (c >= '0' && c <= '9') {
      digit = true;
    } else {
      other = true;
    }
  }
  return (lower ? lowerCaseLetters : 0) + (upper ? upperCaseLetters : 0) + (digit ? digits : 0) +
         (other ? otherCharacters : 0);
}

}  // namespace

double estimatePasswordEntropy(const char* password) {
  const std::string_view text(password);
  if (text.empty()) return 0.0;
  return static_cast<double>(text.size()) * std::log2(static_cast<double>(alphabetSize(text)));
}

}  // namespace korvane::setUserPassword
