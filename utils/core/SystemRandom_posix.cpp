#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {

void fillSystemRandom(std::span<std::byte> out) {
  std::size_t done = 0;
  while (done < out.size()) {
    const ssize_t got = ::getrandom(out.data() + done, out.size() - done, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      throw std::system_error(errno, std::generic_category(), "getrandom");
    }
    done += static_cast<std::size_t>(got);
  }
}

const std::string& randomDeviceToken() {
  static const std::string token = ::access("/dev/urandom", R_OK) == 0 ? "/dev/urandom" : "default";
  return token;
}

}  // namespace korvane::utils::core
