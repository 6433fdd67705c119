#include "utils/json/decoder/String.h"

#include <stdexcept>

namespace korvane::utils::json::decoder {

String::~String() = default;

void String::failStale() const {
  throw std::logic_error(
      "korvane::utils::json::decoder::String: iterator used after the walk moved on or past the "
      "end");
}

String::Iterator String::begin() {
  if (begun_)
    throw std::logic_error("korvane::utils::json::decoder::String: walked more than once");
  begun_ = true;
  step();
  return Iterator(this);
}

void String::appendTo(std::string& out) {
  if (begun_)
    throw std::logic_error("korvane::utils::json::decoder::String: walked more than once");
  begun_ = true;
  for (;;) {
    const std::span<const char> run = parser_->takePlainRun(frameId_);
    if (!run.empty()) {
      out.append(run.data(), run.size());
      continue;
    }
    if (!parser_->nextStringUnit(frameId_, unit_)) {
      unit_.length = 0;
      done_ = true;
      return;
    }
    out.append(unit_.bytes.data(), unit_.length);
  }
}

bool String::equals(std::string_view expected) {
  if (begun_)
    throw std::logic_error("korvane::utils::json::decoder::String: walked more than once");
  begun_ = true;
  bool equal = true;
  // Compares `count` bytes at `bytes` with the next part of `expected`.
  const auto compare = [&](const char* bytes, std::size_t count) {
    equal = equal && count <= expected.size() &&
            std::char_traits<char>::compare(bytes, expected.data(), count) == 0;
    expected.remove_prefix(equal ? count : expected.size());
  };
  for (;;) {
    const std::span<const char> run = parser_->takePlainRun(frameId_);
    if (!run.empty()) {
      compare(run.data(), run.size());
      continue;
    }
    if (!parser_->nextStringUnit(frameId_, unit_)) {
      unit_.length = 0;
      done_ = true;
      return equal && expected.empty();
    }
    compare(unit_.bytes.data(), unit_.length);
  }
}

bool String::stepSlow() {
  if (done_) failStale();
  // Characters left in the run while the epoch changed: the walk moved on.
  if (run_ != runEnd_) failStale();
  const std::span<const char> run = parser_->takePlainRun(frameId_);
  if (!run.empty()) {
    epoch_ = parser_->epoch();
    run_ = run.data() + 1;
    runEnd_ = run.data() + run.size();
    current_ = run.front();
    ++steps_;
    return true;
  }
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
