// Member: the current member of an Object walk: its Name and its Value.
//
// Thread safety: as the Object that owns it.
#pragma once

#include "utils/json/decoder/Name.h"
#include "utils/json/decoder/Value.h"

namespace korvane::utils::json::decoder {

class Member {
 public:
  Member(const Member&) = delete;
  Member& operator=(const Member&) = delete;

  Name& name() noexcept { return name_; }
  const Name& name() const noexcept { return name_; }
  Value& value() noexcept { return value_; }

 private:
  friend class Object;
  Member() = default;

  Name name_;
  Value value_;
};

}  // namespace korvane::utils::json::decoder
