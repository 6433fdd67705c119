// SystemConsole on POSIX: which descriptors are a console, the plain read of
// redirected input and its results, and one edit's raw mode, keys and output
// on a pseudo-terminal that stands in for the console.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "lineEdit/KeyCode.h"
#include "lineEdit/SystemConsole.h"
#include "tests/lineEdit/RedirectedDescriptor_posix.h"

namespace korvane::lineEdit {
namespace {

using test::RedirectedDescriptor;

class Pipe {
 public:
  Pipe() { EXPECT_EQ(pipe(ends_), 0); }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    for (const int end : ends_) {
      if (end >= 0) close(end);
    }
  }

  int readEnd() const { return ends_[0]; }
  int writeEnd() const { return ends_[1]; }
  void closeWriteEnd() {
    close(ends_[1]);
    ends_[1] = -1;
  }

 private:
  int ends_[2] = {-1, -1};
};

// A pseudo-terminal of 100 columns: the test types on the master side.
class PseudoTerminal {
 public:
  PseudoTerminal() {
    winsize size{};
    size.ws_row = 24;
    size.ws_col = 100;
    EXPECT_EQ(openpty(&master_, &slave_, nullptr, nullptr, &size), 0);
  }
  PseudoTerminal(const PseudoTerminal&) = delete;
  PseudoTerminal& operator=(const PseudoTerminal&) = delete;
  ~PseudoTerminal() {
    close(master_);
    close(slave_);
  }

  int slave() const { return slave_; }

  void type(const std::string& bytes) const {
    EXPECT_EQ(::write(master_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  // What the terminal shows: everything written to the slave so far.
  std::string shown() const {
    std::string text;
    pollfd output{master_, POLLIN, 0};
    char chunk[256];
    while (poll(&output, 1, 200) == 1) {
      const ssize_t count = ::read(master_, chunk, sizeof chunk);
      if (count <= 0) break;
      text.append(chunk, static_cast<std::size_t>(count));
    }
    return text;
  }

  tcflag_t localModes() const {
    termios modes{};
    EXPECT_EQ(tcgetattr(slave_, &modes), 0);
    return modes.c_lflag;
  }

 private:
  int master_ = -1;
  int slave_ = -1;
};

TEST(SystemConsoleTest, OnlyATerminalIsAConsole) {
  const Pipe pipe;
  {
    const RedirectedDescriptor input(STDIN_FILENO, dup(pipe.readEnd()));
    const RedirectedDescriptor error(STDERR_FILENO, dup(pipe.writeEnd()));
    EXPECT_FALSE(SystemConsole::inputIsConsole());
    EXPECT_FALSE(SystemConsole::outputIsConsole(SystemConsole::Output::standardError));
  }
  const PseudoTerminal terminal;
  const RedirectedDescriptor input(STDIN_FILENO, dup(terminal.slave()));
  const RedirectedDescriptor error(STDERR_FILENO, dup(terminal.slave()));
  EXPECT_TRUE(SystemConsole::inputIsConsole());
  EXPECT_TRUE(SystemConsole::outputIsConsole(SystemConsole::Output::standardError));
}

TEST(SystemConsoleTest, PlainReadGivesBytesThenTheEnd) {
  Pipe pipe;
  ASSERT_EQ(::write(pipe.writeEnd(), "ab", 2), 2);
  pipe.closeWriteEnd();
  const RedirectedDescriptor input(STDIN_FILENO, dup(pipe.readEnd()));
  char byte = 0;
  EXPECT_EQ(SystemConsole::readInputByte(byte), 1);
  EXPECT_EQ(byte, 'a');
  EXPECT_EQ(SystemConsole::readInputByte(byte), 1);
  EXPECT_EQ(byte, 'b');
  EXPECT_EQ(SystemConsole::readInputByte(byte), 0);
}

TEST(SystemConsoleTest, PlainReadFailureIsMinusOneWithErrno) {
  const int writeOnly = open("/dev/null", O_WRONLY);
  ASSERT_GE(writeOnly, 0);
  const RedirectedDescriptor input(STDIN_FILENO, writeOnly);
  char byte = 0;
  errno = 0;
  EXPECT_EQ(SystemConsole::readInputByte(byte), -1);
  EXPECT_EQ(errno, EBADF);
}

TEST(SystemConsoleTest, OpenRefusesInputThatIsNoTerminal) {
  const Pipe pipe;
  const RedirectedDescriptor input(STDIN_FILENO, dup(pipe.readEnd()));
  SystemConsole console;
  errno = 0;
  EXPECT_EQ(console.open(), -1);
  EXPECT_EQ(errno, ENOTTY);
}

// One edit: raw mode from open() to finish(), keys decoded from the typed
// bytes, the echo and the final new line on the terminal.
TEST(SystemConsoleTest, EditTakesTheTerminalAndGivesItBack) {
  const PseudoTerminal terminal;
  const RedirectedDescriptor input(STDIN_FILENO, dup(terminal.slave()));
  const RedirectedDescriptor output(STDOUT_FILENO, dup(terminal.slave()));
  const tcflag_t before = terminal.localModes();
  ASSERT_NE(before & ECHO, 0u);

  SystemConsole console;
  ASSERT_EQ(console.open(), 0);
  EXPECT_EQ(terminal.localModes() & (ECHO | ICANON | ISIG), 0u);
  EXPECT_EQ(console.columns(), 100);

  terminal.type("\x1b[Az\xc3\xa9");
  KeyCode key = 0;
  ASSERT_EQ(console.readKey(key), 1);
  EXPECT_EQ(key, keys::up);
  ASSERT_EQ(console.readKey(key), 1);
  EXPECT_EQ(key, KeyCode{'z'});
  ASSERT_EQ(console.readKey(key), 1);
  EXPECT_EQ(key, KeyCode{0xE9});
  EXPECT_EQ(console.write("*"), 0);

  errno = EIO;  // a failure that finish() must not hide
  console.finish();
  EXPECT_EQ(errno, EIO);
  EXPECT_EQ(terminal.localModes(), before);
  EXPECT_EQ(terminal.shown(), "*\r\n");
}

}  // namespace
}  // namespace korvane::lineEdit
