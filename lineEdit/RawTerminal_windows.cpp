#include <io.h>
#include <windows.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>

#include "lineEdit/ConsoleKeyCode.h"
#include "lineEdit/ConsoleWriter.h"
#include "lineEdit/RawTerminal.h"
#include "lineEdit/Win32Console.h"

namespace korvane::lineEdit {

namespace {

// Process-wide reader state.
struct ReaderState {
  HANDLE input = INVALID_HANDLE_VALUE;
  DWORD savedInputMode = 0;  // 0: nothing to restore
  bool rawMode = false;
  bool exitHandlerRegistered = false;
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

std::error_code lastSystemError() {
  return std::error_code(static_cast<int>(GetLastError()), std::system_category());
}

bool isValid(HANDLE handle) { return handle != INVALID_HANDLE_VALUE && handle != nullptr; }

bool isConsole(HANDLE handle) {
  DWORD mode = 0;
  return isValid(handle) && GetConsoleMode(handle, &mode) != FALSE;
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

// Keys from the console input, the prompt and echo through the escape-
// sequence writer to the chosen console output.
class ConsoleTerminal final : public RawTerminal {
 public:
  ConsoleTerminal(Win32Console& output, DWORD inputMode) : output_(output) {
    rawMode_.emplace(inputMode);
  }

  // A failing console input is an error and an empty read its end: either
  // ends the edit, so that a console that has gone is never read in a loop.
  ReadResult readKey(KeyCode& key) override {
    for (;;) {
      INPUT_RECORD record{};
      DWORD count = 0;
      if (!ReadConsoleInputW(state.input, &record, 1, &count)) {
        error_ = lastSystemError();
        return ReadResult::failed;
      }
      if (count == 0) return ReadResult::ended;
      if (record.EventType != KEY_EVENT) continue;
      const KEY_EVENT_RECORD& native = record.Event.KeyEvent;
      KeyEvent event;
      event.keyDown = native.bKeyDown != FALSE;
      event.repeatCount = native.wRepeatCount;
      event.virtualKeyCode = native.wVirtualKeyCode;
      event.virtualScanCode = native.wVirtualScanCode;
      event.character = static_cast<char16_t>(native.uChar.UnicodeChar);
      event.controlKeyState = native.dwControlKeyState;
      if (const std::optional<KeyCode> code = consoleKeyCode(event, readSequenceByte)) {
        key = *code;
        return ReadResult::read;
      }
    }
  }

  // The writer reports no console failures; an empty write is no failure.
  bool write(std::string_view bytes) override {
    std::size_t consumed = 0;
    if (!consoleWriter().write(output_, bytes, consumed)) {
      error_ = lastSystemError();
      return false;
    }
    if (bytes.empty() || consumed > 0) return true;
    error_ = std::make_error_code(std::errc::io_error);
    return false;
  }

  std::error_code lastError() const override { return error_; }

  int columns() override {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(output_.handle(), &info)) return 80;
    return info.srWindow.Right - info.srWindow.Left + 1;
  }

  void finish() override {
    rawMode_.reset();
    if (&output_ == &standardOutputConsole()) {
      std::printf("\n");
      std::fflush(stdout);
    } else if (!write("\n")) {
      // Only the cursor's line is lost; the line read stands.
    }
  }

 private:
  // The bytes of an escape sequence typed as characters; a failed read
  // ends the sequence.
  static bool readSequenceByte(char& byte) {
    std::error_code ignored;
    return readInputByte(byte, ignored) == ReadResult::read;
  }

  Win32Console& output_;
  std::error_code error_;
  std::optional<RawMode> rawMode_;
};

}  // namespace

bool RawTerminal::inputIsConsole() { return _isatty(_fileno(stdin)) != 0; }

ReadResult RawTerminal::readInputByte(char& byte, std::error_code& error) {
  const int count = _read(_fileno(stdin), &byte, 1);
  if (count == 1) return ReadResult::read;
  if (count == 0) return ReadResult::ended;
  error.assign(errno, std::generic_category());
  return ReadResult::failed;
}

std::unique_ptr<RawTerminal> RawTerminal::open() {
  if (!state.exitHandlerRegistered) {
    std::atexit(restoreAtExit);
    state.exitHandlerRegistered = true;
  }
  // A character device that is not a console (NUL) gives no keys.
  state.input = GetStdHandle(STD_INPUT_HANDLE);
  DWORD inputMode = 0;
  if (!isValid(state.input) || !GetConsoleMode(state.input, &inputMode)) {
    errno = ENOTTY;
    return nullptr;
  }
  Win32Console* const output = editOutput();
  if (output == nullptr) {
    errno = ENOTTY;
    return nullptr;
  }
  return std::make_unique<ConsoleTerminal>(*output, inputMode);
}

}  // namespace korvane::lineEdit
