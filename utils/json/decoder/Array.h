// Array: a JSON array being read, walked once, forwards:
//     for (Value& element : value.asArray()) ...
// The same rules as for Object apply (see Object.h); the walk and its
// iterator are detail::Walk's.
//
// Thread safety: as the Document it belongs to.
#pragma once

#include <cstdint>

#include "utils/json/decoder/Parser.h"
#include "utils/json/decoder/Value.h"
#include "utils/json/decoder/Walk.h"

namespace korvane::utils::json::decoder {

class Array : public detail::Walk<Array, Value> {
 public:
  ~Array();

 private:
  friend class Value;
  friend class Document;
  friend class detail::Walk<Array, Value>;
  static constexpr const char* walkName = "Array";

  Array(detail::Parser& parser, std::uint64_t frameId) noexcept : Walk(parser, frameId) {}

  // Moves to the next element; false once the closing ']' has been read.
  // Inline: it runs once for every element read.
  bool step() {
    std::uint64_t valueId = 0;
    detail::Position start;
    if (!parser().nextElement(frameId(), valueId, start)) return false;
    current_.reset(&parser(), valueId, start);
    return true;
  }
  Value& current() noexcept { return current_; }

  Value current_;
};

}  // namespace korvane::utils::json::decoder
