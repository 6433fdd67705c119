#include "lineEdit/RawLineReader.h"

#include <windows.h>
#include <io.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <span>

#include "lineEdit/ConsoleKeyCode.h"
#include "lineEdit/ConsoleWriter.h"
#include "lineEdit/EditBuffer.h"
#include "lineEdit/EditLoop.h"
#include "lineEdit/EditTerminal.h"
#include "lineEdit/Win32Console.h"
#include "utils/core/SecureZero.h"

namespace korvane::lineEdit {

namespace {

constexpr int kStandardOutput = 1;
constexpr int kStandardError = 2;

// A plain line read stops here; the rest stays for the next read.
constexpr std::size_t kMaxPlainLineLength = EditLoop::kBufferSize;

// Process-wide reader state.
struct ReaderState {
  HANDLE output = INVALID_HANDLE_VALUE;
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

// One escape-sequence writer for the process, and one console object per
// output handle: the writer tells consoles apart by their address.
ConsoleWriter& consoleWriter() {
  static ConsoleWriter writer;
  return writer;
}

Win32Console& consoleFor(int descriptor) {
  static Win32Console output(GetStdHandle(STD_OUTPUT_HANDLE));
  static Win32Console error(GetStdHandle(STD_ERROR_HANDLE));
  return descriptor == kStandardError ? error : output;
}

// Bytes to the console writer for standard output and error, to the C
// library otherwise. Returns the bytes written, 0 on a console failure.
int writeOutput(int descriptor, const char* data, std::size_t size) {
  if (descriptor != kStandardOutput && descriptor != kStandardError) {
    return _write(descriptor, data, static_cast<unsigned>(size));
  }
  std::size_t consumed = 0;
  if (!consoleWriter().write(consoleFor(descriptor), {data, size}, consumed)) {
    errno = static_cast<int>(GetLastError());
    return 0;
  }
  return static_cast<int>(consumed);
}

class ConsoleTerminal : public EditTerminal {
 public:
  bool readKey(char16_t& key) override {
    for (;;) {
      INPUT_RECORD record{};
      DWORD count = 0;
      if (!ReadConsoleInputW(state.input, &record, 1, &count) || count == 0) {
        return false;
      }
      if (record.EventType != KEY_EVENT) continue;
      const KEY_EVENT_RECORD& native = record.Event.KeyEvent;
      KeyEvent event;
      event.keyDown = native.bKeyDown != FALSE;
      event.repeatCount = native.wRepeatCount;
      event.virtualKeyCode = native.wVirtualKeyCode;
      event.virtualScanCode = native.wVirtualScanCode;
      event.character = static_cast<char16_t>(native.uChar.UnicodeChar);
      event.controlKeyState = native.dwControlKeyState;
      if (const std::optional<char16_t> code = consoleKeyCode(event)) {
        key = *code;
        return true;
      }
    }
  }

  bool readByte(char& byte) override {
    return _read(_fileno(stdin), &byte, 1) == 1;
  }

  bool write(std::string_view bytes) override {
    return bytes.empty() ||
           writeOutput(kStandardOutput, bytes.data(), bytes.size()) > 0;
  }

  int columns() override {
    CONSOLE_SCREEN_BUFFER_INFO info{};
    if (!GetConsoleScreenBufferInfo(state.output, &info)) return 80;
    return info.srWindow.Right - info.srWindow.Left + 1;
  }
};

// Byte by byte, so that nothing after the line is taken from the input.
void readPlainLine(std::string& line) {
  line.clear();
  line.reserve(kMaxPlainLineLength);  // no reallocation leaves copies behind
  const int input = _fileno(stdin);
  while (line.size() < kMaxPlainLineLength) {
    char byte = 0;
    if (_read(input, &byte, 1) != 1 || byte == '\n') break;
    line.push_back(byte);
  }
}

// Clears ENABLE_PROCESSED_INPUT for its lifetime, so that Ctrl+C arrives as
// a key instead of a signal; every other mode bit stays as it was.
class RawMode {
 public:
  RawMode() {
    DWORD mode = 0;
    if (GetConsoleMode(state.input, &mode)) {
      state.savedInputMode = mode;
      SetConsoleMode(state.input, mode & ~static_cast<DWORD>(ENABLE_PROCESSED_INPUT));
    }
    state.rawMode = true;
  }
  RawMode(const RawMode&) = delete;
  RawMode& operator=(const RawMode&) = delete;
  ~RawMode() { restoreInputMode(); }
};

}  // namespace

bool RawLineReader::read(std::string_view prompt, const EditSettings& settings,
                         History& history, std::string& line) {
  line.clear();
  if (_isatty(_fileno(stdin)) == 0) {
    readPlainLine(line);
    return false;
  }
  if (!state.exitHandlerRegistered) {
    std::atexit(restoreAtExit);
    state.exitHandlerRegistered = true;
    state.output = GetStdHandle(STD_OUTPUT_HANDLE);
  }
  if (state.output == INVALID_HANDLE_VALUE || state.output == nullptr) {
    errno = ENOTTY;
    return false;
  }
  // The output handle is the process's own standard output: it stays open
  // (closing it would silence every later line of the program).
  DWORD outputMode = 0;
  if (!GetConsoleMode(state.output, &outputMode)) {
    errno = ENOTTY;
    return false;
  }
  state.input = GetStdHandle(STD_INPUT_HANDLE);
  if (state.input == INVALID_HANDLE_VALUE || state.input == nullptr) {
    errno = ENOTTY;
    return false;
  }
  // Text the program printed before must appear before the prompt.
  std::cout.flush();
  std::fflush(stdout);

  EditBuffer buffer;
  int result = -1;
  int loopErrno = 0;
  {
    const RawMode rawMode;
    ConsoleTerminal terminal;
    EditLoop loop(terminal, settings, history);
    result = loop.run(buffer.span(), prompt);
    loopErrno = errno;
  }
  if (result != -1) {
    line.assign(buffer.span().data(), static_cast<std::size_t>(result));
  }
  std::printf("\n");
  std::fflush(stdout);
  errno = loopErrno;
  return result == -1;
}

}  // namespace korvane::lineEdit
