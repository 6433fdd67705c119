#include <sys/resource.h>

#if defined(__linux__)
#include <sys/prctl.h>
#endif

#include "setUserPassword/ProcessProtection.h"

namespace korvane::setUserPassword {

void protectProcessMemory() noexcept {
  const rlimit noCore{0, 0};
  ::setrlimit(RLIMIT_CORE, &noCore);
#if defined(__linux__)
  ::prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
#endif
}

}  // namespace korvane::setUserPassword
