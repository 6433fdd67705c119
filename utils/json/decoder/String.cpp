#include "utils/json/decoder/String.h"

#include <span>
#include <string>

namespace korvane::utils::json::decoder {

String::~String() = default;

void String::appendTo(std::string& out) {
  beginWhole();
  for (;;) {
    const std::span<const char> run = parser().takePlainRun(frameId());
    if (!run.empty()) {
      out.append(run.data(), run.size());
      continue;
    }
    if (!parser().nextStringUnit(frameId(), unit_)) {
      unit_.length = 0;
      finishWhole();
      return;
    }
    out.append(unit_.bytes.data(), unit_.length);
  }
}

bool String::equals(std::string_view expected) {
  beginWhole();
  bool equal = true;
  // Compares `count` bytes at `bytes` with the next part of `expected`.
  const auto compare = [&](const char* bytes, std::size_t count) {
    equal = equal && count <= expected.size() &&
            std::char_traits<char>::compare(bytes, expected.data(), count) == 0;
    expected.remove_prefix(equal ? count : expected.size());
  };
  for (;;) {
    const std::span<const char> run = parser().takePlainRun(frameId());
    if (!run.empty()) {
      compare(run.data(), run.size());
      continue;
    }
    if (!parser().nextStringUnit(frameId(), unit_)) {
      unit_.length = 0;
      finishWhole();
      return equal && expected.empty();
    }
    compare(unit_.bytes.data(), unit_.length);
  }
}

bool String::stepSlow() {
  // Characters left in the run while the epoch changed: the walk moved on.
  if (run_ != runEnd_) detail::failStaleWalk(walkName);
  const std::span<const char> run = parser().takePlainRun(frameId());
  if (!run.empty()) {
    epoch_ = parser().epoch();
    run_ = run.data() + 1;
    runEnd_ = run.data() + run.size();
    current_ = run.front();
    return true;
  }
  if (!parser().nextStringUnit(frameId(), unit_)) {
    unit_.length = 0;
    unitIndex_ = 0;
    return false;
  }
  current_ = unit_.bytes[0];
  unitIndex_ = 1;
  return true;
}

}  // namespace korvane::utils::json::decoder
