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

#include "lineEdit/SystemConsole.h"
#include "lineEdit/TerminalKeyDecoder.h"
#include "utils/core/PosixCall.h"

namespace korvane::lineEdit {

namespace {

using utils::core::retryOnInterrupt;

// The signals whose default action ends the process (with or without a core
// dump). Raw mode is process state that outlives the process on its
// terminal, so each of them, when it would end the process, restores the
// terminal first. The real-time signals, which end it too, are added where
// the system has them.
constexpr int terminatingSignals[] = {
    SIGHUP,    SIGINT,  SIGQUIT, SIGILL,  SIGTRAP, SIGABRT, SIGBUS, SIGFPE,  SIGUSR1,   SIGSEGV,
    SIGUSR2,   SIGPIPE, SIGALRM, SIGTERM, SIGXCPU, SIGXFSZ, SIGSYS, SIGPROF, SIGVTALRM,
#ifdef SIGPOLL
    SIGPOLL,
#endif
#ifdef SIGSTKFLT
    SIGSTKFLT,
#endif
#if defined(SIGPWR) && defined(__linux__)  // elsewhere it may be ignored by default
    SIGPWR,
#endif
};

// Process-wide reader state. The signal handler reads it, so it is plain
// data with static storage, indexed by signal number, and the flags it
// tests are sig_atomic_t.
struct ReaderState {
  termios savedMode{};
  termios editMode{};  // raw mode, to go back to after a handler that returns
  volatile std::sig_atomic_t rawMode = 0;
  std::array<struct sigaction, NSIG> previousActions{};
  std::array<volatile std::sig_atomic_t, NSIG> handlerInstalled{};
};

ReaderState state;

void restoreTerminal(int when) {
  if (state.rawMode != 0) {
    tcsetattr(STDIN_FILENO, when, &state.savedMode);
    state.rawMode = 0;
  }
}

void restoreAtExit() { restoreTerminal(TCSADRAIN); }

// The place of a signal number (1 to NSIG - 1) in the tables above.
constexpr std::size_t slot(int signal) noexcept { return static_cast<std::size_t>(signal); }

// Restores the terminal before the action that was in place before raw mode
// runs. The default action is put back and the signal raised again; it is
// delivered as soon as this handler returns and ends the process (a fault
// such as SIGSEGV recurs at the same instruction and meets it). A handler of
// the program's own (a sanitizer's, say) is called with the terminal
// restored; should it return, the edit goes on and raw mode is put back.
// Only async-signal-safe calls.
void onTerminatingSignal(int signal, siginfo_t* info, void* context) {
  const int savedErrno = errno;
  const bool wasRaw = state.rawMode != 0;
  restoreTerminal(TCSANOW);
  if (signal <= 0 || signal >= NSIG || state.handlerInstalled[slot(signal)] == 0) {
    errno = savedErrno;
    return;
  }
  const struct sigaction& previous = state.previousActions[slot(signal)];
  if ((previous.sa_flags & SA_SIGINFO) != 0) {
    previous.sa_sigaction(signal, info, context);
  } else if (previous.sa_handler != SIG_DFL && previous.sa_handler != SIG_IGN) {
    previous.sa_handler(signal);
  } else {
    sigaction(signal, &previous, nullptr);
    state.handlerInstalled[slot(signal)] = 0;
    raise(signal);
    errno = savedErrno;
    return;
  }
  if (wasRaw) {
    tcsetattr(STDIN_FILENO, TCSANOW, &state.editMode);
    state.rawMode = 1;
  }
  errno = savedErrno;
}

bool isIgnored(const struct sigaction& action) {
  return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_IGN;
}

void installSignalHandler(int signal) {
  if (signal <= 0 || signal >= NSIG) return;
  struct sigaction action {};
  action.sa_sigaction = onTerminatingSignal;
  sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESTART | SA_SIGINFO;
  struct sigaction& previous = state.previousActions[slot(signal)];
  if (sigaction(signal, nullptr, &previous) != 0) return;
  if (isIgnored(previous)) return;  // an ignored signal can't end us: it stays ignored
  state.handlerInstalled[slot(signal)] = sigaction(signal, &action, nullptr) == 0 ? 1 : 0;
}

// A process stopped from outside (kill -STOP, -TSTP) and continued finds
// its terminal as the shell left it, echoing: raw mode is put back, so that
// the rest of a password is not shown. Only async-signal-safe calls.
void onContinue(int) {
  const int savedErrno = errno;
  if (state.rawMode != 0) tcsetattr(STDIN_FILENO, TCSANOW, &state.editMode);
  errno = savedErrno;
}

void installContinueHandler() {
  struct sigaction action {};
  action.sa_handler = onContinue;
  sigfillset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  struct sigaction& previous = state.previousActions[slot(SIGCONT)];
  if (sigaction(SIGCONT, nullptr, &previous) != 0) return;
  state.handlerInstalled[slot(SIGCONT)] = sigaction(SIGCONT, &action, nullptr) == 0 ? 1 : 0;
}

void installSignalHandlers() {
  installContinueHandler();
  for (const int signal : terminatingSignals) installSignalHandler(signal);
#if defined(SIGRTMIN) && defined(SIGRTMAX)
  for (int signal = SIGRTMIN; signal <= SIGRTMAX; ++signal) installSignalHandler(signal);
#endif
}

void removeSignalHandlers() {
  for (int signal = 1; signal < NSIG; ++signal) {
    if (state.handlerInstalled[slot(signal)] != 0) {
      sigaction(signal, &state.previousActions[slot(signal)], nullptr);
      state.handlerInstalled[slot(signal)] = 0;
    }
  }
}

// Raw mode for the lifetime of the object: keys arrive byte by byte, unechoed,
// with Ctrl+C, Ctrl+S and Ctrl+V as ordinary bytes and no output processing.
class RawMode {
 public:
  RawMode() {
    termios& raw = state.editMode;
    raw = state.savedMode;
    raw.c_iflag &= ~static_cast<tcflag_t>(BRKINT | ICRNL | INPCK | ISTRIP | IXON);
    raw.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    raw.c_cflag |= CS8;
    raw.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON | IEXTEN | ISIG);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    installSignalHandlers();
    state.rawMode = 1;
    if (retryOnInterrupt([&] { return tcsetattr(STDIN_FILENO, TCSADRAIN, &raw); }) != 0) return;
    // tcsetattr succeeds when any one of the changes took: the mode is read
    // back, so that a password is never read with echo on.
    termios now{};
    active_ = tcgetattr(STDIN_FILENO, &now) == 0 &&
              (now.c_lflag & static_cast<tcflag_t>(ECHO | ICANON)) == 0;
  }
  // Whether the terminal is in raw mode (echo and line editing off).
  bool active() const noexcept { return active_; }
  RawMode(const RawMode&) = delete;
  RawMode& operator=(const RawMode&) = delete;
  ~RawMode() {
    restoreTerminal(TCSADRAIN);
    removeSignalHandlers();
  }

 private:
  bool active_ = false;
};

// A read from a terminal whose other side has just closed may fail with EIO
// while the kernel is still hanging it up, where a moment later it gives the
// end of input: `count` (a read's result, errno set when negative) becomes
// that end when the terminal reports the hang-up. Any other failure, EIO
// from a background process group included, stays a failure.
ssize_t endAtHangUp(ssize_t count) noexcept {
  if (count >= 0 || errno != EIO) return count;
  pollfd input{STDIN_FILENO, POLLIN, 0};
  const int ready = retryOnInterrupt([&] { return poll(&input, 1, 0); });
  if (ready > 0 && (input.revents & POLLHUP) != 0) return 0;
  errno = EIO;
  return count;
}

// Reads standard input byte by byte. poll() bounds the wait inside a key's
// bytes. An interrupted call is made again by retryOnInterrupt, as the
// kernel does itself for the handlers installed here (SA_RESTART); the one
// loop here is for input that another process sharing the terminal made
// non-blocking, where a byte that poll() saw may be gone by the time of the
// read (EAGAIN): that goes back to the wait, which the timeout bounds.
class TerminalByteSource : public TerminalKeyDecoder::ByteSource {
 public:
  int read(unsigned char& byte, int timeoutMilliseconds) override {
    for (;;) {
      pollfd input{STDIN_FILENO, POLLIN, 0};
      // An interrupted wait starts again with the whole timeout: a signal
      // only lengthens the pause allowed inside a key.
      const int ready = retryOnInterrupt([&] { return poll(&input, 1, timeoutMilliseconds); });
      if (ready == 0) {
        errno = ETIMEDOUT;
        return -1;
      }
      if (ready < 0) return -1;
      // 1 with the byte; 0 at the end, also a terminal that hung up.
      const ssize_t count =
          endAtHangUp(retryOnInterrupt([&] { return ::read(STDIN_FILENO, &byte, 1); }));
      if (count >= 0) return static_cast<int>(count);
      if (errno != EAGAIN) return -1;
    }
  }
};

}  // namespace

// What one edit holds: the output chosen for the prompt and the echo, the
// key decoder over standard input, and raw mode, from open() to finish().
struct SystemConsole::Session {
  explicit Session(int output) : outputFd(output), decoder(source) { rawMode.emplace(); }

  int outputFd;
  TerminalByteSource source;
  TerminalKeyDecoder decoder;
  std::optional<RawMode> rawMode;
};

bool SystemConsole::inputIsConsole() noexcept { return isatty(STDIN_FILENO) != 0; }

bool SystemConsole::outputIsConsole(Output output) noexcept {
  return isatty(output == Output::standardOutput ? STDOUT_FILENO : STDERR_FILENO) != 0;
}

int SystemConsole::readInputByte(char& byte) noexcept {
  return static_cast<int>(
      endAtHangUp(retryOnInterrupt([&] { return ::read(STDIN_FILENO, &byte, 1); })));
}

// The terminal decodes the UTF-8 bytes itself.
void SystemConsole::print(Output output, std::string_view text, bool lineEnd) noexcept {
  std::FILE* const stream = output == Output::standardOutput ? stdout : stderr;
  std::fwrite(text.data(), 1, text.size(), stream);
  if (lineEnd) std::fputc('\n', stream);
  std::fflush(stream);
}

// A terminal outlives the processes it runs: nothing to keep open.
void SystemConsole::retainConsole() noexcept {}

SystemConsole::SystemConsole() = default;

SystemConsole::~SystemConsole() = default;

int SystemConsole::open() {
  // Registered once, at the first edit: an exit during any edit restores
  // the console.
  [[maybe_unused]] static const int exitHandler = std::atexit(restoreAtExit);
  if (tcgetattr(STDIN_FILENO, &state.savedMode) != 0) {
    errno = ENOTTY;
    return -1;
  }
  const int outputFd = outputIsConsole(Output::standardOutput) ? STDOUT_FILENO : STDIN_FILENO;
  session_ = std::make_unique<Session>(outputFd);
  if (!session_->rawMode->active()) {
    session_.reset();  // puts back what could be changed
    errno = ENOTTY;
    return -1;
  }
  return 0;
}

int SystemConsole::readKey(KeyCode& key) { return session_->decoder.readKey(key); }

int SystemConsole::write(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count =
        retryOnInterrupt([&] { return ::write(session_->outputFd, bytes.data(), bytes.size()); });
    if (count < 0) return -1;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return 0;
}

int SystemConsole::columns() {
  winsize size{};
  if (ioctl(session_->outputFd, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return 80;
  return size.ws_col;
}

// Standard output is shared with the program's own messages: the new line
// goes through stdio, after what it holds. Elsewhere a failed new line
// loses only the cursor's line; the line read stands.
void SystemConsole::finish() {
  const int savedErrno = errno;
  session_->rawMode.reset();
  if (session_->outputFd == STDOUT_FILENO) {
    std::fputs("\n", stdout);
    std::fflush(stdout);
  } else {
    (void)write("\n");
  }
  errno = savedErrno;
}

}  // namespace korvane::lineEdit
