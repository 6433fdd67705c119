// Walks of a whole JSON document for the tests: through the typed views
// (objects, arrays and strings read, other values skipped) or by skipping.
#pragma once

#include <string>

#include "utils/json/decoder/Document.h"

namespace korvane::utils::json::test {

// Reads `value` through the typed views; appends a rough rendering of what
// was read to `out` (names and strings in full), so that tests can compare.
inline void walkTyped(decoder::Value& value, std::string& out) {
  switch (value.kind()) {
    case decoder::Kind::object:
      out += '{';
      for (decoder::Member& member : value.asObject()) {
        out += member.name().view();
        out += ':';
        walkTyped(member.value(), out);
        out += ',';
      }
      out += '}';
      break;
    case decoder::Kind::array:
      out += '[';
      for (decoder::Value& element : value.asArray()) {
        walkTyped(element, out);
        out += ',';
      }
      out += ']';
      break;
    case decoder::Kind::string:
      out += '"';
      for (const char c : value.asString()) out += c;
      out += '"';
      break;
    default:
      value.skip();
      out += '#';
      break;
  }
}

inline std::string walkTyped(decoder::Document& document) {
  std::string out;
  walkTyped(document.root(), out);
  document.finish();
  return out;
}

inline void walkSkipping(decoder::Document& document) {
  document.root().skip();
  document.finish();
}

}  // namespace korvane::utils::json::test
