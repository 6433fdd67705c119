#include "utils/json/decoder/Walk.h"

#include <stdexcept>
#include <string>

namespace korvane::utils::json::decoder::detail {

void failStaleWalk(const char* view) {
  throw std::logic_error(std::string("korvane::utils::json::decoder::") + view +
                         ": iterator used after the walk moved on or past the end");
}

void failWalkedTwice(const char* view) {
  throw std::logic_error(std::string("korvane::utils::json::decoder::") + view +
                         ": walked more than once");
}

}  // namespace korvane::utils::json::decoder::detail
