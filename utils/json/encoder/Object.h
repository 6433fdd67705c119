// Object: a JSON object being written. Members go out as they are added;
// destroying the Object writes the closing brace.
//
// Names and values are escaped as JSON requires: '"' and '\\', and control
// characters as \b \f \n \r \t or \u00XX. Other bytes, UTF-8 included, pass
// through unchanged.
// REQUIRES: names and values are valid UTF-8 (as the decoder yields them).
//
// Write failures of add() throw; the one met by the destructor is kept by
// the stream and reported by its flush() or close().
//
// Thread safety: as the Document it belongs to.
#pragma once

#include <string>
#include <string_view>

#include "utils/core/ZeroingAllocator.h"

namespace korvane::utils::json::encoder {

class Document;

class Object {
 public:
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  ~Object();

  // Writes one member with a string value.
  void add(std::string_view name, std::string_view value) { addStringView(name, value); }

  // What a name or piece given below needs. Escape::none promises that it
  // holds no byte that add() would escape (no control character, '"' or
  // '\\'), as a string read from JSON without any escape sequence: it is
  // then copied without a look.
  enum class Escape : bool { needed, none };

  // As add(name, value). Escape::none promises that neither the name nor
  // the value holds a byte to escape: both are then copied without a look.
  void add(std::string_view name, std::string_view value, Escape escape);

  // Writes one member whose string value comes in pieces, so that a value
  // of any length passes in constant memory: beginMember(), then
  // appendToValue() for each piece, then endMember(). The bytes written are
  // add()'s for the whole value. REQUIRES: a UTF-8 character may be split
  // between pieces only where add() would write it unchanged (any byte
  // from 0x80 on is); no other call on the Object between the three.
  void beginMember(std::string_view name, Escape escape = Escape::needed);
  void appendToValue(std::string_view piece, Escape escape = Escape::needed);
  void endMember();

 private:
  friend class Document;
  explicit Object(Document& document) noexcept;

  void addStringView(std::string_view name, std::string_view value);
  // Appends the separator before the next member, its quoted name and the colon.
  void composeStart(std::string_view name, Escape escape);
  // Writes the separator, the quoted name, the colon and the value's
  // opening quote, for a name that needs no escape.
  void writePlainStart(std::string_view name);
  void requireOpen(const char* operation, bool inMember) const;
  void close() noexcept;

  Document* document_;
  bool empty_ = true;
  bool inMember_ = false;
  // The member being composed: a hash among others. Wiped whenever it
  // grows and at the end.
  std::basic_string<char, std::char_traits<char>, core::ZeroingAllocator<char>> scratch_;
};

}  // namespace korvane::utils::json::encoder
