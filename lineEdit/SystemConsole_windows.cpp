#include <io.h>
#include <windows.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "lineEdit/ConsoleKeyCode.h"
#include "lineEdit/ConsoleWriter.h"
#include "lineEdit/SystemConsole.h"
#include "lineEdit/Win32Console.h"
#include "utils/string/Utf8.h"

namespace korvane::lineEdit {

namespace {

using utils::string::Utf8Sequence;

// Process-wide reader state.
struct ReaderState {
  HANDLE input = INVALID_HANDLE_VALUE;
  DWORD savedInputMode = 0;  // 0: nothing to restore
  bool rawMode = false;
};

ReaderState state;

void restoreInputMode() {
  if (state.savedInputMode != 0) {
    SetConsoleMode(state.input, state.savedInputMode);
    state.savedInputMode = 0;
  }
  state.rawMode = false;
}

void restoreAtExit() {
  if (state.rawMode) restoreInputMode();
}

// The errno value for a console call's failure: the boundary's one
// translation of the system's error codes.
int errnoFor(DWORD error) {
  switch (error) {
    case ERROR_INVALID_HANDLE:
      return EBADF;
    case ERROR_ACCESS_DENIED:
      return EACCES;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
      return ENOMEM;
    case ERROR_INVALID_PARAMETER:
      return EINVAL;
    case ERROR_BROKEN_PIPE:
    case ERROR_NO_DATA:
    case ERROR_PIPE_NOT_CONNECTED:
      return EPIPE;
    default:
      return EIO;
  }
}

// A console call failed: -1, with its reason in errno.
int failWithLastError() {
  errno = errnoFor(GetLastError());
  return -1;
}

bool isValid(HANDLE handle) { return handle != INVALID_HANDLE_VALUE && handle != nullptr; }

// The one test whether a handle is a console: only a console has a mode,
// which it gives in mode.
bool consoleMode(HANDLE handle, DWORD& mode) {
  return isValid(handle) && GetConsoleMode(handle, &mode) != FALSE;
}

bool isConsole(HANDLE handle) {
  DWORD mode = 0;
  return consoleMode(handle, mode);
}

HANDLE outputHandle(SystemConsole::Output output) {
  return GetStdHandle(output == SystemConsole::Output::standardOutput ? STD_OUTPUT_HANDLE
                                                                      : STD_ERROR_HANDLE);
}

// One escape-sequence writer for the process, and one console object per
// output handle: the writer tells consoles apart by their address.
ConsoleWriter& consoleWriter() {
  static ConsoleWriter writer;
  return writer;
}

Win32Console& standardOutputConsole() {
  static Win32Console console(GetStdHandle(STD_OUTPUT_HANDLE));
  return console;
}

// The console's own output, CONOUT$, whatever standard output is: opened on
// first use and kept for the process (its console object must outlive every
// write to it).
class ConsoleOutput {
 public:
  ConsoleOutput()
      : handle_(CreateFileW(L"CONOUT$", GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                            nullptr)),
        console_(handle_) {}
  ConsoleOutput(const ConsoleOutput&) = delete;
  ConsoleOutput& operator=(const ConsoleOutput&) = delete;
  ~ConsoleOutput() {
    if (isValid(handle_)) CloseHandle(handle_);
  }

  Win32Console* console() { return isConsole(handle_) ? &console_ : nullptr; }

 private:
  HANDLE handle_;
  Win32Console console_;
};

// Standard output when it is a console, otherwise the console's own output;
// null when there is no console output at all.
Win32Console* editOutput() {
  Win32Console& standardOutput = standardOutputConsole();
  if (isConsole(standardOutput.handle())) return &standardOutput;
  static ConsoleOutput ownOutput;
  return ownOutput.console();
}

// Clears ENABLE_PROCESSED_INPUT for its lifetime, so that Ctrl+C arrives as
// a key instead of a signal; every other mode bit stays as it was.
class RawMode {
 public:
  explicit RawMode(DWORD mode) {
    state.savedInputMode = mode;
    SetConsoleMode(state.input, mode & ~static_cast<DWORD>(ENABLE_PROCESSED_INPUT));
    state.rawMode = true;
  }
  RawMode(const RawMode&) = delete;
  RawMode& operator=(const RawMode&) = delete;
  ~RawMode() { restoreInputMode(); }
};

KeyEvent keyEventOf(const KEY_EVENT_RECORD& native) {
  KeyEvent event;
  event.keyDown = native.bKeyDown != FALSE;
  event.repeatCount = native.wRepeatCount;
  event.virtualKeyCode = native.wVirtualKeyCode;
  event.virtualScanCode = native.wVirtualScanCode;
  event.character = static_cast<char16_t>(native.uChar.UnicodeChar);
  event.controlKeyState = native.dwControlKeyState;
  return event;
}

// Whether `text` is the start of one well-formed sequence that the next
// write may complete.
bool isCutShort(std::string_view text) {
  const auto lead = static_cast<unsigned char>(text.front());
  if (!utils::string::isUtf8Lead(lead) || utils::string::utf8SequenceLength(lead) <= text.size()) {
    return false;
  }
  for (const char byte : text.substr(1)) {
    if (!utils::string::isUtf8Continuation(static_cast<unsigned char>(byte))) return false;
  }
  return true;
}

// Writes the UTF-8 text it is given to a console as UTF-16, at once: nothing
// is held back but the start of a sequence that a write cut in two, so the
// order with the line editor's own console output stays as written. A line
// feed becomes "\r\n", as the C runtime writes it to a console.
class ConsoleText {
 public:
  explicit ConsoleText(HANDLE console) : console_(console) {}

  void write(std::string_view bytes) {
    pending_.append(bytes);
    std::u16string wide;
    wide.reserve(pending_.size() + 8);
    std::string_view text = pending_;
    std::array<char16_t, 2> units{};
    while (!text.empty() && !isCutShort(text)) {
      const Utf8Sequence sequence =
          utils::string::decodeUtf8(text, utils::string::Utf8Malformed::reject);
      if (!sequence.wellFormed) {
        // A byte that is no text: shown as such, and the next byte read afresh.
        wide.push_back(static_cast<char16_t>(utils::string::replacementCharacter));
        text.remove_prefix(1);
        continue;
      }
      if (sequence.codePoint == U'\n') wide.push_back(u'\r');
      wide.append(units.data(), utils::string::encodeUtf16(sequence.codePoint, units));
      text.remove_prefix(sequence.length);
    }
    pending_.erase(0, pending_.size() - text.size());
    console_.writeText(wide);
  }

 private:
  Win32Console console_;
  std::string pending_;
};

ConsoleText& consoleText(SystemConsole::Output output) {
  static ConsoleText standardOutput(outputHandle(SystemConsole::Output::standardOutput));
  static ConsoleText standardError(outputHandle(SystemConsole::Output::standardError));
  return output == SystemConsole::Output::standardOutput ? standardOutput : standardError;
}

// Explorer starts a console program in a console of its own.
bool isOnlyProcessOnConsole() {
  DWORD processes[2];
  return GetConsoleProcessList(processes, 2) == 1;
}

void waitForKey() {
  const HANDLE input = GetStdHandle(STD_INPUT_HANDLE);
  if (!isConsole(input)) return;
  std::fputs("\nPress any key to close this window.", stdout);
  std::fflush(stdout);
  FlushConsoleInputBuffer(input);
  INPUT_RECORD record;
  DWORD read = 0;
  while (ReadConsoleInputW(input, &record, 1, &read) && read == 1) {
    if (record.EventType == KEY_EVENT && record.Event.KeyEvent.bKeyDown) break;
  }
}

}  // namespace

// What one edit holds: the console output chosen for the prompt and the
// echo, and raw mode, from open() to finish().
struct SystemConsole::Session {
  Session(Win32Console& console, DWORD inputMode) : output(console) { rawMode.emplace(inputMode); }

  Win32Console& output;
  std::optional<RawMode> rawMode;
};

// A character device: a console, or a device such as NUL, which open()
// refuses, so that the user hears why no prompt comes.
bool SystemConsole::inputIsConsole() noexcept {
  return GetFileType(GetStdHandle(STD_INPUT_HANDLE)) == FILE_TYPE_CHAR;
}

bool SystemConsole::outputIsConsole(Output output) noexcept {
  return isConsole(outputHandle(output));
}

// The C runtime's read sets errno itself. At a console it also gives the
// bytes of an escape sequence typed as characters (consoleKeyCode).
int SystemConsole::readInputByte(char& byte) noexcept { return _read(_fileno(stdin), &byte, 1); }

void SystemConsole::print(Output output, std::string_view text, bool lineEnd) noexcept {
  if (outputIsConsole(output)) {
    try {
      consoleText(output).write(text);
      if (lineEnd) consoleText(output).write("\n");
    } catch (...) {
      // Out of memory for the conversion: the message is lost, nothing else.
    }
    return;
  }
  // A redirected stream gets the bytes through the C runtime, which ends
  // lines as Windows programs do.
  std::FILE* const stream = output == Output::standardOutput ? stdout : stderr;
  std::fwrite(text.data(), 1, text.size(), stream);
  if (lineEnd) std::fputc('\n', stream);
  std::fflush(stream);
}

void SystemConsole::retainConsole() noexcept {
  if (isOnlyProcessOnConsole()) waitForKey();
}

SystemConsole::SystemConsole() = default;

SystemConsole::~SystemConsole() = default;

int SystemConsole::open() {
  // Registered once, at the first edit: an exit during any edit restores
  // the console.
  [[maybe_unused]] static const int exitHandler = std::atexit(restoreAtExit);
  // A character device that is not a console (NUL) gives no keys.
  state.input = GetStdHandle(STD_INPUT_HANDLE);
  DWORD inputMode = 0;
  if (!consoleMode(state.input, inputMode)) {
    errno = ENOTTY;
    return -1;
  }
  Win32Console* const output = editOutput();
  if (output == nullptr) {
    errno = ENOTTY;
    return -1;
  }
  session_ = std::make_unique<Session>(*output, inputMode);
  return 0;
}

// A failing console input is an error and an empty read its end: either
// ends the edit, so that a console that has gone is never read in a loop.
int SystemConsole::readKey(KeyCode& key) {
  for (;;) {
    INPUT_RECORD record{};
    DWORD count = 0;
    if (!ReadConsoleInputW(state.input, &record, 1, &count)) return failWithLastError();
    if (count == 0) return 0;
    if (record.EventType != KEY_EVENT) continue;
    if (const std::optional<KeyCode> code =
            consoleKeyCode(keyEventOf(record.Event.KeyEvent), readInputByte)) {
      key = *code;
      return 1;
    }
  }
}

// Through the escape-sequence writer, which reports no console failures;
// an empty write is no failure.
int SystemConsole::write(std::string_view bytes) {
  std::size_t consumed = 0;
  if (!consoleWriter().write(session_->output, bytes, consumed)) return failWithLastError();
  if (bytes.empty() || consumed > 0) return 0;
  errno = EIO;
  return -1;
}

int SystemConsole::columns() {
  CONSOLE_SCREEN_BUFFER_INFO info{};
  if (!GetConsoleScreenBufferInfo(session_->output.handle(), &info)) return 80;
  return info.srWindow.Right - info.srWindow.Left + 1;
}

// Standard output is shared with the program's own messages: the new line
// goes through stdio, after what it holds. The console's own output takes it
// through the writer; should that fail, only the cursor's line is lost.
void SystemConsole::finish() {
  const int savedErrno = errno;
  session_->rawMode.reset();
  if (&session_->output == &standardOutputConsole()) {
    std::printf("\n");
    std::fflush(stdout);
  } else {
    (void)write("\n");
  }
  errno = savedErrno;
}

}  // namespace korvane::lineEdit
