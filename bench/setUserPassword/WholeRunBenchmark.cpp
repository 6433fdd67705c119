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
// Prints each time (wall clock and CPU), the ratio of the whole run to
// mkpasswd next to its goal, and what each program spends beyond its hash
// (each round's process time less the same round's hash), which shows what
// start-up and the rest of the job cost apart from the hash.
//
//   wholeRunBenchmark <path to KorvanePassword> [runs] [disk folder]
//
// The installation is made once in /dev/shm (memory) and once in the disk
// folder (default: the temporary folder), whose file system type is printed:
// the goal is for an installation on a disk. Last, one run on an
// installation of 1,000,000 users in /dev/shm shows the whole process's peak
// memory beside the password file's size.
#include <crypt.h>
#include <time.h>
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

#include "bench/support/MachineInfo.h"
#include "bench/support/ProcessRun.h"
#include "security/ShaCrypt.h"
#include "setUserPassword/PasswordFile.h"
#include "setUserPassword/PasswordStrength.h"
#include "utils/io/ReplacementLock.h"

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* password = "Correct-Horse-Battery-Staple-91";
constexpr const char* uuid = "3f2b8c1e-6d4a-4e8b-9a7c-1b2d3e4f5a6b";
constexpr double goal = 0.9;

// The time of one piece of work: wall-clock time and CPU time, in
// milliseconds. On a loaded machine the wall-clock time includes waiting for
// a processor; the CPU time does not (but neither does it count the wait for
// the disk).
struct Timing {
  double wall = 0;
  double cpu = 0;
};

double processCpuMilliseconds() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

// Runs `argv` with `input` on standard input and output discarded; returns
// the child's CPU time in milliseconds and sets `status` to its exit status
// and `peakBytes` (if given) to its peak resident memory.
double runProcess(const std::vector<std::string>& argv, const std::string& input, int& status,
                  long long* peakBytes = nullptr) {
  const korvane::bench::ProcessOutcome outcome = korvane::bench::runProcess(argv, input);
  status = outcome.exitStatus;
  if (peakBytes != nullptr) *peakBytes = static_cast<long long>(outcome.cost.peakBytes);
  return outcome.cost.cpuMs;
}

double runProcess(const std::vector<std::string>& argv, const std::string& input) {
  int status = 0;
  return runProcess(argv, input, status);
}

// Work whose CPU time is measured here: in process.
std::function<double()> inProcess(std::function<void()> work) {
  return [work = std::move(work)] {
    const double start = processCpuMilliseconds();
    work();
    return processCpuMilliseconds() - start;
  };
}

// `work` returns its CPU time; the wall-clock time is measured around it.
Timing timingOf(const std::function<double()>& work) {
  const auto start = Clock::now();
  const double cpu = work();
  return {std::chrono::duration<double, std::milli>(Clock::now() - start).count(), cpu};
}

double median(std::vector<double> times) {
  const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
  std::nth_element(times.begin(), middle, times.end());
  return *middle;
}

// The median of `runs` wall-clock timings of `work`, in milliseconds.
double medianMilliseconds(int runs, const std::function<void()>& work) {
  const auto timed = inProcess(work);
  std::vector<double> times;
  timed();  // warm the caches and the page cache
  for (int i = 0; i < runs; ++i) times.push_back(timingOf(timed).wall);
  return median(std::move(times));
}

// The timings of N pieces of work, each by round.
template <std::size_t N>
using Rounds = std::array<std::vector<Timing>, N>;

// `runs` rounds in which every one of `works` runs once, in turn; the first
// round only warms the caches.
template <std::size_t N>
Rounds<N> alternatedRounds(int runs, const std::array<std::function<double()>, N>& works) {
  Rounds<N> rounds;
  for (int round = 0; round <= runs; ++round) {
    for (std::size_t i = 0; i < N; ++i) {
      const Timing timing = timingOf(works[i]);
      if (round > 0) rounds[i].push_back(timing);
    }
  }
  return rounds;
}

// The median over the rounds of `value(round)`.
Timing medianOver(std::size_t rounds, const std::function<Timing(std::size_t)>& value) {
  std::vector<double> walls;
  std::vector<double> cpus;
  for (std::size_t round = 0; round < rounds; ++round) {
    const Timing timing = value(round);
    walls.push_back(timing.wall);
    cpus.push_back(timing.cpu);
  }
  return {median(std::move(walls)), median(std::move(cpus))};
}

void writeText(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// libcrypt's SHA-512-crypt of the same key under a salt of the same length:
// the hash that mkpasswd computes.
void libcryptHash(crypt_data& data) {
  if (crypt_r(password, "$6$0123456789abcdef", &data) == nullptr) std::abort();
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
  int status = 0;
  runProcess(full, line, status);
  if (status != 0) {
    std::fprintf(stderr, "the whole run failed\n");
    std::exit(1);
  }
  const std::vector<std::string> version{program, "-Version"};
  const std::vector<std::string> mkpasswdArgs{"/usr/bin/mkpasswd", "-m", "sha-512", "-s"};
  using korvane::security::ShaCrypt;
  const ShaCrypt crypt(ShaCrypt::sha512Tag, ShaCrypt::defaultRounds);
  const auto cryptData = std::make_unique<crypt_data>();
  // The two hashes run in the same rounds as the processes, so that each
  // program's hash can be taken out of its time under the same load.
  enum { start, weak, whole, mkpasswd, hash, libcrypt, count };
  const std::array<std::function<double()>, count> works{
      [&] { return runProcess(version, ""); },
      [&] { return runProcess(weakOk, line); },
      [&] { return runProcess(full, line); },
      [&] { return runProcess(mkpasswdArgs, line); },
      inProcess([&] { (void)crypt.hash(password); }),
      inProcess([&] { libcryptHash(*cryptData); }),
  };
  const Rounds<count> rounds = alternatedRounds<count>(runs, works);
  const std::size_t roundCount = rounds[0].size();
  std::array<Timing, count> medians;
  for (std::size_t i = 0; i < count; ++i) {
    medians[i] = medianOver(roundCount, [&](std::size_t r) { return rounds[i][r]; });
  }
  // Each round's run less the same round's hash: what the program spends
  // beyond its hash (start-up, reading, estimate, writing, exit).
  const auto beyondHash = [&](std::size_t run, std::size_t hashed) {
    return medianOver(roundCount, [&](std::size_t r) {
      return Timing{rounds[run][r].wall - rounds[hashed][r].wall,
                    rounds[run][r].cpu - rounds[hashed][r].cpu};
    });
  };
  const Timing oursBeyond = beyondHash(whole, hash);
  const Timing mkpasswdBeyond = beyondHash(mkpasswd, libcrypt);
  const double estimate = medianMilliseconds(runs, [&] {
    volatile double bits = korvane::setUserPassword::estimatePasswordEntropy(password);
    (void)bits;
  });
  const double fileIo = medianMilliseconds(runs, [&] {
    const korvane::setUserPassword::PasswordFile file(directory / "passwords.json");
    const korvane::utils::io::ReplacementLock lock(file.target());
    file.rewrite({*korvane::utils::core::Uuid::fromString(uuid), "$6$x$y"});
  });
  fs::remove_all(directory);

  std::printf("installation in %s, %s: median of %d runs, milliseconds (wall clock, CPU)\n",
              base.c_str(), korvane::bench::fileSystemType(base).c_str(), runs);
  const auto show = [](const char* what, const Timing& timing, const char* note) {
    std::printf("  %-34s %7.3f %7.3f%s\n", what, timing.wall, timing.cpu, note);
  };
  show("process: start-up and exit", medians[start], "");
  show("process: whole run, no estimate", medians[weak], "");
  show("process: whole run", medians[whole], "");
  show("process: mkpasswd -m sha-512", medians[mkpasswd], "  (reference)");
  show("in process: SHA-512-crypt hash", medians[hash], "");
  show("in process: libcrypt's hash", medians[libcrypt], "  (mkpasswd's hash)");
  std::printf("  in process: strength estimate      %7.3f\n", estimate);
  std::printf("  in process: read + set + write     %7.3f  (includes two fsync)\n", fileIo);
  std::printf("  whole run / mkpasswd: %.2f (goal: at most %.2f); in CPU time %.2f\n",
              medians[whole].wall / medians[mkpasswd].wall, goal,
              medians[whole].cpu / medians[mkpasswd].cpu);
  std::printf(
      "  beyond the hash (each round's run less its hash): whole run %.3f, mkpasswd %.3f,"
      " ratio %.2f; in CPU time %.3f, %.3f, ratio %.2f\n",
      oursBeyond.wall, mkpasswdBeyond.wall, oursBeyond.wall / mkpasswdBeyond.wall, oursBeyond.cpu,
      mkpasswdBeyond.cpu, oursBeyond.cpu / mkpasswdBeyond.cpu);
}

// The whole program's peak memory when it changes the last of 1,000,000
// users, beside the size of the password file it rewrites.
void measurePeakMemory(const std::string& program, const fs::path& base) {
  constexpr int users = 1000000;
  constexpr double peakGoal = 1.25;
  const fs::path directory = base / ("korvane-bench-peak-" + std::to_string(::getpid()));
  fs::create_directories(directory);
  {
    std::ofstream usersFile(directory / "users.json");
    std::ofstream passwords(directory / "passwords.json");
    usersFile << "{\n  \"users\": [\n";
    passwords << "{\n  \"$schema\": \"" << korvane::setUserPassword::PasswordFile::schemaUrl()
              << '"';
    char text[40];
    for (int i = 0; i < users; ++i) {
      std::snprintf(text, sizeof text, "%08x-1111-4222-8333-%012x", static_cast<unsigned>(i),
                    static_cast<unsigned>(i) * 7919U);
      usersFile << "    {\"userName\": \"user" << i << "\", \"UUID\": \"" << text << "\"}"
                << (i + 1 < users ? ",\n" : "\n");
      passwords << ",\n  \"" << text << "\": \"$6$0123456789abcdef$" << std::string(86, 'x') << '"';
    }
    usersFile << "  ]\n}\n";
    passwords << "\n}\n";
  }
  const auto fileSize = static_cast<double>(fs::file_size(directory / "passwords.json"));
  int status = 0;
  long long peak = 0;
  runProcess({program, "-Users", (directory / "users.json").string(), "-Passwords",
              (directory / "passwords.json").string(), "user" + std::to_string(users - 1)},
             std::string(password) + "\n", status, &peak);
  fs::remove_all(directory);
  if (status != 0) {
    std::fprintf(stderr, "the run on 1,000,000 users failed\n");
    std::exit(1);
  }
  std::printf(
      "1,000,000 users in %s: whole process peak %.1f MiB, password file %.1f MiB, "
      "ratio %.3f (goal: at most %.2f)\n",
      base.c_str(), static_cast<double>(peak) / 1048576.0, fileSize / 1048576.0,
      static_cast<double>(peak) / fileSize, peakGoal);
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
  measurePeakMemory(program, fs::is_directory("/dev/shm") ? fs::path("/dev/shm") : disk);
  return 0;
}
