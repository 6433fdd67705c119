// Runs readLineProbe on a pseudo-terminal and types at it: masked echo, key
// sequences, cancelling, and the terminal modes after every way a read ends:
// also signals, a terminal that hangs up, and bytes that are not UTF-8.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds timeout{5000};

std::string hex(std::string_view bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  std::string text;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    text += digits[byte >> 4];
    text += digits[byte & 0xF];
  }
  return text;
}

struct ProbeOptions {
  int lines = 1;
  // Signals the probe starts with ignored, as under nohup for SIGHUP.
  std::vector<int> ignoredSignals{};
  // The probe's standard output on a pipe, so that its results still arrive
  // after the terminal has hung up; prompts then go to the terminal itself.
  bool resultsOnPipe = false;
};

// The probe on the slave side of a pseudo-terminal; the test holds the
// master side and a descriptor of the slave to look at its modes.
class ProbeSession {
 public:
  explicit ProbeSession(int lines = 1) : ProbeSession(ProbeOptions{.lines = lines}) {}
  explicit ProbeSession(const ProbeOptions& options) {
    int results[2] = {-1, -1};
    if (options.resultsOnPipe && pipe(results) != 0) return;
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 80;
    pid_ = forkpty(&master_, nullptr, nullptr, &size);
    if (pid_ == 0) {
      for (const int number : options.ignoredSignals) ::signal(number, SIG_IGN);
      if (options.resultsOnPipe) {
        dup2(results[1], STDOUT_FILENO);
        close(results[0]);
        close(results[1]);
      }
      const std::string count = std::to_string(options.lines);
      execl(KORVANE_READ_LINE_PROBE, KORVANE_READ_LINE_PROBE, count.c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
    if (options.resultsOnPipe) {
      close(results[1]);
      results_ = results[0];
    }
    if (pid_ > 0) slave_ = open(ptsname(master_), O_RDWR | O_NOCTTY);
  }
  ProbeSession(const ProbeSession&) = delete;
  ProbeSession& operator=(const ProbeSession&) = delete;
  ~ProbeSession() {
    if (pid_ > 0 && !exited_) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (slave_ >= 0) close(slave_);
    if (master_ >= 0) close(master_);
    if (results_ >= 0) close(results_);
  }

  // Closes the master side: the terminal hangs up, as when its window is
  // closed.
  void hangUp() {
    close(master_);
    master_ = -1;
  }

  bool started() const { return pid_ > 0 && slave_ >= 0; }

  // Reads output until it holds `text` after the first `from` bytes.
  bool waitFor(std::string_view text, std::size_t from = 0) {
    const auto deadline = Clock::now() + timeout;
    while (output_.find(text, from) == std::string::npos) {
      const auto left =
          std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
      if (left.count() <= 0) return false;
      if (!drain(static_cast<int>(left.count()))) {
        return output_.find(text, from) != std::string::npos;
      }
    }
    return true;
  }

  void send(std::string_view bytes) {
    ASSERT_EQ(write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  // Waits for the probe to end; returns its waitpid status, or -1.
  int wait() {
    const auto deadline = Clock::now() + timeout;
    while (Clock::now() < deadline) {
      // Keep draining the output so the probe never blocks on a full pty.
      drain(10);
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        exited_ = true;
        return status;
      }
    }
    return -1;
  }

  // The modes of the terminal as the probe sees them, hex-encoded like the
  // probe's "MODES" lines.
  std::string slaveModes() const {
    termios mode{};
    if (tcgetattr(slave_, &mode) != 0) return "none";
    return hex(std::string_view(reinterpret_cast<const char*>(&mode), sizeof mode));
  }

  // Sets the terminal's modes, as a shell does when it takes the terminal
  // back from a stopped job.
  void setSlaveTermios(const termios& mode) const { tcsetattr(slave_, TCSANOW, &mode); }

  termios slaveTermios() const {
    termios mode{};
    tcgetattr(slave_, &mode);
    return mode;
  }

  // The hex text of the n-th "MODES " line.
  std::string modesLine(int n) const {
    std::size_t at = 0;
    for (int i = 0; i <= n; ++i) {
      at = output_.find("MODES ", i == 0 ? 0 : at + 1);
      if (at == std::string::npos) return "missing";
    }
    const std::size_t begin = at + 6;
    const std::size_t end = output_.find_first_of("\r\n", begin);
    return output_.substr(begin, end - begin);
  }

  void signal(int number) const { kill(pid_, number); }

  const std::string& output() const { return output_; }

 private:
  // Appends what the terminal and the results pipe have, waiting at most
  // timeoutMilliseconds; false once neither can give more.
  bool drain(int timeoutMilliseconds) {
    pollfd fds[2];
    nfds_t count = 0;
    if (master_ >= 0) fds[count++] = {master_, POLLIN, 0};
    if (results_ >= 0) fds[count++] = {results_, POLLIN, 0};
    if (count == 0) return false;
    if (poll(fds, count, timeoutMilliseconds) <= 0) return true;
    bool more = false;
    for (nfds_t i = 0; i < count; ++i) {
      if (fds[i].revents == 0) {
        more = true;
        continue;
      }
      char chunk[512];
      const ssize_t got = read(fds[i].fd, chunk, sizeof chunk);
      if (got > 0) {
        output_.append(chunk, static_cast<std::size_t>(got));
        more = true;
      }
    }
    return more;
  }

  pid_t pid_ = -1;
  int master_ = -1;
  int slave_ = -1;
  int results_ = -1;
  bool exited_ = false;
  std::string output_;
};

constexpr std::string_view cancelled = "CANCELLED user cancelled input by pressing pressed Ctrl+C";

// Types `keys` after the prompt, expects `result` and the terminal modes
// back as they were.
void expectRead(std::string_view keys, std::string_view result) {
  ProbeSession probe;
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("Password: ")) << probe.output();
  probe.send(keys);
  ASSERT_TRUE(probe.waitFor(result)) << probe.output();
  const int status = probe.wait();
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(probe.modesLine(1), probe.modesLine(0));
  EXPECT_EQ(probe.slaveModes(), probe.modesLine(0));
}

TEST(ReadLinePtyTest, TypingEchoesMasks) {
  ProbeSession probe;
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("MODES "));
  ASSERT_TRUE(probe.waitFor("Password: ")) << probe.output();
  const std::size_t promptEnd = probe.output().find("Password: ") + 10;
  probe.send("abc");
  ASSERT_TRUE(probe.waitFor("***", promptEnd)) << probe.output();
  probe.send("\r");
  ASSERT_TRUE(probe.waitFor("RESULT [616263]")) << probe.output();
  EXPECT_EQ(probe.output().find("abc"), std::string::npos);  // never echoed
  ASSERT_TRUE(WIFEXITED(probe.wait()));
  EXPECT_EQ(probe.modesLine(1), probe.modesLine(0));
}

TEST(ReadLinePtyTest, EnterOnEmptyLineReturnsEmptyLine) { expectRead("\r", "RESULT []"); }

TEST(ReadLinePtyTest, LineFeedActsAsEnter) { expectRead("ab\n", "RESULT [6162]"); }

TEST(ReadLinePtyTest, BackspaceRemovesMultiByteCharacter) {
  expectRead(
      "a\xc3\xa9\x7f"
      "b\r",
      "RESULT [6162]");
  expectRead("a\xe4\xb8\xad\x08\r", "RESULT [61]");
}

TEST(ReadLinePtyTest, NonAsciiIsReturnedAsUtf8) {
  expectRead("\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80\r", "RESULT [c3a9e282acf09f9880]");
}

TEST(ReadLinePtyTest, CursorKeysAsEscapeSequences) {
  // "ac", Left, "b", Home, "X", End, "Y", Delete at the end (nothing),
  // Home, Delete (removes X): "abcY".
  expectRead("ac\x1b[Db\x1b[HX\x1b[FY\x1b[3~\x1b[H\x1b[3~\r", "RESULT [61626359]");
  expectRead("ab\x1bOH\x1b[1~X\x1bOF\x1b[4~Y\x1b[7~\x1b[C\x1b[8~\r",
             "RESULT [586162"
             "59]");
}

TEST(ReadLinePtyTest, UnknownSequencesAreIgnored) {
  expectRead("a\x1b[5~\x1b[1;5C\x1bOPb\r", "RESULT [6162]");
}

// A control sequence longer than any key, typed between the characters of
// a password, leaves exactly the typed characters.
TEST(ReadLinePtyTest, LongSequencesAreIgnored) {
  std::string thirtyParameters = "\x1b[";
  for (int i = 0; i < 30; ++i) thirtyParameters += "1;";
  std::string longer = "\x1b[";
  for (int i = 0; i < 1000; ++i) longer += "1;";
  expectRead("ab" + thirtyParameters + "12mcd" + longer + "12me\r", "RESULT [6162636465]");
}

// Ctrl+@ and Ctrl+Space send a NUL byte: it never becomes part of the line
// and is not echoed.
TEST(ReadLinePtyTest, NulByteIsIgnored) {
  expectRead(std::string_view("a\0b\0\r", 5), "RESULT [6162]");
}

TEST(ReadLinePtyTest, NulByteAloneGivesAnEmptyLine) {
  expectRead(std::string_view("\0\r", 2), "RESULT []");
}

TEST(ReadLinePtyTest, CtrlCCancels) { expectRead("ab\x03", cancelled); }

TEST(ReadLinePtyTest, LoneEscapeCancels) { expectRead("ab\x1b", cancelled); }

TEST(ReadLinePtyTest, CtrlDOnEmptyLineCancels) { expectRead("\x04", cancelled); }

TEST(ReadLinePtyTest, DeleteKeyOnEmptyLineCancels) { expectRead("\x1b[3~", cancelled); }

TEST(ReadLinePtyTest, CtrlDOnNonEmptyLineDeletes) { expectRead("ab\x01\x04\r", "RESULT [62]"); }

TEST(ReadLinePtyTest, TwoReadsInARow) {
  ProbeSession probe(2);
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("Password: "));
  probe.send("x\r");
  ASSERT_TRUE(probe.waitFor("RESULT [78]")) << probe.output();
  const std::size_t first = probe.output().find("RESULT [78]");
  ASSERT_TRUE(probe.waitFor("Password: ", first)) << probe.output();
  probe.send("\x03");
  ASSERT_TRUE(probe.waitFor(cancelled)) << probe.output();
  ASSERT_TRUE(WIFEXITED(probe.wait()));
  EXPECT_EQ(probe.modesLine(1), probe.modesLine(0));
}

TEST(ReadLinePtyTest, RawModeWhileReading) {
  ProbeSession probe;
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("Password: "));
  const termios raw = probe.slaveTermios();
  EXPECT_EQ(raw.c_lflag & (ECHO | ICANON | ISIG | IEXTEN), 0u);
  EXPECT_EQ(raw.c_iflag & (ICRNL | IXON), 0u);
  EXPECT_EQ(raw.c_oflag & OPOST, 0u);
  EXPECT_EQ(raw.c_cc[VMIN], 1);
  EXPECT_EQ(raw.c_cc[VTIME], 0);
  EXPECT_NE(probe.slaveModes(), probe.modesLine(0));
  probe.send("\r");
  ASSERT_TRUE(probe.waitFor("RESULT []"));
}

// Stopped from outside and continued after the shell set its own modes:
// the editor puts raw mode back, so that the rest of the line is not echoed.
TEST(ReadLinePtyTest, RawModeComesBackWhenContinued) {
  ProbeSession probe;
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("Password: "));
  const std::string raw = probe.slaveModes();
  termios cooked = probe.slaveTermios();
  cooked.c_lflag |= ECHO | ICANON;
  probe.setSlaveTermios(cooked);
  ASSERT_NE(probe.slaveModes(), raw);
  probe.signal(SIGCONT);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (probe.slaveModes() != raw && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  EXPECT_EQ(probe.slaveModes(), raw) << "the terminal was left echoing";
  probe.send("\r");
  ASSERT_TRUE(probe.waitFor("RESULT []"));
}

void killProbeAndCheck(int signal) {
  ProbeSession probe;
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("Password: "));
  probe.send("secret");
  ASSERT_TRUE(probe.waitFor("******")) << probe.output();
  const std::string before = probe.modesLine(0);
  ASSERT_NE(probe.slaveModes(), before);  // raw mode is on
  probe.signal(signal);
  const int status = probe.wait();
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(WTERMSIG(status), signal);
  EXPECT_EQ(probe.slaveModes(), before);
}

TEST(ReadLinePtyTest, ModesRestoredAfterSigterm) { killProbeAndCheck(SIGTERM); }

TEST(ReadLinePtyTest, ModesRestoredAfterSighup) { killProbeAndCheck(SIGHUP); }

// Raw mode turns Ctrl+C into a key, but SIGINT still comes from outside.
TEST(ReadLinePtyTest, ModesRestoredAfterSigint) { killProbeAndCheck(SIGINT); }

// Every other signal whose default action ends the process.
TEST(ReadLinePtyTest, ModesRestoredAfterEveryTerminatingSignal) {
  for (const int number :
       {SIGQUIT, SIGPIPE, SIGALRM, SIGUSR1, SIGUSR2, SIGXCPU, SIGXFSZ, SIGVTALRM, SIGPROF, SIGABRT,
        SIGSYS, SIGTRAP, SIGIO, SIGSTKFLT, SIGPWR, SIGRTMIN, SIGRTMAX}) {
    SCOPED_TRACE(number);
    killProbeAndCheck(number);
  }
}

// The faults: a sanitizer may report them itself before the process ends,
// so only the end and the modes are checked.
TEST(ReadLinePtyTest, ModesRestoredAfterFaultSignals) {
  for (const int number : {SIGSEGV, SIGBUS, SIGILL, SIGFPE}) {
    SCOPED_TRACE(number);
    ProbeSession probe;
    ASSERT_TRUE(probe.started());
    ASSERT_TRUE(probe.waitFor("Password: "));
    const std::string before = probe.modesLine(0);
    ASSERT_NE(probe.slaveModes(), before);
    probe.signal(number);
    const int status = probe.wait();
    ASSERT_NE(status, -1) << "the probe did not end";
    EXPECT_FALSE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(probe.slaveModes(), before);
  }
}

TEST(ReadLinePtyTest, IgnoredSignalStaysIgnored) {
  ProbeSession probe(ProbeOptions{.ignoredSignals = {SIGUSR1}});
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("Password: "));
  const std::string before = probe.modesLine(0);
  probe.signal(SIGUSR1);
  probe.send("ab");
  ASSERT_TRUE(probe.waitFor("**")) << probe.output();  // still reading, in raw mode
  EXPECT_NE(probe.slaveModes(), before);
  probe.signal(SIGUSR2);  // not ignored: ends the probe, the modes restored
  const int status = probe.wait();
  ASSERT_TRUE(WIFSIGNALED(status)) << status;
  EXPECT_EQ(WTERMSIG(status), SIGUSR2);
  EXPECT_EQ(probe.slaveModes(), before);
}

// A terminal that hangs up while SIGHUP is ignored (nohup) reads as ended:
// the line typed so far is no entry, and the next read ends at once too.
TEST(ReadLinePtyTest, HangUpEndsEveryRead) {
  ProbeSession probe(ProbeOptions{.lines = 2, .ignoredSignals = {SIGHUP}, .resultsOnPipe = true});
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("Password: ")) << probe.output();
  probe.send("secret");
  ASSERT_TRUE(probe.waitFor("******")) << probe.output();
  probe.hangUp();
  const int status = probe.wait();
  ASSERT_TRUE(WIFEXITED(status)) << status;
  EXPECT_EQ(WEXITSTATUS(status), 0);
  const std::size_t first = probe.output().find(cancelled);
  ASSERT_NE(first, std::string::npos) << probe.output();
  EXPECT_NE(probe.output().find(cancelled, first + 1), std::string::npos) << probe.output();
  EXPECT_EQ(probe.output().find("RESULT"), std::string::npos) << probe.output();
}

// A byte that is not UTF-8 (here a Latin-1 "ö") refuses the line instead of
// dropping the byte; the modes come back as after any other read.
TEST(ReadLinePtyTest, BytesThatAreNotUtf8RefuseTheLine) {
  expectRead("vL\xf6p2\r",
             "ERROR the terminal sent bytes that are not UTF-8; set the terminal to UTF-8, or "
             "give the password on redirected input");
  expectRead("a\xc3\r", "ERROR the terminal sent bytes");
}

TEST(ReadLinePtyTest, BytesThatAreNotUtf8AreNotEchoed) {
  ProbeSession probe;
  ASSERT_TRUE(probe.started());
  ASSERT_TRUE(probe.waitFor("Password: "));
  const std::size_t promptEnd = probe.output().find("Password: ") + 10;
  probe.send(
      "ab\xf6\xf6\xf6"
      "c\r");
  ASSERT_TRUE(probe.waitFor("ERROR ")) << probe.output();
  const std::string echo =
      probe.output().substr(promptEnd, probe.output().find("ERROR ") - promptEnd);
  EXPECT_EQ(echo.find("****"), std::string::npos) << echo;
  EXPECT_NE(echo.find("***"), std::string::npos) << echo;
}

}  // namespace
