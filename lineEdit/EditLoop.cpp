#include "lineEdit/EditLoop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "lineEdit/CharacterWidth.h"
#include "utils/core/Format.h"
#include "utils/core/SecureZero.h"
#include "utils/string/Utf8.h"

namespace korvane::lineEdit {

namespace {

constexpr std::string_view clearScreenSequence = "\x1b[H\x1b[2J";

// Wipes a string that may hold typed text once it has been written.
class WipeOnExit {
 public:
  explicit WipeOnExit(std::string& text) : text_(text) {}
  WipeOnExit(const WipeOnExit&) = delete;
  WipeOnExit& operator=(const WipeOnExit&) = delete;
  ~WipeOnExit() { utils::core::secureZero(text_.data(), text_.size()); }

 private:
  std::string& text_;
};

}  // namespace

EditLoop::EditLoop(EditTerminal& terminal, const EditSettings& settings, History& history)
    : terminal_(terminal), settings_(settings), history_(history) {}

LineResult EditLoop::run(std::span<char> buffer, std::string_view prompt) {
  buffer_ = buffer;
  usable_ = buffer.size() - 1;
  prompt_.assign(prompt);
  promptColumns_ = columnWidth(prompt_);
  cols_ = static_cast<std::size_t>(std::max(terminal_.columns(), 1));
  pos_ = len_ = 0;
  buffer_[0] = '\0';
  previousCursorColumn_ = maxRows_ = historyIndex_ = 0;
  sawNotUtf8_ = false;
  writeErrno_ = 0;

  history_.add("");
  write(prompt_);
  if (writeErrno_ != 0) return endAfterFailedWrite();

  for (;;) {
    KeyCode key = 0;
    if (const int read = terminal_.readKey(key); read != 1) return endAfterRead(read);
    if (utils::string::isHighSurrogate(key)) {
      KeyCode low = 0;
      if (const int read = terminal_.readKey(low); read != 1) return endAfterRead(read);
      key = utils::string::combineSurrogates(key, low);
    } else if (utils::string::isSurrogate(key)) {
      key = utils::string::replacementCharacter;  // a low surrogate without its high half
    }
    const Step step = handleKey(key);
    if (writeErrno_ != 0) return endAfterFailedWrite();
    switch (step) {
      case Step::proceed:
        break;
      case Step::accept:
        if (sawNotUtf8_) return endWithout(LineEnd::notUtf8);
        return LineResult{LineEnd::accepted, len_};
      case Step::cancel:
        return endWithout(LineEnd::cancelled);
    }
  }
}

// Every end but an accepted line wipes what was typed: the caller gets no
// text, and none stays behind in its buffer.
LineResult EditLoop::endWithout(LineEnd end) {
  utils::core::secureZero(buffer_.data(), len_);
  pos_ = len_ = 0;
  return LineResult{end, 0};
}

LineResult EditLoop::endAfterRead(int read) {
  return endWithout(read < 0 ? LineEnd::readFailed : LineEnd::inputEnded);
}

// The reason was kept when the write failed: the rest of the key's handling
// may have changed errno since.
LineResult EditLoop::endAfterFailedWrite() {
  const LineResult result = endWithout(LineEnd::writeFailed);
  errno = writeErrno_;
  return result;
}

// The first failed write ends the edit once the current key is handled;
// nothing more is written to a console that has failed.
void EditLoop::write(std::string_view bytes) {
  if (writeErrno_ != 0) return;
  if (terminal_.write(bytes) < 0) writeErrno_ = errno != 0 ? errno : EIO;
}

EditLoop::Step EditLoop::handleKey(KeyCode key) {
  switch (key) {
    case 0:
      return Step::proceed;  // a NUL would end the line early; ignore it
    case keys::escape:
      // Escape sequences are the platform's to resolve: an ESC byte that
      // still got here is not part of a line.
      return Step::proceed;
    case keys::enter:
      history_.removeNewest();
      if (settings_.multiLine && pos_ != len_) moveTo(len_);
      return Step::accept;
    case keys::cancel:
      return Step::cancel;
    case keys::deleteOrEnd:
      if (len_ == 0) {
        history_.removeNewest();
        return Step::cancel;
      }
      deleteUnderCursor();
      return Step::proceed;
    case keys::notUtf8:
      // Nothing is inserted or echoed, so the screen does not show where the
      // bytes came; the line is refused when it is entered.
      sawNotUtf8_ = true;
      return Step::proceed;
    default:
      if (moveCursor(key) || editText(key)) return Step::proceed;
      return insert(key);
  }
}

bool EditLoop::moveCursor(KeyCode key) {
  switch (key) {
    case keys::home:
      moveTo(0);
      return true;
    case keys::end:
      moveTo(len_);
      return true;
    case keys::left:
      if (pos_ > 0) moveTo(previousCharacterStart(text(), pos_));
      return true;
    case keys::right:
      if (pos_ < len_) moveTo(nextCharacterEnd(text(), pos_));
      return true;
    case keys::up:
      historyStep(true);
      return true;
    case keys::down:
      historyStep(false);
      return true;
    default:
      return false;
  }
}

bool EditLoop::editText(KeyCode key) {
  switch (key) {
    case keys::deleteCharacter:
      deleteUnderCursor();
      return true;
    case keys::backspace:
    case keys::backspace127:
      backspace();
      return true;
    case keys::killToEnd:
      killToEnd();
      return true;
    case keys::killLine:
      killLine();
      return true;
    case keys::killWord:
      killPreviousWord();
      return true;
    case keys::transpose:
      transpose();
      return true;
    case keys::clearScreen:
      clearScreen();
      return true;
    default:
      return false;
  }
}

EditLoop::Step EditLoop::insert(char32_t codePoint) {
  std::array<char, 4> bytes{};
  const std::size_t count = utils::string::encodeUtf8(codePoint, bytes);
  // A character that does not fit whole is dropped: the line never exceeds
  // the usable length, so the terminating NUL always fits.
  if (len_ + count > usable_) return Step::proceed;

  const bool atEnd = pos_ == len_;
  std::memmove(&buffer_[pos_ + count], &buffer_[pos_], len_ - pos_);
  std::memcpy(&buffer_[pos_], bytes.data(), count);
  pos_ += count;
  len_ += count;
  buffer_[len_] = '\0';

  if (atEnd && !settings_.multiLine && promptColumns_ + columnWidth(text()) < cols_) {
    // The line still fits: echo just the new character.
    std::string echo = settings_.masked
                           ? std::string(codePointColumns(codePoint), settings_.maskCharacter)
                           : std::string(bytes.data(), count);
    const WipeOnExit wipe(echo);
    utils::core::secureZero(std::span<char>(bytes));
    write(echo);
    return Step::proceed;
  }
  utils::core::secureZero(std::span<char>(bytes));
  refresh();
  return Step::proceed;
}

void EditLoop::deleteUnderCursor() {
  if (len_ == 0 || pos_ >= len_) return;
  eraseRange(pos_, nextCharacterEnd(text(), pos_));
  refresh();
}

void EditLoop::backspace() {
  if (pos_ == 0 || len_ == 0) return;
  const std::size_t start = previousCharacterStart(text(), pos_);
  eraseRange(start, pos_);
  pos_ = start;
  refresh();
}

void EditLoop::moveTo(std::size_t pos) {
  if (pos == pos_) return;
  pos_ = pos;
  refresh();
}

void EditLoop::killToEnd() {
  utils::core::secureZero(&buffer_[pos_], len_ - pos_);
  len_ = pos_;
  refresh();
}

void EditLoop::killLine() {
  utils::core::secureZero(buffer_.data(), len_);
  pos_ = len_ = 0;
  refresh();
}

void EditLoop::killPreviousWord() {
  const std::size_t end = pos_;
  std::size_t start = pos_;
  while (start > 0 && buffer_[start - 1] == ' ') --start;
  while (start > 0 && buffer_[start - 1] != ' ') --start;
  eraseRange(start, end);
  pos_ = start;
  refresh();
}

void EditLoop::transpose() {
  if (pos_ == 0 || pos_ >= len_) return;
  std::swap(buffer_[pos_ - 1], buffer_[pos_]);
  if (pos_ != len_ - 1) ++pos_;
  refresh();
}

void EditLoop::clearScreen() {
  write(clearScreenSequence);
  refresh();
}

void EditLoop::historyStep(bool previous) {
  if (history_.size() <= 1) return;
  history_.replaceFromNewest(historyIndex_, text());
  if (previous) {
    if (historyIndex_ + 1 >= history_.size()) return;
    ++historyIndex_;
  } else {
    if (historyIndex_ == 0) return;
    --historyIndex_;
  }
  const std::string& entry = history_.fromNewest(historyIndex_);
  const std::size_t length = std::min(entry.size(), usable_);
  utils::core::secureZero(buffer_.data(), len_);
  std::memcpy(buffer_.data(), entry.data(), length);
  buffer_[length] = '\0';
  pos_ = len_ = length;
  refresh();
}

// Removes the bytes [from, to) and wipes the tail they leave behind.
void EditLoop::eraseRange(std::size_t from, std::size_t to) {
  const std::size_t count = to - from;
  std::memmove(&buffer_[from], &buffer_[to], len_ - to);
  len_ -= count;
  utils::core::secureZero(&buffer_[len_], count);
}

void EditLoop::refresh() {
  if (settings_.multiLine) {
    refreshMultiLine();
  } else {
    refreshSingleLine();
  }
}

// The line scrolls sideways so that the cursor stays on the screen: whole
// characters are dropped from the left until the text before the cursor
// leaves the last column free for the cursor, then from the right until the
// rest fits too. Both ends are found by walking out from the cursor, which
// gives the same window as dropping from the ends but costs only the width of
// the screen, not the length of the line.
void EditLoop::refreshSingleLine() {
  const std::string_view line = text();
  std::size_t start = pos_;
  std::size_t cursorColumns = 0;
  while (start > 0) {
    const std::size_t previous = previousCharacterStart(line, start);
    const std::size_t width = columnWidth(line.substr(previous, start - previous));
    if (promptColumns_ + cursorColumns + width >= cols_) break;
    cursorColumns += width;
    start = previous;
  }
  std::size_t end = pos_;
  std::size_t visibleColumns = cursorColumns;
  while (end < len_) {
    const std::size_t next = nextCharacterEnd(line, end);
    const std::size_t width = columnWidth(line.substr(end, next - end));
    if (promptColumns_ + visibleColumns + width > cols_) break;
    visibleColumns += width;
    end = next;
  }
  std::string_view visible = line.substr(start, end - start);
  std::size_t visiblePos = pos_ - start;
  // Invalid UTF-8 (Ctrl+T swaps bytes) may measure differently in pieces
  // than as a whole: check the window as it will be drawn.
  while (visiblePos > 0 && promptColumns_ + columnWidth(visible.substr(0, visiblePos)) >= cols_) {
    const std::size_t step = std::min(nextCharacterEnd(visible, 0), visiblePos);
    visible.remove_prefix(step);
    visiblePos -= step;
  }
  while (visible.size() > visiblePos && promptColumns_ + columnWidth(visible) > cols_) {
    visible =
        visible.substr(0, std::max(previousCharacterStart(visible, visible.size()), visiblePos));
  }

  std::string out = "\r";
  const WipeOnExit wipe(out);
  out += prompt_;
  appendEcho(out, visible);
  out += "\x1b[0K";
  out += utils::core::format("\r\x1b[{}C",
                             columnWidth(visible.substr(0, visiblePos)) + promptColumns_);
  write(out);
}

// Rows are counted from the prompt's row; the cursor's row before this
// refresh tells how far down to go before clearing the rows used so far.
void EditLoop::refreshMultiLine() {
  using Rows = long long;
  const Rows cols = static_cast<Rows>(cols_);
  const Rows promptColumns = static_cast<Rows>(promptColumns_);
  const Rows textColumns = static_cast<Rows>(wrappedColumns(text()));
  Rows rows = (promptColumns + textColumns + cols - 1) / cols;
  const Rows cursorRow = (promptColumns + static_cast<Rows>(previousCursorColumn_) + cols) / cols;
  const Rows oldRows = static_cast<Rows>(maxRows_);
  if (rows > oldRows) maxRows_ = static_cast<std::size_t>(rows);

  std::string out;
  const WipeOnExit wipe(out);
  if (oldRows - cursorRow > 0) {
    out += utils::core::format("\x1b[{}B", oldRows - cursorRow);
  }
  for (Rows row = 0; row < oldRows - 1; ++row) out += "\r\x1b[0K\x1b[1A";
  out += "\r\x1b[0K";
  out += prompt_;
  appendEcho(out, text());

  if (pos_ > 0 && pos_ == len_ && (promptColumns + textColumns) % cols == 0) {
    // The cursor sits past the last column: start the next row for it.
    out += "\n\r";
    ++rows;
    if (rows > static_cast<Rows>(maxRows_)) {
      maxRows_ = static_cast<std::size_t>(rows);
    }
  }

  const std::size_t cursorColumn = wrappedColumns(text().substr(0, pos_));
  const Rows cursor = static_cast<Rows>(cursorColumn);
  const Rows rowsBelow = rows - (promptColumns + cursor + cols) / cols;
  if (rowsBelow > 0) out += utils::core::format("\x1b[{}A", rowsBelow);
  const Rows column = (promptColumns + cursor) % cols;
  out += column != 0 ? utils::core::format("\r\x1b[{}C", column) : std::string("\r");
  previousCursorColumn_ = cursorColumn;
  write(out);
}

void EditLoop::appendEcho(std::string& out, std::string_view visible) const {
  if (settings_.masked) {
    out.append(columnWidth(visible), settings_.maskCharacter);
  } else {
    out += visible;
  }
}

// Masked text shows one mask character per column, so nothing wraps early.
std::size_t EditLoop::wrappedColumns(std::string_view part) const {
  return settings_.masked ? columnWidth(part) : wrappedColumnWidth(part, promptColumns_, cols_);
}

}  // namespace korvane::lineEdit
