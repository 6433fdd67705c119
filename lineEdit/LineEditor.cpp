#include "lineEdit/LineEditor.h"

#include <cerrno>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <utility>

#include "lineEdit/CancelledException.h"
#include "lineEdit/EditSettings.h"
#include "lineEdit/LineResult.h"
#include "lineEdit/RawLineReader.h"

namespace korvane::lineEdit {

namespace {

// The settings and history every edit loop of the process works with, and
// which editor's they are.
struct SharedState {
  std::mutex mutex;
  EditSettings settings;
  History history{History::historyMaxLength};
  const LineEditor* owner = nullptr;
};

SharedState& sharedState() {
  static SharedState state;
  return state;
}

// The reason the console gave in errno; a failure always names one, even
// when the console gave none.
std::error_code consoleError(int error) {
  return std::error_code(error != 0 ? error : EIO, std::generic_category());
}

// The exception for a read that gave no line; error is the errno that the
// read left.
[[noreturn]] void throwFor(const LineResult& result, int error) {
  switch (result.end) {
    case LineEnd::noConsole:
      throw std::runtime_error(
          "cannot prompt for input: standard input is a character device without a usable console");
    case LineEnd::notUtf8:
      // A password typed in another encoding would be stored as bytes that
      // no UTF-8 login form ever sends.
      throw std::runtime_error(LineEditor::notUtf8Message);
    case LineEnd::readFailed:
      throw std::system_error(consoleError(error), "cannot read from the console");
    case LineEnd::writeFailed:
      throw std::system_error(consoleError(error), "cannot write to the console");
    case LineEnd::accepted:
    case LineEnd::cancelled:
    case LineEnd::inputEnded:
      break;
  }
  // Cancelled, or nothing more can be typed: either way the caller stops
  // quietly, as on Ctrl+D, instead of taking an empty line and asking again.
  throw CancelledException();
}

}  // namespace

LineEditor::LineEditor(std::string_view prompt, LineEditorOptions options)
    : prompt_(prompt),
      multiLine_(options.multiLine),
      masked_(options.masked),
      maskCharacter_(options.maskCharacter) {}

LineEditor::~LineEditor() {
  SharedState& shared = sharedState();
  const std::lock_guard lock(shared.mutex);
  if (shared.owner == this) shared.owner = nullptr;
}

void LineEditor::loadSharedState() {
  SharedState& shared = sharedState();
  const std::lock_guard lock(shared.mutex);
  if (shared.owner == this) return;
  shared.history = std::move(history_);
  shared.settings.multiLine = multiLine_;
  shared.settings.masked = masked_;
  shared.settings.maskCharacter = static_cast<char>(maskCharacter_);
  shared.owner = this;
}

void LineEditor::unloadSharedState() {
  SharedState& shared = sharedState();
  const std::lock_guard lock(shared.mutex);
  if (shared.owner != this) return;
  shared.owner = nullptr;
  history_ = std::move(shared.history);
}

utils::core::SecureString LineEditor::readLine() {
  loadSharedState();
  // Puts this editor's history back however the read ends.
  class Unload {
   public:
    explicit Unload(LineEditor& editor) : editor_(editor) {}
    Unload(const Unload&) = delete;
    Unload& operator=(const Unload&) = delete;
    ~Unload() { editor_.unloadSharedState(); }

   private:
    LineEditor& editor_;
  } unload(*this);

  SharedState& shared = sharedState();
  utils::core::SecureString line;
  errno = 0;
  const LineResult result = RawLineReader::read(prompt_, shared.settings, shared.history, line);
  const int error = errno;
  if (result.end == LineEnd::accepted) return line;
  line.wipe();
  throwFor(result, error);
}

}  // namespace korvane::lineEdit
