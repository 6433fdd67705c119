#include "lineEdit/RawTerminal.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string_view>

#include "lineEdit/TerminalKeyDecoder.h"

namespace korvane::lineEdit {

namespace {

constexpr std::array<int, 3> terminatingSignals = {SIGTERM, SIGHUP, SIGQUIT};

// Process-wide reader state. The signal handler reads it, so it is plain
// data with static storage and the raw-mode flag is a sig_atomic_t.
struct ReaderState {
  termios savedMode{};
  volatile std::sig_atomic_t rawMode = 0;
  bool exitHandlerRegistered = false;
  std::array<struct sigaction, terminatingSignals.size()> previousActions{};
  std::array<bool, terminatingSignals.size()> handlerInstalled{};
};

ReaderState state;

void restoreTerminal(int when) {
  if (state.rawMode != 0) {
    tcsetattr(STDIN_FILENO, when, &state.savedMode);
    state.rawMode = 0;
  }
}

void restoreAtExit() { restoreTerminal(TCSADRAIN); }

// Restores the terminal, puts back the action that was in place before raw
// mode and raises the signal again; it is delivered with that action (by
// default: the process ends) as soon as this handler returns.
void onTerminatingSignal(int signal) {
  const int savedErrno = errno;
  restoreTerminal(TCSANOW);
  for (std::size_t i = 0; i < terminatingSignals.size(); ++i) {
    if (terminatingSignals[i] == signal && state.handlerInstalled[i]) {
      sigaction(signal, &state.previousActions[i], nullptr);
      state.handlerInstalled[i] = false;
    }
  }
  raise(signal);
  errno = savedErrno;
}

void installSignalHandlers() {
  struct sigaction action {};
  action.sa_handler = onTerminatingSignal;
  sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  for (std::size_t i = 0; i < terminatingSignals.size(); ++i) {
    struct sigaction& previous = state.previousActions[i];
    if (sigaction(terminatingSignals[i], nullptr, &previous) != 0) continue;
    if (previous.sa_handler == SIG_IGN) continue;  // the signal can't end us
    state.handlerInstalled[i] =
        sigaction(terminatingSignals[i], &action, nullptr) == 0;
  }
}

void removeSignalHandlers() {
  for (std::size_t i = 0; i < terminatingSignals.size(); ++i) {
    if (state.handlerInstalled[i]) {
      sigaction(terminatingSignals[i], &state.previousActions[i], nullptr);
      state.handlerInstalled[i] = false;
    }
  }
}

// Raw mode for the lifetime of the object: keys arrive byte by byte, unechoed,
// with Ctrl+C, Ctrl+S and Ctrl+V as ordinary bytes and no output processing.
class RawMode {
 public:
  RawMode() {
    installSignalHandlers();
    state.rawMode = 1;
    termios raw = state.savedMode;
    raw.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ICRNL | INPCK | ISTRIP | IXON);
    raw.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    raw.c_cflag |= CS8;
    raw.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | IEXTEN | ISIG);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    tcsetattr(STDIN_FILENO, TCSADRAIN, &raw);
  }
  RawMode(const RawMode&) = delete;
  RawMode& operator=(const RawMode&) = delete;
  ~RawMode() {
    restoreTerminal(TCSADRAIN);
    removeSignalHandlers();
  }
};

class TerminalByteSource : public TerminalKeyDecoder::ByteSource {
 public:
  Result read(unsigned char& byte, int timeoutMilliseconds) override {
    for (;;) {
      pollfd input{STDIN_FILENO, POLLIN, 0};
      const int ready = poll(&input, 1, timeoutMilliseconds);
      if (ready == 0) return Result::timeout;
      if (ready < 0) {
        if (errno == EINTR) continue;
        return Result::end;
      }
      const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
      if (count == 1) return Result::byte;
      if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      return Result::end;
    }
  }
};

// Keys come from standard input; the prompt and the echo go to standard
// output, or, when that is redirected, to the terminal itself (standard
// input), so that the user still sees what is asked. Raw mode lasts from
// construction to finish().
class PosixTerminal final : public RawTerminal {
 public:
  explicit PosixTerminal(int outputFd) : outputFd_(outputFd), decoder_(source_) {
    rawMode_.emplace();
  }

  bool readKey(KeyCode& key) override { return decoder_.readKey(key); }

  bool write(std::string_view bytes) override {
    while (!bytes.empty()) {
      const ssize_t count = ::write(outputFd_, bytes.data(), bytes.size());
      if (count < 0) {
        if (errno == EINTR) continue;
        return false;
      }
      bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
  }

  int columns() override {
    winsize size{};
    if (ioctl(outputFd_, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
      return 80;
    }
    return size.ws_col;
  }

  void finish() override {
    rawMode_.reset();
    if (outputFd_ == STDOUT_FILENO) {
      std::fputs("\n", stdout);
      std::fflush(stdout);
    } else if (!write("\n")) {
      // Only the cursor's line is lost; the line read stands.
    }
  }

 private:
  int outputFd_;
  TerminalByteSource source_;
  TerminalKeyDecoder decoder_;
  std::optional<RawMode> rawMode_;
};

}  // namespace

bool RawTerminal::inputIsConsole() { return isatty(STDIN_FILENO) != 0; }

bool RawTerminal::readInputByte(char& byte) {
  for (;;) {
    const ssize_t count = ::read(STDIN_FILENO, &byte, 1);
    if (count == 1) return true;
    if (count < 0 && errno == EINTR) continue;
    return false;
  }
}

std::unique_ptr<RawTerminal> RawTerminal::open() {
  if (!state.exitHandlerRegistered) {
    std::atexit(restoreAtExit);
    state.exitHandlerRegistered = true;
  }
  if (tcgetattr(STDIN_FILENO, &state.savedMode) != 0) {
    errno = ENOTTY;
    return nullptr;
  }
  const int outputFd = isatty(STDOUT_FILENO) != 0 ? STDOUT_FILENO : STDIN_FILENO;
  return std::make_unique<PosixTerminal>(outputFd);
}

}  // namespace korvane::lineEdit
