#include "setUserPassword/ProcessProtection.h"

namespace korvane::setUserPassword {

void protectProcessMemory() noexcept {}

}  // namespace korvane::setUserPassword
