#include "utils/json/decoder/Location.h"

#include "utils/core/Format.h"

namespace korvane::utils::json::decoder {

std::string Location::toString() const {
  return core::format("\"{}\", line {}, column {}", source(), line_, column_);
}

}  // namespace korvane::utils::json::decoder
