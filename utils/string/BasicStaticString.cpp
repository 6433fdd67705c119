#include "utils/string/BasicStaticString.h"

#include <string>

namespace korvane::utils::string::detail {

void throwStaticStringLengthError(std::size_t size, std::size_t capacity) {
  throw std::length_error("korvane::utils::string::BasicStaticString: size of " +
                          std::to_string(size) + " exceeds capacity of " +
                          std::to_string(capacity));
}

}  // namespace korvane::utils::string::detail
