// Where the time of a whole run goes. Each process-level measurement starts
// the program as a new process, as an administrator's script does:
//   start      KorvanePassword -Version: start-up and exit only
//   weak-ok    a run with -DontRejectInsecurePasswords: no strength estimate
//   full       a whole run: start-up, estimate, hash, file I/O
//   mkpasswd   `mkpasswd -m sha-512 -s`, which only hashes and prints: the
//              reference the whole run is compared with
// and the in-process parts: the estimate, the hash, the password file I/O.
// Prints each time and the ratio of the whole run to mkpasswd.
//
//   wholeRunBenchmark <path to KorvanePassword> [runs]
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "security/ShaCrypt.h"
#include "setUserPassword/PasswordFile.h"
#include "setUserPassword/PasswordStrength.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* password = "Correct-Horse-Battery-Staple-91";
constexpr const char* uuid = "3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b";

// Runs `argv` with `input` on standard input and output discarded; returns
// the exit status.
int runProcess(const std::vector<std::string>& argv, const std::string& input) {
  int pipeFds[2];
  if (::pipe(pipeFds) != 0) std::abort();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipeFds[0], 0);
  posix_spawn_file_actions_addclose(&actions, pipeFds[1]);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
  std::vector<char*> raw;
  for (const auto& a : argv) raw.push_back(const_cast<char*>(a.c_str()));
  raw.push_back(nullptr);
  pid_t pid = 0;
  if (posix_spawn(&pid, raw[0], &actions, nullptr, raw.data(), environ) != 0) std::abort();
  posix_spawn_file_actions_destroy(&actions);
  ::close(pipeFds[0]);
  if (::write(pipeFds[1], input.data(), input.size()) < 0) std::abort();
  ::close(pipeFds[1]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The median of `runs` timings of `work`, in milliseconds.
double medianMilliseconds(int runs, const std::function<void()>& work) {
  std::vector<double> times;
  work();  // warm the caches and the page cache
  for (int i = 0; i < runs; ++i) {
    const auto start = Clock::now();
    work();
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - start).count());
  }
  std::nth_element(times.begin(), times.begin() + runs / 2, times.end());
  return times[static_cast<std::size_t>(runs / 2)];
}

void writeText(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// Measures everything with the installation in `base`.
void measureIn(const std::string& program, int runs, const fs::path& base) {
  const fs::path directory = base / ("korvane-bench-" + std::to_string(::getpid()));
  fs::create_directories(directory);
  writeText(directory / "users.json",
            std::string(R"({"users": [{"userName": "alice", "UUID": ")") + uuid + R"("}]})");
  const std::string line = std::string(password) + "\n";
  const std::vector<std::string> full{program, "-ConfigDir", directory.string(), "alice"};
  std::vector<std::string> weakOk = full;
  weakOk.insert(weakOk.begin() + 1, "-DontRejectInsecurePasswords");
  if (runProcess(full, line) != 0) {
    std::fprintf(stderr, "the whole run failed\n");
    std::exit(1);
  }
  const double start = medianMilliseconds(runs, [&] { runProcess({program, "-Version"}, ""); });
  const double weak = medianMilliseconds(runs, [&] { runProcess(weakOk, line); });
  const double whole = medianMilliseconds(runs, [&] { runProcess(full, line); });
  const double mkpasswd = medianMilliseconds(
      runs, [&] { runProcess({"/usr/bin/mkpasswd", "-m", "sha-512", "-s"}, line); });
  const double estimate = medianMilliseconds(runs, [&] {
    volatile double bits = korvane::setUserPassword::estimatePasswordEntropy(password);
    (void)bits;
  });
  const korvane::security::ShaCrypt crypt(6, 5000);
  const double hash = medianMilliseconds(runs, [&] { (void)crypt.hash(password); });
  const double fileIo = medianMilliseconds(runs, [&] {
    korvane::setUserPassword::PasswordFile file(directory / "passwords.json");
    file.read();
    file.set(*korvane::utils::core::Uuid::fromString(uuid), "$6$x$y");
    file.write();
  });
  fs::remove_all(directory);

  std::printf("installation in %s: median of %d runs, milliseconds\n", base.c_str(), runs);
  std::printf("  process: start-up and exit        %7.3f\n", start);
  std::printf("  process: whole run, no estimate   %7.3f\n", weak);
  std::printf("  process: whole run                %7.3f\n", whole);
  std::printf("  process: mkpasswd -m sha-512      %7.3f  (reference)\n", mkpasswd);
  std::printf("  in process: strength estimate     %7.3f\n", estimate);
  std::printf("  in process: SHA-512-crypt hash    %7.3f\n", hash);
  std::printf("  in process: read + set + write    %7.3f  (includes two fsync)\n", fileIo);
  std::printf("  whole run / mkpasswd: %.2f\n", whole / mkpasswd);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <path to KorvanePassword> [runs]\n", argv[0]);
    return 2;
  }
  const std::string program = fs::absolute(argv[1]).string();
  const int runs = argc > 2 ? std::atoi(argv[2]) : 41;
  // In memory the flush to the device costs nothing; on a disk it is what
  // makes the replaced file survive a power cut, and usually dominates.
  if (fs::is_directory("/dev/shm")) measureIn(program, runs, "/dev/shm");
  measureIn(program, runs, fs::temp_directory_path());
  return 0;
}
