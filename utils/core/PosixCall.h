// retryOnInterrupt: the one place where a POSIX call interrupted by a signal
// (EINTR) is made again, for the _posix sources of every library. In the
// core library so that the libraries that do not depend on each other (the
// files', the line editor's) share it.
//
// Thread safety: reentrant.
#pragma once

#include <cerrno>

namespace korvane::utils::core {

// Calls `call` until it succeeds or fails for another reason than EINTR;
// returns its last result (negative with errno set on failure).
template <typename Call>
auto retryOnInterrupt(Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

}  // namespace korvane::utils::core
