// Thrown when the user cancels console input (Ctrl+C, Escape, or the end of
// input on an empty line) or the console's input ends (a terminal that hung
// up), and by callers that treat a declined confirmation the same way.
// Callers end the program quietly on it.
//
// Thread safety: an ordinary exception value.
#pragma once

#include <stdexcept>
#include <string>

namespace korvane::lineEdit {

class CancelledException : public std::runtime_error {
 public:
  static constexpr const char* defaultMessage = "user cancelled input by pressing pressed Ctrl+C";

  CancelledException() : std::runtime_error(defaultMessage) {}
  explicit CancelledException(const std::string& message) : std::runtime_error(message) {}
  explicit CancelledException(const char* message) : std::runtime_error(message) {}
};

}  // namespace korvane::lineEdit
