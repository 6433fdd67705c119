// The one place that names the text-formatting library. Everything else
// formats through korvane::utils::core::format, so moving to std::format
// once every supported compiler has <format> changes this header only.
//
// Types that format themselves specialise korvane::utils::core::fmtlib::formatter.
//
// The templates below only capture their arguments; the formatting itself
// is compiled once, in formatArguments(). Called inline, the library's
// formatting engine (floating point included) would be compiled into every
// file that formats a message, making the program a third larger and
// slower to load.
//
// Thread safety: pure functions.
#pragma once

#include <fmt/format.h>

#include <string>
#include <string_view>

namespace korvane::utils::core {

namespace fmtlib = ::fmt;

template <typename... Args>
using FormatString = fmtlib::format_string<Args...>;

using FormatError = fmtlib::format_error;

// `text` with its replacement fields replaced by `arguments`.
// Throws FormatError where `text` does not fit the arguments.
std::string formatArguments(std::string_view text, fmtlib::format_args arguments);

// The format string is checked against the arguments when compiling.
template <typename... Args>
std::string format(FormatString<Args...> text, Args&&... args) {
  const auto view = static_cast<fmtlib::string_view>(text);
  return formatArguments(std::string_view(view.data(), view.size()),
                         fmtlib::make_format_args(args...));
}

// For format strings chosen at run time (tests of formatters).
template <typename... Args>
std::string formatRuntime(std::string_view text, Args&&... args) {
  return formatArguments(text, fmtlib::make_format_args(args...));
}

}  // namespace korvane::utils::core
