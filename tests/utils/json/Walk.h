// Walks of a whole JSON document for the tests: through the typed views
// (objects, arrays and strings read, other values skipped) or by skipping.
#pragma once

#include <string>

#include "utils/json/decoder/Document.h"

namespace korvane::utils::json::test {

// Reads `value` through the typed views; appends a rough rendering of what
// was read to `out` (names and strings in full), so that tests can compare.
// Strings are read character by character, or with appendTo() when
// `inRuns` is set.
inline void walkTyped(decoder::Value& value, std::string& out, bool inRuns = false) {
  switch (value.kind()) {
    case decoder::Kind::object:
      out += '{';
      for (decoder::Member& member : value.asObject()) {
        out += member.name().view();
        out += ':';
        walkTyped(member.value(), out, inRuns);
        out += ',';
      }
      out += '}';
      break;
    case decoder::Kind::array:
      out += '[';
      for (decoder::Value& element : value.asArray()) {
        walkTyped(element, out, inRuns);
        out += ',';
      }
      out += ']';
      break;
    case decoder::Kind::string:
      out += '"';
      if (inRuns) {
        value.asString().appendTo(out);
      } else {
        for (const char c : value.asString()) out += c;
      }
      out += '"';
      break;
    default:
      value.skip();
      out += '#';
      break;
  }
}

inline std::string walkTyped(decoder::Document& document, bool inRuns = false) {
  std::string out;
  walkTyped(document.root(), out, inRuns);
  document.finish();
  return out;
}

inline void walkSkipping(decoder::Document& document) {
  document.root().skip();
  document.finish();
}

}  // namespace korvane::utils::json::test
