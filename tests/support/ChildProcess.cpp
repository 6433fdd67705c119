#include "tests/support/ChildProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "utils/core/PosixCall.h"

namespace korvane::testing {

namespace {

[[noreturn]] void fail(const char* what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void closeFd(int& fd) {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

using Clock = std::chrono::steady_clock;

}  // namespace

ChildProcess::ChildProcess(const std::filesystem::path& program, Options options)
    : options_(std::move(options)) {
  int inPipe[2] = {-1, -1};
  int outPipe[2] = {-1, -1};
  int errPipe[2] = {-1, -1};
  const bool useTerminal =
      options_.input == Stream::terminal || options_.output == Stream::terminal;
  if (useTerminal) {
    struct winsize size = {};
    size.ws_row = 24;
    size.ws_col = 80;
    if (::openpty(&terminalFd_, &slaveFd_, nullptr, nullptr, &size) < 0) fail("openpty");
  }
  if (options_.input == Stream::pipe && ::pipe(inPipe) < 0) fail("pipe");
  if (options_.output == Stream::pipe && ::pipe(outPipe) < 0) fail("pipe");
  if (::pipe(errPipe) < 0) fail("pipe");

  std::vector<std::string> argv{program.string()};
  argv.insert(argv.end(), options_.arguments.begin(), options_.arguments.end());

  pid_ = ::fork();
  if (pid_ < 0) fail("fork");
  if (pid_ == 0) {
    if (useTerminal) {
      ::setsid();
      ::ioctl(slaveFd_, TIOCSCTTY, 0);
    }
    int inFd = -1;
    switch (options_.input) {
      case Stream::pipe:
        inFd = inPipe[0];
        break;
      case Stream::terminal:
        inFd = slaveFd_;
        break;
      case Stream::devNull:
        inFd = ::open("/dev/null", O_RDONLY);
        break;
    }
    const int outFd = options_.output == Stream::terminal ? slaveFd_ : outPipe[1];
    ::dup2(inFd, 0);
    ::dup2(outFd, 1);
    ::dup2(errPipe[1], 2);
    for (int fd = 3; fd < 1024; ++fd) ::close(fd);
    // The test ignores SIGPIPE, and an ignored signal stays ignored across
    // exec: give the program the action a shell would.
    ::signal(SIGPIPE, SIG_DFL);
    for (const auto& [name, value] : options_.environment) {
      if (value) {
        ::setenv(name.c_str(), value->c_str(), 1);
      } else {
        ::unsetenv(name.c_str());
      }
    }
    if (!options_.workingDirectory.empty() && ::chdir(options_.workingDirectory.c_str()) < 0) {
      ::_exit(126);
    }
    std::vector<char*> raw;
    for (auto& a : argv) raw.push_back(a.data());
    raw.push_back(nullptr);
    ::execv(raw[0], raw.data());
    ::_exit(127);
  }
  if (options_.input == Stream::pipe) {
    ::close(inPipe[0]);
    inputFd_ = inPipe[1];
  } else if (options_.input == Stream::terminal) {
    inputFd_ = terminalFd_;
  }
  if (options_.output == Stream::pipe) {
    ::close(outPipe[1]);
    outputFd_ = outPipe[0];
    echoFd_ = terminalFd_;
  } else {
    outputFd_ = terminalFd_;
  }
  ::close(errPipe[1]);
  errorFd_ = errPipe[0];
  ::signal(SIGPIPE, SIG_IGN);
}

ChildProcess::~ChildProcess() {
  if (!exited_ && pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  if (inputFd_ != terminalFd_) closeFd(inputFd_);
  if (outputFd_ != terminalFd_) closeFd(outputFd_);
  closeFd(errorFd_);
  closeFd(terminalFd_);
  closeFd(slaveFd_);
}

void ChildProcess::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t done = utils::core::retryOnInterrupt(
        [&] { return ::write(inputFd_, bytes.data(), bytes.size()); });
    if (done < 0) return;  // the program stopped reading; its result tells why
    bytes.remove_prefix(static_cast<std::size_t>(done));
  }
}

void ChildProcess::closeInput() {
  if (options_.input == Stream::pipe) closeFd(inputFd_);
}

void ChildProcess::hangUp() {
  if (terminalFd_ < 0) return;
  if (inputFd_ == terminalFd_) inputFd_ = -1;
  if (outputFd_ == terminalFd_) outputFd_ = -1;
  echoFd_ = -1;
  closeFd(terminalFd_);
}

bool ChildProcess::pump(std::chrono::milliseconds timeout) {
  pollfd fds[3];
  nfds_t count = 0;
  if (outputFd_ >= 0) fds[count++] = {outputFd_, POLLIN, 0};
  if (errorFd_ >= 0) fds[count++] = {errorFd_, POLLIN, 0};
  if (echoFd_ >= 0) fds[count++] = {echoFd_, POLLIN, 0};
  if (count == 0) return false;
  const int ready = ::poll(fds, count, static_cast<int>(timeout.count()));
  if (ready <= 0) return false;
  bool got = false;
  for (nfds_t i = 0; i < count; ++i) {
    if (fds[i].revents == 0) continue;
    char buffer[4096];
    const ssize_t n =
        utils::core::retryOnInterrupt([&] { return ::read(fds[i].fd, buffer, sizeof buffer); });
    const bool isOutput = fds[i].fd == outputFd_;
    const bool isEcho = fds[i].fd == echoFd_;
    if (n > 0) {
      std::string& text = isOutput ? result_.out : isEcho ? result_.terminal : result_.err;
      text.append(buffer, static_cast<std::size_t>(n));
      got = true;
    } else if (n == 0 || errno != EAGAIN) {
      // End of a pipe, or EIO on a terminal whose program has gone.
      if (isEcho) {
        echoFd_ = -1;  // the master stays open for the slave's modes
      } else if (isOutput) {
        if (outputFd_ != terminalFd_) closeFd(outputFd_);
        outputFd_ = -1;
      } else {
        closeFd(errorFd_);
      }
    }
  }
  return got;
}

bool ChildProcess::expect(std::string_view needle, std::chrono::milliseconds timeout) {
  return expectIn(result_.out, matchedUpTo_, outputFd_, needle, timeout);
}

bool ChildProcess::expectOnTerminal(std::string_view needle, std::chrono::milliseconds timeout) {
  return expectIn(result_.terminal, terminalMatchedUpTo_, echoFd_, needle, timeout);
}

// `fd` is the member that reads `text`: -1 once it has ended.
bool ChildProcess::expectIn(const std::string& text, std::size_t& matchedUpTo, const int& fd,
                            std::string_view needle, std::chrono::milliseconds timeout) {
  const auto deadline = Clock::now() + timeout;
  for (;;) {
    const std::size_t at = text.find(needle, matchedUpTo);
    if (at != std::string::npos) {
      matchedUpTo = at + needle.size();
      return true;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    if (!pump(std::min(left, std::chrono::milliseconds(100))) && reap(false) && fd < 0) {
      return text.find(needle, matchedUpTo) != std::string::npos;
    }
  }
}

std::string ChildProcess::terminalModes() const {
  termios modes{};
  if (::tcgetattr(slaveFd_ >= 0 ? slaveFd_ : terminalFd_, &modes) < 0) return "unavailable";
  std::ostringstream text;
  text << std::hex << modes.c_iflag << ' ' << modes.c_oflag << ' ' << modes.c_cflag << ' '
       << modes.c_lflag;
  for (const cc_t c : modes.c_cc) text << ' ' << static_cast<unsigned>(c);
  return text.str();
}

void ChildProcess::signal(int number) {
  if (!exited_) ::kill(pid_, number);
}

bool ChildProcess::running() {
  // Read what is there, so that a program that fills a pipe is not taken
  // for one that hangs.
  while (pump(std::chrono::milliseconds(0))) {
  }
  return !reap(false);
}

bool ChildProcess::reap(bool block) {
  if (exited_) return true;
  int status = 0;
  const pid_t done = ::waitpid(pid_, &status, block ? 0 : WNOHANG);
  if (done != pid_) return false;
  exited_ = true;
  if (WIFEXITED(status)) {
    result_.exitStatus = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result_.signal = WTERMSIG(status);
  }
  return true;
}

ChildResult ChildProcess::wait() {
  const auto deadline = Clock::now() + options_.timeout;
  for (;;) {
    if (reap(false)) {
      // Drain what is left; a terminal reports EIO once empty.
      while (pump(std::chrono::milliseconds(50))) {
      }
      break;
    }
    if (Clock::now() >= deadline) {
      result_.timedOut = true;
      ::kill(pid_, SIGKILL);
      reap(true);
      break;
    }
    pump(std::chrono::milliseconds(50));
  }
  return result_;
}

ChildResult runProgram(const std::filesystem::path& program, std::vector<std::string> arguments,
                       std::optional<std::string_view> input,
                       std::map<std::string, std::optional<std::string>> environment) {
  ChildProcess::Options options;
  options.arguments = std::move(arguments);
  options.input = input ? ChildProcess::Stream::pipe : ChildProcess::Stream::devNull;
  options.environment = std::move(environment);
  ChildProcess child(program, std::move(options));
  if (input) {
    child.send(*input);
    child.closeInput();
  }
  return child.wait();
}

TemporaryDirectory::TemporaryDirectory() {
  std::string pattern = (std::filesystem::temp_directory_path() / "korvane-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) fail("mkdtemp");
  path_ = pattern;
}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  // Tests may leave directories without write permission behind.
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ignored);
  std::filesystem::remove_all(path_, ignored);
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  std::ostringstream content;
  content << in.rdbuf();
  return content.str();
}

void writeFile(const std::filesystem::path& path, std::string_view content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

}  // namespace korvane::testing
