// SystemConsole: the program's one boundary to the system's console. Every
// question the program asks of the console and every call it makes on it goes
// through here: whether standard input and the output streams are a
// console, the plain read of redirected input, raw mode for one edit (set,
// and restored also when the process exits or is ended by a signal), the
// keys of the edit (terminal bytes on POSIX, console key events on Windows,
// both turned into key codes), and the UTF-8 text written to the console.
// On Windows that text reaches the console through one UTF-16 writer,
// Win32Console: the edit's prompt and echo (through the escape-sequence
// emulation) and the program's messages (print) where standard output or
// standard error is a console.
//
// One implementation per system (SystemConsole_posix.cpp,
// SystemConsole_windows.cpp). Failures follow the POSIX convention: -1 with
// the reason in errno; on Windows the system's error is turned into an errno
// value here, once.
//
// Thread safety: none. The console modes and the standard streams are
// process-wide state: one edit at a time, and messages printed from the
// main thread.
#pragma once

#include <memory>
#include <string_view>

#include "lineEdit/EditTerminal.h"

namespace korvane::lineEdit {

class SystemConsole final : public EditTerminal {
 public:
  enum class Output { standardOutput, standardError };

  // Whether standard input is the user's console: a terminal (POSIX), or a
  // character device (Windows; a console, or a device such as NUL, which
  // open() then refuses).
  static bool inputIsConsole() noexcept;

  // Whether the output stream is a console that can be written to.
  static bool outputIsConsole(Output output) noexcept;

  // Reads one byte of standard input with a plain read. Returns 1 with the
  // byte, 0 at the end of the input, -1 with errno.
  static int readInputByte(char& byte) noexcept;

  // Writes one of the program's messages to standard output or standard
  // error at once, so that it comes before whatever the program does next.
  // Windows: where the stream is a console, its UTF-8 goes through the
  // console's UTF-16 interface, so that no console code page changes a
  // character (a sequence cut between two calls is completed by the next).
  // Otherwise, and on POSIX (the terminal takes UTF-8 itself), the bytes go
  // through the C library's stream as they are. A failure to write is
  // ignored: a message lost to a closed or full output changes nothing else.
  // With `lineEnd`, a line feed follows the text in the same write.
  static void print(Output output, std::string_view text, bool lineEnd = false) noexcept;

  // Keeps a console window open long enough to be read: called right before
  // the process ends after printing something the user must see. On
  // Windows, when this process is the only one attached to its console (it
  // was started from Explorer, whose console closes with it), it waits for a
  // key; otherwise, and on every other system, it returns at once.
  static void retainConsole() noexcept;

  SystemConsole();
  SystemConsole(const SystemConsole&) = delete;
  SystemConsole& operator=(const SystemConsole&) = delete;
  // Restores the input mode if finish() has not.
  ~SystemConsole() override;

  // Takes the console for one edit: the output is standard output when that
  // is a console, otherwise the console's own output (POSIX: the terminal of
  // standard input; Windows: CONOUT$); the input mode is saved and raw mode
  // switched on (keys arrive one by one, unechoed, Ctrl+C as a key). Returns
  // 0, or -1 with errno ENOTTY when standard input is no console or the
  // console's input or output cannot be used.
  // REQUIRES: open() not called before on this object; no other
  // SystemConsole is open.
  int open();

  // REQUIRES: open() returned 0 and finish() has not been called.
  int readKey(KeyCode& key) override;
  int write(std::string_view bytes) override;
  int columns() override;

  // Restores the input mode and moves the output to a new line. Nothing may
  // be read or written afterwards. Leaves errno as it was.
  // REQUIRES: open() returned 0; finish() not called before.
  void finish();

 private:
  struct Session;  // what open() took for the edit, one definition per system

  std::unique_ptr<Session> session_;
};

}  // namespace korvane::lineEdit
