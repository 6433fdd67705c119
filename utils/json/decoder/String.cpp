#include "utils/json/decoder/String.h"

#include <stdexcept>

namespace korvane::utils::json::decoder {

String::~String() = default;

void String::failStale() const {
  throw std::logic_error(
      "korvane::utils::json::decoder::String: iterator used after the walk moved on or past the end");
}

String::Iterator String::begin() {
  if (begun_) throw std::logic_error("korvane::utils::json::decoder::String: walked more than once");
  begun_ = true;
  step();
  return Iterator(this);
}

bool String::stepSlow() {
  if (done_) failStale();
  const bool more = parser_->nextStringUnit(frameId_, unit_);
  ++steps_;
  if (!more) {
    unit_.length = 0;
    unitIndex_ = 0;
    done_ = true;
    return false;
  }
  current_ = unit_.bytes[0];
  unitIndex_ = 1;
  return true;
}

}  // namespace korvane::utils::json::decoder
