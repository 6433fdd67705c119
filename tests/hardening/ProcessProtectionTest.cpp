// While the program runs (here: waiting at its password prompt), its memory
// is out of reach: the process is not dumpable, so no core file is written
// and a debugger running as the same (unprivileged) user cannot attach, and
// its core size limit is 0.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "tests/hardening/Installation.h"

namespace korvane::hardening {
namespace {

using testing::ChildProcess;

constexpr uid_t unprivileged = 65534;  // nobody
const std::string dropPrivileges = "/usr/bin/setpriv";

// The process whose command line holds `program` and `argument`; -1 if none.
pid_t findProcess(const std::string& program, const std::string& argument) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    const std::string name = entry.path().filename().string();
    if (name.find_first_not_of("0123456789") != std::string::npos) continue;
    std::ifstream file(entry.path() / "cmdline", std::ios::binary);
    std::string commandLine((std::istreambuf_iterator<char>(file)), {});
    if (commandLine.starts_with(program + '\0') &&
        commandLine.find(argument) != std::string::npos) {
      return static_cast<pid_t>(std::stol(name));
    }
  }
  return -1;
}

std::string procLine(pid_t pid, std::string_view file, std::string_view prefix) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/" + std::string(file));
  std::string line;
  while (std::getline(in, line)) {
    if (line.starts_with(prefix)) return line;
  }
  return "";
}

uid_t procOwner(pid_t pid) {
  struct stat status {};
  if (::stat(("/proc/" + std::to_string(pid) + "/status").c_str(), &status) != 0) return 12345;
  return status.st_uid;
}

// Tries to attach to `pid` from a child process running as the unprivileged
// user; returns the errno of the attempt (0 when it succeeded).
int attachAsUnprivileged(pid_t pid) {
  int channel[2];
  if (::pipe(channel) != 0) return -1;
  const pid_t tracer = ::fork();
  if (tracer == 0) {
    ::close(channel[0]);
    int error = 0;
    if (::setgid(unprivileged) != 0 || ::setuid(unprivileged) != 0) {
      error = -2;
    } else if (::ptrace(PTRACE_SEIZE, pid, nullptr, nullptr) != 0) {
      error = errno;
    } else {
      ::ptrace(PTRACE_DETACH, pid, nullptr, nullptr);
    }
    (void)!::write(channel[1], &error, sizeof error);
    ::_exit(0);
  }
  ::close(channel[1]);
  int error = -1;
  if (::read(channel[0], &error, sizeof error) != sizeof error) error = -1;
  ::close(channel[0]);
  ::waitpid(tracer, nullptr, 0);
  return error;
}

std::unique_ptr<ChildProcess> startUnprivileged(const std::string& program,
                                                std::vector<std::string> arguments) {
  ChildProcess::Options options;
  options.arguments = {"--reuid=65534", "--regid=65534", "--clear-groups", program};
  options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
  options.input = ChildProcess::Stream::terminal;
  options.output = ChildProcess::Stream::terminal;
  options.environment = isolatedEnvironment();
  return std::make_unique<ChildProcess>(dropPrivileges, std::move(options));
}

TEST(ProcessProtectionTest, WaitingProgramIsNotDumpableAndWritesNoCore) {
  if (::geteuid() != 0)
    KORVANE_SKIP_OR_FAIL_UNDER_CI("needs root to run the program as another user");
  Installation installation(1);
  installation.writePasswords({0}, 1);
  // The unprivileged program must be able to read the installation.
  using std::filesystem::perms;
  std::filesystem::permissions(installation.directory(),
                               perms::owner_all | perms::group_read | perms::group_exec |
                                   perms::others_read | perms::others_exec);
  for (const auto& file : {installation.usersPath(), installation.passwordsPath()}) {
    std::filesystem::permissions(
        file, perms::owner_read | perms::owner_write | perms::group_read | perms::others_read);
  }

  auto program = startUnprivileged(programPath().string(), installation.arguments(0, false));
  ASSERT_TRUE(program->expect("Password: ")) << program->output();
  const pid_t pid = findProcess(programPath().string(), installation.usersPath().string());
  ASSERT_GT(pid, 0);
  ASSERT_NE(procLine(pid, "status", "Uid:").find(std::to_string(unprivileged)), std::string::npos);

  // The core size limit is 0, soft and hard.
  const std::string limit = procLine(pid, "limits", "Max core file size");
  std::istringstream fields(limit.substr(std::string_view("Max core file size").size()));
  std::string soft;
  std::string hard;
  fields >> soft >> hard;
  EXPECT_EQ(soft, "0") << limit;
  EXPECT_EQ(hard, "0") << limit;

  // The files in /proc/<pid> of a process that is not dumpable belong to
  // root, whoever runs it.
  EXPECT_EQ(procOwner(pid), 0u);

  // A dumpable process of the same user can be attached to; the program
  // cannot. (Where ptrace is forbidden altogether, only the above holds.)
  auto control = startUnprivileged("/bin/sleep", {"30"});
  pid_t controlPid = -1;
  for (int tries = 0; tries < 200 && controlPid < 0; ++tries) {
    controlPid = findProcess("/bin/sleep", "30");
    if (controlPid < 0) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_GT(controlPid, 0);
  EXPECT_EQ(procOwner(controlPid), unprivileged);
  const int controlError = attachAsUnprivileged(controlPid);
  control->signal(SIGKILL);
  control->wait();
  if (controlError != 0) {
    program->signal(SIGKILL);
    program->wait();
    GTEST_SKIP() << "ptrace is not available here (errno " << controlError << ")";
  }
  EXPECT_EQ(attachAsUnprivileged(pid), EPERM);

  program->signal(SIGKILL);
  program->wait();
}

}  // namespace
}  // namespace korvane::hardening
