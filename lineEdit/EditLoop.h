// The line editor's state machine: reads key codes (lineEdit/KeyCode.h) from
// an EditTerminal, edits one line of UTF-8 text in a caller-owned buffer and
// redraws it after every change, on one row scrolling sideways or wrapped
// over several rows. It consumes key codes only: each platform's key
// function has already turned keys and escape sequences into them.
//
// Every refresh builds its whole output first and writes it at once, so the
// screen never shows half an update. With masked echo the output holds only
// the prompt, mask characters and control sequences, never the typed text.
//
// A line is only ever returned on Enter. A console that ends, fails or
// cannot be written to ends the edit without a line, so that a caller
// never takes what was typed so far for an entry, nor prompts again on a
// console that has gone.
//
// Thread safety: an EditLoop is used by one thread; it reads and writes the
// History it is given without locking.
#pragma once

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "lineEdit/EditSettings.h"
#include "lineEdit/EditTerminal.h"
#include "lineEdit/History.h"
#include "lineEdit/LineResult.h"

namespace korvane::lineEdit {

class EditLoop {
 public:
  // The buffer size the raw line reader uses: at most 4095 bytes of text.
  static constexpr std::size_t bufferSize = 4096;

  EditLoop(EditTerminal& terminal, const EditSettings& settings, History& history);
  EditLoop(const EditLoop&) = delete;
  EditLoop& operator=(const EditLoop&) = delete;

  // Writes the prompt and edits until the line ends. On Enter the result is
  // accepted and the line is left in buffer, NUL-terminated, at most
  // buffer.size() - 1 bytes, its length in the result. Otherwise the text
  // typed is wiped from buffer and the result tells why the line ended:
  //   cancelled    Ctrl+C or Escape, or Ctrl+D / Delete on an empty line;
  //   inputEnded   no key can be read any more (end of input);
  //   readFailed   reading a key failed; errno is the terminal's reason;
  //   writeFailed  the prompt or any echo or refresh could not be written;
  //                errno is the terminal's reason;
  //   notUtf8      Enter, after the terminal sent bytes that are not UTF-8
  //                (keys::notUtf8) at any time during the line.
  // REQUIRES: !buffer.empty(), buffer.size() <= bufferSize
  LineResult run(std::span<char> buffer, std::string_view prompt);

 private:
  enum class Step { proceed, accept, cancel };

  // Ends the line without text; leaves errno as it is.
  LineResult endWithout(LineEnd end);
  // The end after a read that gave no key (readKey's result, 0 or -1).
  LineResult endAfterRead(int read);
  LineResult endAfterFailedWrite();
  void write(std::string_view bytes);

  std::string_view text() const { return {buffer_.data(), len_}; }

  Step handleKey(KeyCode key);
  // The keys that move the cursor or edit the text; false for any other.
  bool moveCursor(KeyCode key);
  bool editText(KeyCode key);
  Step insert(char32_t codePoint);
  void deleteUnderCursor();
  void backspace();
  void moveTo(std::size_t pos);
  void killToEnd();
  void killLine();
  void killPreviousWord();
  void transpose();
  void clearScreen();
  void historyStep(bool previous);
  void eraseRange(std::size_t from, std::size_t to);

  void refresh();
  void refreshSingleLine();
  void refreshMultiLine();
  void appendEcho(std::string& out, std::string_view visible) const;
  std::size_t wrappedColumns(std::string_view text) const;

  EditTerminal& terminal_;
  const EditSettings settings_;
  History& history_;

  std::span<char> buffer_;
  std::size_t usable_ = 0;  // most bytes of text the buffer takes
  std::string prompt_;
  std::size_t promptColumns_ = 0;
  std::size_t pos_ = 0;  // cursor, a byte offset into the text
  std::size_t len_ = 0;  // bytes of text
  std::size_t cols_ = 80;
  std::size_t previousCursorColumn_ = 0;  // multi-line refresh only
  std::size_t maxRows_ = 0;               // multi-line refresh only
  std::size_t historyIndex_ = 0;          // 0: the line being edited
  bool sawNotUtf8_ = false;               // the line is refused on Enter
  int writeErrno_ = 0;                    // the first failed write's errno, 0 if none
};

}  // namespace korvane::lineEdit
