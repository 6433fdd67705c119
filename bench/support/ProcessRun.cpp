// Starting, reaping and measuring a benchmark's child processes.
#include "bench/support/ProcessRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <fstream>
#include <stdexcept>

extern char** environ;

namespace korvane::bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t pipeCapacity = 65536;

double milliseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

std::runtime_error systemError(const std::string& what) {
  return std::runtime_error(what + ": " + std::strerror(errno));
}

// A file descriptor closed when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int fd = -1) noexcept : fd_(fd) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  Descriptor& operator=(Descriptor&&) = delete;

  int get() const noexcept { return fd_; }
  void close() noexcept {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

// The read end of a pipe that already holds all of `input` and whose write
// end is closed: the child reads the input, then the end of the file.
Descriptor inputPipe(std::string_view input) {
  if (input.size() > pipeCapacity) throw std::runtime_error("the input is larger than a pipe");
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) throw systemError("pipe");
  Descriptor readEnd(fds[0]);
  Descriptor writeEnd(fds[1]);
  if (!input.empty() &&
      ::write(writeEnd.get(), input.data(), input.size()) != static_cast<ssize_t>(input.size())) {
    throw systemError("writing the input to a pipe");
  }
  return readEnd;
}

// posix_spawn's file actions, destroyed when they go out of scope.
class FileActions {
 public:
  FileActions() { ::posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { ::posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;

  posix_spawn_file_actions_t* get() noexcept { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// Makes the process's recorded peak resident size its current one.
void resetOwnPeak() {
  std::ofstream clear("/proc/self/clear_refs");
  clear << "5";
}

ProcessCost costOf(const rusage& usage, Clock::duration wall) {
  ProcessCost cost;
  cost.wallMs = std::chrono::duration<double, std::milli>(wall).count();
  cost.cpuMs = milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime);
  cost.faults =
      static_cast<std::uint64_t>(usage.ru_minflt) + static_cast<std::uint64_t>(usage.ru_majflt);
  cost.peakBytes = static_cast<std::uint64_t>(usage.ru_maxrss) * 1024U;
  return cost;
}

}  // namespace

ProcessOutcome runProcess(const std::vector<std::string>& argv, std::string_view input,
                          const std::filesystem::path& errorPath) {
  Descriptor stdinPipe = inputPipe(input);
  FileActions actions;
  ::posix_spawn_file_actions_adddup2(actions.get(), stdinPipe.get(), 0);
  ::posix_spawn_file_actions_addopen(actions.get(), 1, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_addopen(actions.get(), 2, errorPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<char*> raw;
  for (const auto& argument : argv) raw.push_back(const_cast<char*>(argument.c_str()));
  raw.push_back(nullptr);
  resetOwnPeak();
  pid_t pid = 0;
  const auto start = Clock::now();
  const int spawnError = ::posix_spawn(&pid, raw[0], actions.get(), nullptr, raw.data(), environ);
  if (spawnError != 0) {
    errno = spawnError;
    throw systemError("cannot start " + argv[0]);
  }
  int waitStatus = 0;
  rusage usage{};
  if (::wait4(pid, &waitStatus, 0, &usage) != pid) throw systemError("wait4");
  const auto wall = Clock::now() - start;
  ProcessOutcome outcome;
  outcome.cost = costOf(usage, wall);
  outcome.exitStatus = WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : -1;
  return outcome;
}

std::uint64_t emptyProcessPeak() { return runProcess({"/bin/true"}, "").cost.peakBytes; }

}  // namespace korvane::bench
