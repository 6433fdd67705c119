// configurationBenchmark: the tool's own work on large installations, with
// RapidJSON's SAX reader and writer as the reference:
//   find user:           findUser() over a users file (one pass of the
//                        decoder, a large file's second half on a second
//                        thread at the same time, counting every UUID for
//                        the duplicate test) against a RapidJSON scan that
//                        only looks for the name;
//   read + set + write:  PasswordFile rewrite() of the last user's hash
//                        (the file copied member by member into the
//                        temporary file, flush to disk, rename) against a
//                        RapidJSON read and write of the file.
// Each phase runs in its own child process; times are CPU time, the best
// of three; memory is the peak resident size above the phase's baseline.
// Each figure that has a goal is printed beside it:
//   find user:           at least 1.5 times RapidJSON's throughput, peak
//                        memory under 24 MiB;
//   read + set + write:  at least 1.5 times RapidJSON's throughput, peak
//                        memory under 1.25 times the file's size.
//
//   configurationBenchmark [users]   default 1000000, or KORVANE_BENCH_USERS
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "bench/support/BenchmarkFiles.h"
#include "bench/support/ChildMeasurement.h"
#include "bench/support/RapidJsonReference.h"
#include "setUserPassword/PasswordFile.h"
#include "setUserPassword/UserConfiguration.h"
#include "utils/core/Format.h"
#include "utils/io/ReplacementLock.h"

namespace korvane::bench {
namespace {

namespace fs = std::filesystem;

void reportWithTime(const char* what, std::uintmax_t bytes, const Result& ours,
                    const Result& reference) {
  report(what, bytes, ours, reference);
  std::printf("%-34s   time: korvane %.3f s, RapidJSON %.3f s\n", "", ours.seconds,
              reference.seconds);
}

// Prints `value` beside its goal: at least `goal` (`atLeast`) or below it.
void reportGoal(const char* what, double value, bool atLeast, double goal, const char* unit) {
  const bool met = atLeast ? value >= goal : value < goal;
  std::printf("%-34s   goal: %-28s %8.2f%s  %s %.2f%s  %s\n", "", what, value, unit,
              atLeast ? ">=" : "< ", goal, unit, met ? "met" : "NOT MET");
}

double ratioOf(const Result& ours, const Result& reference) {
  return reference.seconds / ours.seconds;
}

int run(int argc, char** argv) {
  const std::uint64_t users = benchmarkUsers(argc, argv);
  if (users == 0) {
    std::fprintf(stderr, "usage: configurationBenchmark [number of users > 0]\n");
    return 2;
  }
  const BenchmarkFolder benchmarkFolder("config-bench");
  const fs::path& folder = benchmarkFolder.path();

  const fs::path usersPath = folder / "users.json";
  const fs::path passwordsPath = folder / "passwords.json";
  generateUsers(usersPath, users);
  generatePasswords(passwordsPath, users);
  const std::uintmax_t usersBytes = fs::file_size(usersPath);
  const std::uintmax_t passwordsBytes = fs::file_size(passwordsPath);
  std::printf("%llu users: users file %.1f MiB, password file %.1f MiB\n",
              static_cast<unsigned long long>(users), static_cast<double>(usersBytes) / 1048576.0,
              static_cast<double>(passwordsBytes) / 1048576.0);

  const std::string sought = userName(users);
  const auto nothing = [] {};
  const Result find = measure(
      nothing, [&] { return setUserPassword::findUser(usersPath, sought).toString().str(); });
  const Result findReference = measure(nothing, [&] { return findUserRapid(usersPath, sought); });
  reportWithTime("find the last user", usersBytes, find, findReference);
  reportGoal("throughput, times RapidJSON", ratioOf(find, findReference), true, 1.5, "x");
  reportGoal("peak memory", find.peakMiB, false, 24.0, " MiB");

  const auto lastUuid = *utils::core::Uuid::fromString(uuidText(users));
  const std::string hash = "$6$0123456789abcdef$" + std::string(86, 'y');
  const Result rewrite = measure(nothing, [&] {
    const setUserPassword::PasswordFile file(passwordsPath);
    const utils::io::ReplacementLock lock(file.target());
    file.rewrite({lastUuid, hash});
    return utils::core::format("{} bytes", fs::file_size(passwordsPath));
  });
  const Result rewriteReference = measure(nothing, [&] {
    Entries entries = readPasswordsRapid(passwordsPath);
    const fs::path temporary = folder / "rapid.json";
    writePasswordsRapid(temporary, entries, true);
    fs::rename(temporary, passwordsPath);
    return utils::core::format("{} bytes", fs::file_size(passwordsPath));
  });
  reportWithTime("password file read + set + write", passwordsBytes, rewrite, rewriteReference);
  reportGoal("throughput, times RapidJSON", ratioOf(rewrite, rewriteReference), true, 1.5, "x");
  reportGoal("peak memory, times the file size",
             rewrite.peakMiB * 1048576.0 / static_cast<double>(passwordsBytes), false, 1.25, "x");
  return 0;
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
  try {
    return korvane::bench::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "configurationBenchmark: %s\n", error.what());
    return 1;
  }
}
