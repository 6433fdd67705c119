// Format: the layout of the text an encoder Document writes.
//
//   indented (0): two spaces of indentation, one member per line, written as
//                 "name": "value", the closing brace on its own line, and a
//                 line feed at the end; an empty object is "{}" and a line
//                 feed.
//   compact (1):  no whitespace at all, and no final line feed.
#pragma once

namespace korvane::utils::json::encoder {

enum class Format { indented = 0, compact = 1 };

}  // namespace korvane::utils::json::encoder
