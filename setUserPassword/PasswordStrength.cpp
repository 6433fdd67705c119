#include "setUserPassword/PasswordStrength.h"

#include <zxcvbn.h>

namespace korvane::setUserPassword {

double estimatePasswordEntropy(const char* password) {
  return ZxcvbnMatch(password, nullptr, nullptr);
}

bool isStrongEnough(double entropy) noexcept {
  // Written so that NaN fails the test.
  return entropy >= minimumPasswordEntropy;
}

}  // namespace korvane::setUserPassword
