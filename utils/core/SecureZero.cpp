#include "utils/core/SecureZero.h"

namespace korvane::utils::core {

void secureZero(void* data, std::size_t size) noexcept {
  // Each store goes through a volatile lvalue, so none may be elided even
  // when the memory is freed right afterwards.
  volatile unsigned char* bytes = static_cast<volatile unsigned char*>(data);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = 0;
}

}  // namespace korvane::utils::core
