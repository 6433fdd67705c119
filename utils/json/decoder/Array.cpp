#include "utils/json/decoder/Array.h"

namespace korvane::utils::json::decoder {

Array::~Array() = default;

}  // namespace korvane::utils::json::decoder
