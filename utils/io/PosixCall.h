// retryOnInterrupt: the one place where a POSIX call interrupted by a signal
// (EINTR) is made again. Only for the _posix sources of this library.
//
// Thread safety: reentrant.
#pragma once

#include <cerrno>

namespace korvane::utils::io::detail {

// Calls `call` until it succeeds or fails for another reason than EINTR;
// returns its last result (negative with errno set on failure).
template <typename Call>
auto retryOnInterrupt(Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

}  // namespace korvane::utils::io::detail
