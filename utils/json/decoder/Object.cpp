#include "utils/json/decoder/Object.h"

namespace korvane::utils::json::decoder {

Object::~Object() = default;

}  // namespace korvane::utils::json::decoder
