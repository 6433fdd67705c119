// ChildProcess: runs a program for end-to-end tests, with its standard
// streams on pipes or on a pseudo-terminal, and collects what it prints.
//
// A terminal on standard input makes the program see a console; its output
// can go to the same terminal (what a user sees) or to pipes (to tell
// standard output from standard error); then what the program writes to the
// terminal itself (its prompts) is collected apart. Every wait is bounded: a
// program that does not finish in time is killed and the result says so.
// The program starts with SIGPIPE's default action, as from a shell.
//
// Thread safety: one object, one thread. POSIX only.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::testing {

struct ChildResult {
  int exitStatus = -1;    // exit status, or -1 when killed by a signal
  int signal = 0;         // the signal that ended it, 0 when it exited
  bool timedOut = false;  // killed after the deadline
  std::string out;        // standard output (or the terminal's output)
  std::string err;        // standard error (pipe)
  std::string terminal;   // the terminal's output when standard output is a pipe
};

class ChildProcess {
 public:
  enum class Stream { pipe, terminal, devNull };

  struct Options {
    std::vector<std::string> arguments;
    Stream input = Stream::pipe;
    Stream output = Stream::pipe;  // standard error always goes to a pipe
    // Variables set (or, with std::nullopt, removed) in the child's environment.
    std::map<std::string, std::optional<std::string>> environment;
    std::filesystem::path workingDirectory;
    std::chrono::milliseconds timeout{20000};
  };

  ChildProcess(const std::filesystem::path& program, Options options);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Sends bytes to standard input (pipe or terminal).
  void send(std::string_view bytes);
  // Closes a piped standard input (end of input).
  void closeInput();

  // Reads standard output (or the terminal) until `needle` has appeared
  // after the previous expect's match; false when the time runs out or the
  // program ends first. The text read so far is in output().
  bool expect(std::string_view needle,
              std::chrono::milliseconds timeout = std::chrono::seconds(10));
  // The same for the terminal when standard input is the terminal but
  // standard output a pipe: reads until `needle` has appeared in what the
  // program wrote to the terminal after the previous expectOnTerminal's match.
  bool expectOnTerminal(std::string_view needle,
                        std::chrono::milliseconds timeout = std::chrono::seconds(10));

  const std::string& output() const noexcept { return result_.out; }
  const std::string& terminalOutput() const noexcept { return result_.terminal; }

  // Closes the terminal's master side while the program runs: the terminal
  // hangs up, as when its window is closed. Nothing can be sent afterwards.
  void hangUp();

  // The terminal's attributes as the program left them (terminal input only).
  std::string terminalModes() const;

  void signal(int number);

  // Whether the program has not ended yet; collects what it has printed.
  bool running();

  // Waits for the end (bounded by the options' timeout), collecting output.
  ChildResult wait();

 private:
  bool pump(std::chrono::milliseconds timeout);
  bool reap(bool block);
  bool expectIn(const std::string& text, std::size_t& matchedUpTo, const int& fd,
                std::string_view needle, std::chrono::milliseconds timeout);

  Options options_;
  pid_t pid_ = -1;
  int inputFd_ = -1;     // pipe write end, or terminal master
  int outputFd_ = -1;    // pipe read end, or terminal master
  int errorFd_ = -1;     // pipe read end
  int terminalFd_ = -1;  // terminal master, when one is used
  int slaveFd_ = -1;     // kept open so the terminal stays readable after exit
  int echoFd_ = -1;      // terminal master read apart, when standard output is a pipe
  std::size_t matchedUpTo_ = 0;
  std::size_t terminalMatchedUpTo_ = 0;
  bool exited_ = false;
  ChildResult result_;
};

// Runs `program` to the end with `input` on a pipe (or /dev/null when
// input is std::nullopt).
ChildResult runProgram(const std::filesystem::path& program, std::vector<std::string> arguments,
                       std::optional<std::string_view> input,
                       std::map<std::string, std::optional<std::string>> environment = {});

// A fresh empty directory, removed with its content when the object goes.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view content);

}  // namespace korvane::testing
