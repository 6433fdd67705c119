// Where the time of a whole run goes. Each process-level measurement starts
// the program as a new process, as an administrator's script does:
//   start      KorvanePassword -Version: start-up and exit only
//   weak-ok    a run with -DontRejectInsecurePasswords: no strength estimate
//   full       a whole run: start-up, estimate, hash, file I/O
//   mkpasswd   `mkpasswd -m sha-512 -s`, which only hashes and prints: the
//              reference the whole run is compared with
// The four processes are started in turn, round after round, so that a
// change in the machine's load falls on all of them alike, and with them, in
// process, the hash and libcrypt's hash of the same key (what mkpasswd spends
// in its hash). Then the other in-process parts: the estimate and the
// password file I/O.
// Prints each time, the ratio of the whole run to mkpasswd next to its goal,
// and the same ratio with each program's hash taken out, which shows what
// start-up and the rest of the job cost apart from the hash.
//
//   wholeRunBenchmark <path to KorvanePassword> [runs] [disk folder]
//
// The installation is made once in /dev/shm (memory) and once in the disk
// folder (default: the temporary folder), whose file system type is printed:
// the goal is for an installation on a disk.
#include <crypt.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <spawn.h>
#include <sys/statfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
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
constexpr double goal = 0.9;

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

double millisecondsOf(const std::function<void()>& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

double median(std::vector<double> times) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

// The median of `runs` timings of `work`, in milliseconds.
double medianMilliseconds(int runs, const std::function<void()>& work) {
  std::vector<double> times;
  work();  // warm the caches and the page cache
  for (int i = 0; i < runs; ++i) times.push_back(millisecondsOf(work));
  return median(std::move(times));
}

// The medians of `runs` rounds in which every one of `works` runs once, in
// turn; the first round only warms the caches.
template <std::size_t N>
std::array<double, N> alternatedMedians(int runs, const std::array<std::function<void()>, N>& works) {
  std::array<std::vector<double>, N> times;
  for (int round = 0; round <= runs; ++round) {
    for (std::size_t i = 0; i < N; ++i) {
      const double time = millisecondsOf(works[i]);
      if (round > 0) times[i].push_back(time);
    }
  }
  std::array<double, N> medians{};
  for (std::size_t i = 0; i < N; ++i) medians[i] = median(std::move(times[i]));
  return medians;
}

void writeText(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// The name of the file system that holds `path`: the goal is for a disk.
std::string fileSystemType(const fs::path& path) {
  struct statfs info {};
  if (::statfs(path.c_str(), &info) != 0) return "unknown";
  switch (static_cast<unsigned long>(info.f_type)) {
    case TMPFS_MAGIC: return "tmpfs (memory)";
    case RAMFS_MAGIC: return "ramfs (memory)";
    case EXT4_SUPER_MAGIC: return "ext2/3/4 (disk)";
    case XFS_SUPER_MAGIC: return "xfs (disk)";
    case BTRFS_SUPER_MAGIC: return "btrfs (disk)";
    case OVERLAYFS_SUPER_MAGIC: return "overlayfs";
    default: break;
  }
  char hex[32];
  std::snprintf(hex, sizeof hex, "type 0x%lx", static_cast<unsigned long>(info.f_type));
  return hex;
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
  const std::vector<std::string> mkpasswdArgs{"/usr/bin/mkpasswd", "-m", "sha-512", "-s"};
  const korvane::security::ShaCrypt crypt(6, 5000);
  const auto cryptData = std::make_unique<crypt_data>();
  // The two hashes run in the same rounds as the processes, so that the
  // hash can be taken out of each process's time under the same load.
  const auto [start, weak, whole, mkpasswd, hash, libcryptHash] = alternatedMedians<6>(
      runs, {[&] { runProcess({program, "-Version"}, ""); }, [&] { runProcess(weakOk, line); },
             [&] { runProcess(full, line); }, [&] { runProcess(mkpasswdArgs, line); },
             [&] { (void)crypt.hash(password); },
             [&] {
               if (crypt_r(password, "$6$0123456789abcdef", cryptData.get()) == nullptr) {
                 std::abort();
               }
             }});
  const double estimate = medianMilliseconds(runs, [&] {
    volatile double bits = korvane::setUserPassword::estimatePasswordEntropy(password);
    (void)bits;
  });
  const double fileIo = medianMilliseconds(runs, [&] {
    korvane::setUserPassword::PasswordFile file(directory / "passwords.json");
    file.read();
    file.set(*korvane::utils::core::Uuid::fromString(uuid), "$6$x$y");
    file.write();
  });
  fs::remove_all(directory);

  std::printf("installation in %s, %s: median of %d runs, milliseconds\n", base.c_str(),
              fileSystemType(base).c_str(), runs);
  std::printf("  process: start-up and exit        %7.3f\n", start);
  std::printf("  process: whole run, no estimate   %7.3f\n", weak);
  std::printf("  process: whole run                %7.3f\n", whole);
  std::printf("  process: mkpasswd -m sha-512      %7.3f  (reference)\n", mkpasswd);
  std::printf("  in process: strength estimate     %7.3f\n", estimate);
  std::printf("  in process: SHA-512-crypt hash    %7.3f\n", hash);
  std::printf("  in process: libcrypt's hash       %7.3f  (mkpasswd's hash)\n", libcryptHash);
  std::printf("  in process: read + set + write    %7.3f  (includes two fsync)\n", fileIo);
  std::printf("  whole run / mkpasswd: %.2f (goal: at most %.2f)\n", whole / mkpasswd, goal);
  std::printf("  without the hash, (whole run - hash) / (mkpasswd - libcrypt's hash): %.2f\n",
              (whole - hash) / (mkpasswd - libcryptHash));
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s <path to KorvanePassword> [runs] [disk folder]\n", argv[0]);
    return 2;
  }
  const std::string program = fs::absolute(argv[1]).string();
  const int runs = argc > 2 ? std::atoi(argv[2]) : 41;
  if (runs < 1) {
    std::fprintf(stderr, "runs must be at least 1\n");
    return 2;
  }
  const fs::path disk = argc > 3 ? fs::path(argv[3]) : fs::temp_directory_path();
  // In memory the flush to the device costs nothing; on a disk it is what
  // makes the replaced file survive a power cut, and usually dominates.
  if (fs::is_directory("/dev/shm")) measureIn(program, runs, "/dev/shm");
  measureIn(program, runs, disk);
  return 0;
}
