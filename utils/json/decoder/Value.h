// Value: one JSON value in the input, not yet read. It is read at most
// once, as one kind: asObject(), asArray(), asString(), toUuid() or skip().
// A value that is left unread is skipped when the walk moves on.
//
// Reading a value that was already read, or after the enclosing walk moved
// on, throws std::logic_error. Reading it as the wrong kind throws a decoder
// Exception (see Exception.h) at the value's location.
//
// Thread safety: as the Document it belongs to.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "utils/core/Uuid.h"
#include "utils/json/decoder/Location.h"
#include "utils/json/decoder/Parser.h"

namespace korvane::utils::json::decoder {

class Object;
class Array;
class String;

enum class Kind { object, array, string, number, boolean, null };

class Value {
 public:
  Value(const Value&) = delete;
  Value& operator=(const Value&) = delete;

  // The kind of the value, from its first character; does not read it.
  Kind kind();

  Object asObject();
  Array asArray();
  String asString();
  // The reads below are inline: a walk over many small values makes them
  // by the million.

  // A string holding a UUID's text (see core::Uuid::fromString).
  core::Uuid toUuid() { return parser().readUuid(id_); }
  // A string: whether it is `text` byte for byte. As asString().equals(),
  // in one step.
  bool stringEquals(std::string_view text) { return parser().stringEquals(id_, text); }
  // A string in an object or array that holds no escape sequence and no
  // byte from 0x80 on, and that is whole in the buffer (the usual short
  // string), taken in one step: its text, valid until the next read from
  // the Document. Any other string gives std::nullopt and is left unread,
  // for asString(); a value of another kind throws as asString() does.
  [[nodiscard]] std::optional<std::string_view> takePlainString() {
    return parser().takePlainString(id_);
  }
  // Consumes the value, whatever its kind and depth, unread.
  void skip() { parser().skipValue(id_); }

  // Where the value starts; unknown for a value that was never positioned.
  Location location() const;

 private:
  friend class Document;
  friend class Member;
  friend class Object;
  friend class Array;

  Value() = default;
  void reset(detail::Parser* parser, std::uint64_t id, const detail::Position& start) noexcept {
    parser_ = parser;
    id_ = id;
    start_ = start;
  }
  detail::Parser& parser() const {
    if (parser_ == nullptr) failNoValue();
    return *parser_;
  }
  [[noreturn]] static void failNoValue();

  detail::Parser* parser_ = nullptr;
  std::uint64_t id_ = 0;
  detail::Position start_;
};

}  // namespace korvane::utils::json::decoder
