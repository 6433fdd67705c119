#include <windows.h>
// windows.h first: bcrypt.h needs its types.
#include <bcrypt.h>

#include <system_error>

#include "utils/core/SystemRandom.h"

namespace korvane::utils::core {

void fillSystemRandom(std::span<std::byte> out) {
  std::size_t done = 0;
  while (done < out.size()) {
    const auto chunk = static_cast<ULONG>(std::min<std::size_t>(out.size() - done, 1u << 30));
    const NTSTATUS status = ::BCryptGenRandom(nullptr, reinterpret_cast<PUCHAR>(out.data() + done),
                                              chunk, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
    if (status < 0) {
      throw std::system_error(static_cast<int>(status), std::system_category(), "BCryptGenRandom");
    }
    done += chunk;
  }
}

// The standard library's default device is the system's source here.
const std::string& randomDeviceToken() {
  static const std::string token = "default";
  return token;
}

}  // namespace korvane::utils::core
