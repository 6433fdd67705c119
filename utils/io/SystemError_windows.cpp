#include <windows.h>

#include "utils/io/SystemError.h"

namespace korvane::utils::io {

std::error_code lastSystemError() noexcept {
  return {static_cast<int>(::GetLastError()), std::system_category()};
}

}  // namespace korvane::utils::io
