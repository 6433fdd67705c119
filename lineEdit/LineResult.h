// How reading one line ended, as the edit loop and the raw line reader
// report it to LineEditor, which turns it into the line or an exception.
//
// Thread safety: plain value.
#pragma once

#include <cstddef>
#include <system_error>

namespace korvane::lineEdit {

enum class LineEnd {
  accepted,     // Enter (or a line feed on redirected input): the line stands
  cancelled,    // Ctrl+C or Escape, or Ctrl+D / Delete on an empty line
  inputEnded,   // nothing more can be read: the input is at its end
  notUtf8,      // Enter, but bytes that are not UTF-8 came during the line
  readFailed,   // reading the input failed; error tells why
  writeFailed,  // writing the prompt or the echo failed; error tells why
  noConsole,    // standard input is a console that cannot be used
};

struct LineResult {
  LineEnd end = LineEnd::accepted;
  std::size_t length = 0;  // bytes of text when accepted, 0 otherwise
  std::error_code error;   // readFailed and writeFailed only
};

}  // namespace korvane::lineEdit
