#include "setUserPassword/PasswordStrength.h"

#include <zxcvbn.h>

namespace korvane::setUserPassword {

double estimatePasswordEntropy(const char* password) {
  return ZxcvbnMatch(password, nullptr, nullptr);
}

}  // namespace korvane::setUserPassword
