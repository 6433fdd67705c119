// How reading one line ended, as the edit loop and the raw line reader
// report it to LineEditor, which turns it into the line or an exception.
// The ends are what the user or the console did with the line; a system
// failure's reason is not carried here but left in errno, by the line
// editor's one convention.
//
// Thread safety: plain value.
#pragma once

#include <cstddef>

namespace korvane::lineEdit {

enum class LineEnd {
  accepted,     // Enter (or a line feed on redirected input): the line stands
  cancelled,    // Ctrl+C or Escape, or Ctrl+D / Delete on an empty line
  inputEnded,   // nothing more can be read: the input is at its end
  notUtf8,      // Enter, but bytes that are not UTF-8 came during the line
  readFailed,   // reading the input failed; errno tells why
  writeFailed,  // writing the prompt or the echo failed; errno tells why
  noConsole,    // standard input is a console that cannot be used (errno ENOTTY)
};

struct LineResult {
  LineEnd end = LineEnd::accepted;
  std::size_t length = 0;  // bytes of text when accepted, 0 otherwise
};

}  // namespace korvane::lineEdit
