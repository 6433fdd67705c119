#include "utils/json/decoder/Value.h"

#include <stdexcept>

#include "utils/json/decoder/Array.h"
#include "utils/json/decoder/Object.h"
#include "utils/json/decoder/String.h"

namespace korvane::utils::json::decoder {

void Value::failNoValue() {
  throw std::logic_error("korvane::utils::json::decoder::Value: no value here");
}

Kind Value::kind() {
  detail::Parser& parser = this->parser();
  const int c = parser.peekValue(id_);
  switch (c) {
    case '{':
      return Kind::object;
    case '[':
      return Kind::array;
    case '"':
      return Kind::string;
    case 't':
    case 'f':
      return Kind::boolean;
    case 'n':
      return Kind::null;
    default:
      break;
  }
  if (c == '-' || (c >= '0' && c <= '9')) return Kind::number;
  parser.failNotValue();
}

Object Value::asObject() {
  detail::Parser& parser = this->parser();
  return Object(parser, parser.openObject(id_));
}

Array Value::asArray() {
  detail::Parser& parser = this->parser();
  return Array(parser, parser.openArray(id_));
}

String Value::asString() {
  detail::Parser& parser = this->parser();
  return String(parser, parser.openString(id_));
}

Location Value::location() const {
  if (parser_ == nullptr) return {};
  return parser_->locate(start_);
}

}  // namespace korvane::utils::json::decoder
