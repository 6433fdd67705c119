#include "utils/json/decoder/WrappedException.h"

namespace korvane::utils::json::decoder {

void throwAtLocation(const Location& location, const std::string& message) {
  std::runtime_error error(message);
  if (location) throw detail::WrappedException<std::runtime_error>(location, error);
  throw error;
}

}  // namespace korvane::utils::json::decoder
