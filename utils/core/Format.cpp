#include "utils/core/Format.h"

namespace korvane::utils::core {

std::string formatArguments(std::string_view text, fmtlib::format_args arguments) {
  return fmtlib::vformat(fmtlib::string_view(text.data(), text.size()), arguments);
}

}  // namespace korvane::utils::core
