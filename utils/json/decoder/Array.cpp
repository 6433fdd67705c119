#include "utils/json/decoder/Array.h"

namespace korvane::utils::json::decoder {

Array::~Array() = default;

bool Array::step() {
  std::uint64_t valueId = 0;
  detail::Position start;
  if (!parser().nextElement(frameId(), valueId, start)) return false;
  current_.reset(&parser(), valueId, start);
  return true;
}

}  // namespace korvane::utils::json::decoder
