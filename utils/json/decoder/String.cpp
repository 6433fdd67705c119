#include "utils/json/decoder/String.h"

#include <span>
#include <string>

namespace korvane::utils::json::decoder {

String::~String() = default;

void String::appendTo(std::string& out) {
  forEachPiece([&out](std::string_view piece, bool) { out.append(piece); });
}

bool String::equals(std::string_view expected) {
  bool equal = true;
  forEachPiece([&](std::string_view piece, bool) {
    equal = equal && piece.size() <= expected.size() &&
            std::char_traits<char>::compare(piece.data(), expected.data(), piece.size()) == 0;
    expected.remove_prefix(equal ? piece.size() : expected.size());
  });
  return equal && expected.empty();
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
  bool escaped = false;
  if (!parser().nextStringUnit(frameId(), unit_, escaped)) {
    unit_.length = 0;
    unitIndex_ = 0;
    return false;
  }
  current_ = unit_.bytes[0];
  unitIndex_ = 1;
  return true;
}

}  // namespace korvane::utils::json::decoder
