#include <cerrno>

#include "utils/io/SystemError.h"

namespace korvane::utils::io {

std::error_code lastSystemError() noexcept { return {errno, std::generic_category()}; }

}  // namespace korvane::utils::io
