#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <exception>
#include <random>
#include <string>
#include <system_error>

#include "utils/core/PosixCall.h"
#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {

void fillSystemRandom(std::span<std::byte> out) {
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t got =
        retryOnInterrupt([&] { return ::getrandom(out.data() + done, out.size() - done, 0); });
    if (got < 0) throw std::system_error(errno, std::generic_category(), "getrandom");
    done += static_cast<std::size_t>(got);
  }
}

namespace {

bool supportsGetentropy() {
#if defined(__GLIBCXX__)
  try {
    std::random_device device("getentropy");
    return true;
  } catch (const std::exception&) {
    return false;
  }
#else
  return false;
#endif
}

}  // namespace

const std::string& randomDeviceToken() {
  // getentropy(3) asks the kernel with one system call and no file: the
  // device constructed for every salt character costs no open and close.
  // Only libstdc++ knows the token (another library might open a file of
  // that name in the working folder).
  static const std::string token = supportsGetentropy()                  ? "getentropy"
                                   : ::access("/dev/urandom", R_OK) == 0 ? "/dev/urandom"
                                                                         : "default";
  return token;
}

}  // namespace korvane::utils::core
