#include "utils/json/decoder/Array.h"

#include <stdexcept>

namespace korvane::utils::json::decoder {

namespace {

[[noreturn]] void failStale() {
  throw std::logic_error(
      "korvane::utils::json::decoder::Array: iterator used after the walk moved on or past the end");
}

}  // namespace

Array::~Array() = default;

Array::Iterator Array::begin() {
  if (begun_) throw std::logic_error("korvane::utils::json::decoder::Array: walked more than once");
  begun_ = true;
  step();
  return Iterator(this);
}

bool Array::step() {
  if (done_) failStale();
  std::uint64_t valueId = 0;
  detail::Position start;
  const bool more = parser_->nextElement(frameId_, valueId, start);
  ++steps_;
  if (!more) {
    done_ = true;
    return false;
  }
  current_.reset(parser_, valueId, start);
  return true;
}

void Array::checkCurrent(std::uint64_t step) const {
  if (step != steps_ || done_) failStale();
}

Value& Array::Iterator::operator*() const {
  if (array_ == nullptr) failStale();
  array_->checkCurrent(step_);
  return array_->current_;
}

Array::Iterator& Array::Iterator::operator++() {
  if (array_ == nullptr) failStale();
  array_->checkCurrent(step_);
  array_->step();
  step_ = array_->steps_;
  return *this;
}

}  // namespace korvane::utils::json::decoder
