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

namespace korvane::utils::json::encoder {

class Document;

class Object {
 public:
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  ~Object();

  // Writes one member with a string value.
  void add(std::string_view name, std::string_view value) { addStringView(name, value); }

 private:
  friend class Document;
  explicit Object(Document& document) noexcept;

  void addStringView(std::string_view name, std::string_view value);
  void close() noexcept;

  Document* document_;
  bool empty_ = true;
  std::string scratch_;  // the member being composed; wiped at the end
};

}  // namespace korvane::utils::json::encoder
