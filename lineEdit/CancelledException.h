// CancelledException: the user cancelled console input (Ctrl+C, Escape, or
// the end of input on an empty line), or declined a question. The program
// ends silently with status 1 when it sees one.
#pragma once

#include <stdexcept>
#include <string>

namespace korvane::lineEdit {

class CancelledException : public std::runtime_error {
 public:
  CancelledException() : std::runtime_error("user cancelled input by pressing pressed Ctrl+C") {}
  explicit CancelledException(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace korvane::lineEdit
