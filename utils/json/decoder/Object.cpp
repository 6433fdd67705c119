#include "utils/json/decoder/Object.h"

namespace korvane::utils::json::decoder {

Object::~Object() = default;

bool Object::step() {
  std::uint64_t valueId = 0;
  detail::Position start;
  if (!parser().nextMember(frameId(), member_.name_.text_, member_.name_.escaped_, valueId, start)) return false;
  member_.value_.reset(&parser(), valueId, start);
  return true;
}

}  // namespace korvane::utils::json::decoder
