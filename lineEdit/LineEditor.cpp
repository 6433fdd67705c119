#include "lineEdit/LineEditor.h"

#include <cerrno>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "lineEdit/CancelledException.h"
#include "lineEdit/EditSettings.h"
#include "lineEdit/RawLineReader.h"
#include "utils/core/SecureZero.h"

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

}  // namespace

LineEditor::LineEditor(std::string_view prompt, LineEditorOptions options)
    : prompt_(prompt),
      multiLine_(options.multiLine),
      reserved_(options.reserved),
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

std::string LineEditor::readLine() {
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
  std::string line;
  if (RawLineReader::read(prompt_, shared.settings, shared.history, line)) {
    const int error = errno;
    utils::core::secureZero(line.data(), line.size());
    if (error == ENOTTY) {
      throw std::runtime_error(
          "cannot prompt for input: standard input is a character device without a usable console");
    }
    throw CancelledException();
  }
  return line;
}

}  // namespace korvane::lineEdit
