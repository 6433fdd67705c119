// FileHolder <file> <milliseconds>: holds <file> open as another program
// may (a service, a virus scanner, a backup agent): for reading, shared for
// reading only, so that the file can be neither written, nor deleted, nor
// replaced while it is held. Prints "held" once the file is open, keeps it
// for the given time, then closes it, prints "released" and exits 0; exits
// 1 when the file cannot be opened. The end-to-end test runs the program
// against it (EndToEndTest_windows.sh).
#include <windows.h>
// After windows.h, which it needs.
#include <shellapi.h>

#include <cstdio>
#include <cwchar>
#include <memory>

namespace {

struct LocalMemory {
  void operator()(void* memory) const noexcept { ::LocalFree(memory); }
};

class Handle {
 public:
  explicit Handle(HANDLE handle) noexcept : handle_(handle) {}
  ~Handle() {
    if (valid()) ::CloseHandle(handle_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  bool valid() const noexcept { return handle_ != INVALID_HANDLE_VALUE; }

 private:
  HANDLE handle_;
};

void say(const char* text) {
  std::fputs(text, stdout);
  std::fflush(stdout);
}

}  // namespace

int main() {
  int count = 0;
  const std::unique_ptr<LPWSTR, LocalMemory> arguments(
      ::CommandLineToArgvW(::GetCommandLineW(), &count));
  if (!arguments || count != 3) {
    std::fputs("usage: FileHolder <file> <milliseconds>\n", stderr);
    return 2;
  }
  const unsigned long milliseconds = std::wcstoul(arguments.get()[2], nullptr, 10);
  {
    const Handle held(::CreateFileW(arguments.get()[1], GENERIC_READ, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!held.valid()) {
      std::fprintf(stderr, "FileHolder: cannot open the file: error %lu\n", ::GetLastError());
      return 1;
    }
    say("held\n");
    ::Sleep(static_cast<DWORD>(milliseconds));
  }
  say("released\n");
  return 0;
}
