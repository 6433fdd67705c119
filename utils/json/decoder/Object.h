// Object: a JSON object being read, walked once, forwards:
//     for (Member& member : value.asObject()) ...
// Each member's value must be read (or is skipped) before the next member.
// An Object must be destroyed, or walked to its end, before the enclosing
// walk continues; when the enclosing walk continues anyway, the rest of the
// object is skipped and this Object can no longer be used.
//
// Misuse (a second begin(), a stale iterator copy, incrementing past the
// end, use after the enclosing walk moved on) throws std::logic_error. The
// walk and its iterator are detail::Walk's, shared with Array.
//
// Thread safety: as the Document it belongs to.
#pragma once

#include <cstdint>

#include "utils/json/decoder/Member.h"
#include "utils/json/decoder/Parser.h"
#include "utils/json/decoder/Walk.h"

namespace korvane::utils::json::decoder {

class Object : public detail::Walk<Object, Member> {
 public:
  ~Object();

 private:
  friend class Value;
  friend class Document;
  friend class detail::Walk<Object, Member>;
  static constexpr const char* walkName = "Object";

  Object(detail::Parser& parser, std::uint64_t frameId) noexcept : Walk(parser, frameId) {}

  // Moves to the next member; false once the closing '}' has been read.
  // Inline: it runs once for every member read.
  bool step() {
    std::uint64_t valueId = 0;
    detail::Position start;
    if (!parser().nextMember(frameId(), member_.name_, valueId, start)) return false;
    member_.value_.reset(&parser(), valueId, start);
    return true;
  }
  Member& current() noexcept { return member_; }

  Member member_;
};

}  // namespace korvane::utils::json::decoder
