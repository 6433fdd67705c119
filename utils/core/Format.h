// The one place that names the text-formatting library. Everything else
// formats through korvane::utils::core::format, so moving to std::format
// once every supported compiler has <format> changes this header only.
//
// Types that format themselves specialise korvane::utils::core::fmtlib::formatter.
#pragma once

#include <fmt/format.h>

#include <string>
#include <utility>

namespace korvane::utils::core {

namespace fmtlib = ::fmt;

template <typename... Args>
using FormatString = fmtlib::format_string<Args...>;

using FormatError = fmtlib::format_error;

template <typename... Args>
std::string format(FormatString<Args...> text, Args&&... args) {
  return fmtlib::format(text, std::forward<Args>(args)...);
}

// For format strings chosen at run time (tests of formatters).
template <typename... Args>
std::string formatRuntime(std::string_view text, Args&&... args) {
  return fmtlib::vformat(text, fmtlib::make_format_args(args...));
}

}  // namespace korvane::utils::core
