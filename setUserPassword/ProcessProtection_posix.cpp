#include <sys/resource.h>

#include <csignal>

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

void ignoreFileSizeSignal() noexcept { std::signal(SIGXFSZ, SIG_IGN); }

}  // namespace korvane::setUserPassword
