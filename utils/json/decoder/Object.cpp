#include "utils/json/decoder/Object.h"

#include <stdexcept>

namespace korvane::utils::json::decoder {

namespace {

[[noreturn]] void failStale() {
  throw std::logic_error(
      "korvane::utils::json::decoder::Object: iterator used after the walk moved on or past the end");
}

}  // namespace

Object::~Object() = default;

Object::Iterator Object::begin() {
  if (begun_) throw std::logic_error("korvane::utils::json::decoder::Object: walked more than once");
  begun_ = true;
  step();
  return Iterator(this);
}

bool Object::step() {
  if (done_) failStale();
  std::uint64_t valueId = 0;
  detail::Position start;
  const bool more = parser_->nextMember(frameId_, member_.name_.text_, valueId, start);
  ++steps_;
  if (!more) {
    done_ = true;
    return false;
  }
  member_.value_.reset(parser_, valueId, start);
  return true;
}

void Object::checkCurrent(std::uint64_t step) const {
  if (step != steps_ || done_) failStale();
}

Member& Object::Iterator::operator*() const {
  if (object_ == nullptr) failStale();
  object_->checkCurrent(step_);
  return object_->member_;
}

Object::Iterator& Object::Iterator::operator++() {
  if (object_ == nullptr) failStale();
  object_->checkCurrent(step_);
  object_->step();
  step_ = object_->steps_;
  return *this;
}

}  // namespace korvane::utils::json::decoder
