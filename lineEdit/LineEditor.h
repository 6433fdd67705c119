// LineEditor reads one line from the console with in-place editing (cursor
// keys, Home/End, Backspace/Delete, kill commands) and, when masked, echoes a
// mask character per column instead of the text. When standard input is not
// a console it shows no prompt and reads a plain line.
//
// Thread safety: the editors of a process share one set of settings and one
// history, swapped in under a process-wide mutex at the start of readLine and
// out at its end. The editing itself is not locked: only one thread may read
// from the console at a time.
#pragma once

#include <string>
#include <string_view>

#include "lineEdit/EditLoop.h"
#include "lineEdit/History.h"
#include "lineEdit/LineEditorOptions.h"
#include "utils/core/SecureString.h"

namespace korvane::lineEdit {

class LineEditor {
 public:
  LineEditor(std::string_view prompt, LineEditorOptions options);
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;
  ~LineEditor();

  // Shows the prompt, lets the user edit a line and returns it as typed
  // (UTF-8, no line terminator) once Enter is pressed, in a string that is
  // wiped when it goes, since the line may be a password. Enter on an empty
  // line returns "". Otherwise no line is returned, and what was typed is
  // wiped. Throws:
  //   CancelledException  the user pressed Ctrl+C or Escape, or ended input
  //                       on an empty line, or the input has ended (also a
  //                       terminal that hung up; redirected input at its
  //                       end before any byte of a line);
  //   std::system_error   the console could not be read or written (the
  //                       system's reason in code()), or the editor mutex
  //                       cannot be locked;
  //   std::runtime_error  the terminal sent bytes that are not UTF-8 during
  //                       the line (notUtf8Message), or standard input is a
  //                       console but no console output can be had to prompt
  //                       on.
  utils::core::SecureString readLine();

  // The longest line the console editor takes, in bytes; the tool holds a
  // password given any other way to the same limit.
  static constexpr std::size_t longestLine = EditLoop::bufferSize - 1;

  static constexpr const char* notUtf8Message =
      "the terminal sent bytes that are not UTF-8; set the terminal to UTF-8, or give the "
      "password on redirected input";

 private:
  void loadSharedState();
  void unloadSharedState();

  const std::string prompt_;
  const bool multiLine_;
  const bool masked_;
  const signed char maskCharacter_;
  History history_;
};

}  // namespace korvane::lineEdit
