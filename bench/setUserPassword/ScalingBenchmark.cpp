// scalingBenchmark: how the cost of a whole run of the tool grows with the
// number of users, against htpasswd (Debian's apache2-utils) on a file of as
// many users, and against a FLOOR: the work no program that does this job
// can avoid, as three processes whose costs are summed (peak: the largest):
//   cat users.json passwords.json > /dev/null   reading both files
//   floorCopy passwords.json                    the safe replacement: copy,
//                                               flush, rename, flush folder
//   mkpasswd -m sha-512 -s                      the hash (Debian's whois)
// For 1, 10,000, 100,000 and 1,000,000 users, an installation and an
// htpasswd file are made in /dev/shm (memory: the disk is left out); each
// round runs the tool (setting the last user's password), htpasswd and the
// FLOOR in turn, so that a change in the machine's load falls on all alike,
// the tool first in one round and last in the next, so that neither gains
// from its place (a process that follows another one finds the caches and
// the processor's state as that one left them).
// Then one user with a password file that also holds a 200 MB string, the
// start-up alone: KorvanePassword -Version against mkpasswd --version, in
// turn, each first every other round, and last where a one-user run's CPU
// goes (the run with and without its strength estimate, and mkpasswd).
// Every figure is the median over the rounds of whole processes: wall clock,
// CPU (user + system), page faults (minor + major), peak resident memory.
// Prints a table per size, the cost per added user (slope from 100,000 to
// 1,000,000 users) and the goals with their figures. It only reports: the
// exit status is 0 whether the goals are met or not, and 1 when a program
// fails (a measure of a failed run says nothing).
//
//   scalingBenchmark <path to KorvanePassword> [rounds]
//
// Rounds: default 41 up to 10,000 users (a run takes milliseconds, and the
// machine's noise is of the same order), 5 for 100,000, 3 for 1,000,000 and
// the 200 MB value, 41 for the start-up; a number given applies to all.
#include <crypt.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "bench/support/BenchmarkFiles.h"
#include "bench/support/MachineInfo.h"
#include "bench/support/ProcessRun.h"

namespace korvane::bench {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view password = "Correct-Horse-Battery-Staple-91";
constexpr std::array<std::uint64_t, 4> userCounts{1, 10000, 100000, 1000000};
constexpr std::uint64_t slopeFrom = 100000;
constexpr std::uint64_t slopeTo = 1000000;
constexpr std::uint64_t paddingBytes = 200000000;
constexpr std::uint64_t fewUsers = 10000;
constexpr int smallRounds = 41;  // up to fewUsers
constexpr int mediumRounds = 5;
constexpr int largeRounds = 3;
constexpr double mebibyte = 1048576.0;

// The goals.
constexpr double floorWallLimit = 1.5;     // tool wall / FLOOR wall, 1,000,000 users
constexpr double peakLimitMiB = 24.0;      // tool peak, every size
constexpr double htpasswdCpuLimit = 0.5;   // tool CPU / htpasswd CPU, 10,000 users
constexpr std::uint64_t faultLimit = 300;  // tool page faults, 10,000 users
constexpr double mkpasswdCpuLimit = 0.9;   // tool CPU / mkpasswd CPU, 1 user
constexpr double startUpCpuLimit = 1.0;    // tool -Version CPU / mkpasswd --version CPU
constexpr int startUpRounds = 41;          // each run is about a millisecond

struct Programs {
  std::string tool;
  std::string htpasswd = "/usr/bin/htpasswd";
  std::string cat = "/bin/cat";
  std::string floorCopy = KORVANE_FLOOR_COPY;
  std::string mkpasswd = "/usr/bin/mkpasswd";
};

// The files of one measured case and the user whose password is set, with
// the hash each file held for that user after the last run (to check that
// every run changed it).
struct Installation {
  fs::path folder;
  std::string userName;
  std::string uuid;
  std::string toolHash;
  std::string htpasswdHash;

  fs::path users() const { return folder / "users.json"; }
  fs::path passwords() const { return folder / "passwords.json"; }
  fs::path htpasswdFile() const { return folder / "htpasswd"; }
  fs::path errors() const { return folder / "errors.txt"; }
};

// The medians of one case.
struct CaseCosts {
  ProcessCost tool;
  ProcessCost htpasswd;
  ProcessCost floor;
  ProcessCost mkpasswd;  // the FLOOR's hash alone
};

struct SizeResult {
  std::uint64_t users = 0;
  CaseCosts costs;
};

// Every round's costs of one case, program by program.
struct RoundCosts {
  std::vector<ProcessCost> tool;
  std::vector<ProcessCost> htpasswd;
  std::vector<ProcessCost> floor;
  std::vector<ProcessCost> mkpasswd;
};

std::string withThousands(std::uint64_t value) {
  std::string digits = std::to_string(value);
  for (auto at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3) {
    digits.insert(static_cast<std::size_t>(at), ",");
  }
  return digits;
}

double mebibytes(std::uint64_t bytes) { return static_cast<double>(bytes) / mebibyte; }

// A valid SHA-512-crypt hash (libcrypt's, 5000 rounds), repeated on every
// line of the htpasswd files: they are made fast, and htpasswd only copies
// the other users' lines.
std::string referenceHash() {
  const auto data = std::make_unique<crypt_data>();
  const char* hash = ::crypt_r("an earlier password", "$6$0123456789abcdef", data.get());
  if (hash == nullptr || hash[0] != '$') throw std::runtime_error("libcrypt cannot hash");
  return hash;
}

void generateHtpasswd(const fs::path& path, std::uint64_t count, const std::string& hash) {
  std::ofstream out(path, std::ios::binary);
  for (std::uint64_t i = 1; i <= count; ++i) out << userName(i) << ':' << hash << '\n';
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

// The text that follows the first `key` in the file at `path`, after any
// characters of `skipped`, up to `end`; nothing when there is none. The
// file is read a piece at a time: the benchmark's own memory must stay small
// (see ProcessRun.h).
std::optional<std::string> valueAfter(const fs::path& path, std::string_view key,
                                      std::string_view skipped, char end) {
  constexpr std::size_t pieceSize = std::size_t{1} << 20;
  std::ifstream in(path, std::ios::binary);
  const auto piece = std::make_unique_for_overwrite<char[]>(pieceSize);
  std::string window;
  while (in.read(piece.get(), pieceSize) || in.gcount() > 0) {
    window.append(piece.get(), static_cast<std::size_t>(in.gcount()));
    const auto found = window.find(key);
    if (found == std::string::npos) {
      window.erase(0, window.size() - std::min(window.size(), key.size()));
      continue;
    }
    const auto start = window.find_first_not_of(skipped, found + key.size());
    const auto stop = start == std::string::npos ? start : window.find(end, start);
    if (stop != std::string::npos) return window.substr(start, stop - start);
    window.erase(0, found);
  }
  return std::nullopt;
}

std::optional<std::string> toolHashIn(const Installation& installation) {
  return valueAfter(installation.passwords(), '"' + installation.uuid + '"', " \t\r\n:\"", '"');
}

std::optional<std::string> htpasswdHashIn(const Installation& installation) {
  return valueAfter(installation.htpasswdFile(), installation.userName + ':', "", '\n');
}

std::string errorText(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string text(4096, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  text.resize(static_cast<std::size_t>(in.gcount()));
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

// Runs a program whose failure would make the measurement worthless.
ProcessCost checkedRun(const std::vector<std::string>& argv, std::string_view input,
                       const Installation& installation) {
  const ProcessOutcome outcome = runProcess(argv, input, installation.errors());
  if (outcome.exitStatus != 0) {
    throw std::runtime_error(argv[0] + " failed (exit status " +
                             std::to_string(outcome.exitStatus) +
                             "): " + errorText(installation.errors()));
  }
  return outcome.cost;
}

// Replaces `previous` with what `current` finds now; the run that came
// between must have changed it.
void checkChanged(std::string& previous, const std::optional<std::string>& current,
                  const std::string& program, const Installation& installation) {
  if (!current) {
    throw std::runtime_error(program + " left no entry for " + installation.userName + " in " +
                             installation.folder.string());
  }
  if (*current == previous) {
    throw std::runtime_error(program + " exited 0 but left the hash of " + installation.userName +
                             " as it was");
  }
  previous = *current;
}

std::string passwordLine() { return std::string(password) + '\n'; }

// `options` go before the user's name.
ProcessCost runTool(const Programs& programs, Installation& installation,
                    const std::vector<std::string>& options = {}) {
  std::vector<std::string> argv{programs.tool, "-Users", installation.users().string(),
                                "-Passwords", installation.passwords().string()};
  argv.insert(argv.end(), options.begin(), options.end());
  argv.push_back(installation.userName);
  const ProcessCost cost = checkedRun(argv, passwordLine(), installation);
  checkChanged(installation.toolHash, toolHashIn(installation), "the tool", installation);
  return cost;
}

ProcessCost runHtpasswd(const Programs& programs, Installation& installation) {
  const ProcessCost cost = checkedRun(
      {programs.htpasswd, "-i", "-5", installation.htpasswdFile().string(), installation.userName},
      passwordLine(), installation);
  checkChanged(installation.htpasswdHash, htpasswdHashIn(installation), "htpasswd", installation);
  return cost;
}

// The FLOOR's three processes; returns their sum (peak: the largest) and
// sets `hashOnly` to mkpasswd's own cost.
ProcessCost runFloor(const Programs& programs, const Installation& installation,
                     ProcessCost& hashOnly) {
  const std::array<ProcessCost, 3> parts{
      checkedRun({programs.cat, installation.users().string(), installation.passwords().string()},
                 "", installation),
      checkedRun({programs.floorCopy, installation.passwords().string()}, "", installation),
      checkedRun({programs.mkpasswd, "-m", "sha-512", "-s"}, passwordLine(), installation),
  };
  hashOnly = parts[2];
  ProcessCost sum;
  for (const ProcessCost& part : parts) {
    sum.wallMs += part.wallMs;
    sum.cpuMs += part.cpuMs;
    sum.faults += part.faults;
    sum.peakBytes = std::max(sum.peakBytes, part.peakBytes);
  }
  return sum;
}

// Reads the hashes the files hold before the first run.
void noteFirstHashes(Installation& installation) {
  const auto tool = toolHashIn(installation);
  const auto htpasswd = htpasswdHashIn(installation);
  if (!tool || !htpasswd) throw std::runtime_error("a generated file lacks the user's entry");
  installation.toolHash = *tool;
  installation.htpasswdHash = *htpasswd;
}

// `rounds` rounds of the tool, htpasswd (when `withHtpasswd`) and the
// FLOOR, in turn: the tool first in even rounds, last in odd ones.
RoundCosts measureRounds(const Programs& programs, Installation& installation, int rounds,
                         bool withHtpasswd) {
  RoundCosts costs;
  for (int round = 0; round < rounds; ++round) {
    const bool toolFirst = round % 2 == 0;
    if (toolFirst) costs.tool.push_back(runTool(programs, installation));
    if (withHtpasswd) costs.htpasswd.push_back(runHtpasswd(programs, installation));
    ProcessCost hashOnly;
    costs.floor.push_back(runFloor(programs, installation, hashOnly));
    costs.mkpasswd.push_back(hashOnly);
    if (!toolFirst) costs.tool.push_back(runTool(programs, installation));
  }
  return costs;
}

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// The median of each figure on its own.
ProcessCost medianCost(const std::vector<ProcessCost>& costs) {
  const auto of = [&](const std::function<double(const ProcessCost&)>& figure) {
    std::vector<double> values;
    for (const ProcessCost& cost : costs) values.push_back(figure(cost));
    return median(std::move(values));
  };
  ProcessCost result;
  result.wallMs = of([](const ProcessCost& c) { return c.wallMs; });
  result.cpuMs = of([](const ProcessCost& c) { return c.cpuMs; });
  result.faults = static_cast<std::uint64_t>(
      of([](const ProcessCost& c) { return static_cast<double>(c.faults); }));
  result.peakBytes = static_cast<std::uint64_t>(
      of([](const ProcessCost& c) { return static_cast<double>(c.peakBytes); }));
  return result;
}

CaseCosts mediansOf(const RoundCosts& rounds) {
  return {medianCost(rounds.tool), medianCost(rounds.htpasswd), medianCost(rounds.floor),
          medianCost(rounds.mkpasswd)};
}

void printHeader() {
  std::printf("  %-38s %10s %10s %12s %10s\n", "program", "wall ms", "CPU ms", "page faults",
              "peak MiB");
}

void printRow(const char* program, const ProcessCost& cost) {
  std::printf("  %-38s %10.2f %10.2f %12llu %10.2f\n", program, cost.wallMs, cost.cpuMs,
              static_cast<unsigned long long>(cost.faults), mebibytes(cost.peakBytes));
}

void printCaseTable(const CaseCosts& costs, bool withHtpasswd) {
  printHeader();
  printRow("KorvanePassword", costs.tool);
  if (withHtpasswd) printRow("htpasswd -i -5", costs.htpasswd);
  printRow("FLOOR (cat + floorCopy + mkpasswd)", costs.floor);
  printRow("  of which mkpasswd -m sha-512 -s", costs.mkpasswd);
  std::fflush(stdout);
}

Installation makeInstallation(const fs::path& folder, std::uint64_t users,
                              const std::string& hash) {
  Installation installation{folder, userName(users), uuidText(users), {}, {}};
  generateUsers(installation.users(), users);
  generatePasswords(installation.passwords(), users);
  generateHtpasswd(installation.htpasswdFile(), users, hash);
  noteFirstHashes(installation);
  return installation;
}

int roundsFor(std::uint64_t users, int chosenRounds) {
  if (chosenRounds > 0) return chosenRounds;
  if (users <= fewUsers) return smallRounds;
  return users >= slopeTo ? largeRounds : mediumRounds;
}

SizeResult measureSize(const Programs& programs, const fs::path& base, std::uint64_t users,
                       int chosenRounds, const std::string& hash) {
  const BenchmarkFolder folder("scaling-" + std::to_string(users), base);
  Installation installation = makeInstallation(folder.path(), users, hash);
  if (users == userCounts.front()) {
    // One round unmeasured, so that every program is in the page cache.
    (void)measureRounds(programs, installation, 1, true);
  }
  const int rounds = roundsFor(users, chosenRounds);
  const CaseCosts costs = mediansOf(measureRounds(programs, installation, rounds, true));
  std::printf(
      "\n%s %s: passwords.json %.1f MiB, users.json %.1f MiB, htpasswd file %.1f MiB; "
      "median of %d rounds\n",
      withThousands(users).c_str(), users == 1 ? "user" : "users",
      mebibytes(fs::file_size(installation.passwords())),
      mebibytes(fs::file_size(installation.users())),
      mebibytes(fs::file_size(installation.htpasswdFile())), rounds);
  printCaseTable(costs, true);
  return {users, costs};
}

// One user and a password file that also holds a 200 MB string value.
CaseCosts measurePadded(const Programs& programs, const fs::path& base, int chosenRounds) {
  const BenchmarkFolder folder("scaling-padded", base);
  Installation installation{folder.path(), userName(1), uuidText(1), {}, {}};
  generateUsers(installation.users(), 1);
  generatePaddedPasswords(installation.passwords(), paddingBytes);
  const auto first = toolHashIn(installation);
  if (!first) throw std::runtime_error("the generated password file lacks the user's entry");
  installation.toolHash = *first;
  const int rounds = roundsFor(slopeTo, chosenRounds);
  const CaseCosts costs = mediansOf(measureRounds(programs, installation, rounds, false));
  std::printf(
      "\n1 user, passwords.json with a member of %s bytes (file %.1f MiB); median of %d "
      "rounds\n",
      withThousands(paddingBytes).c_str(), mebibytes(fs::file_size(installation.passwords())),
      rounds);
  printCaseTable(costs, false);
  return costs;
}

// The start-up alone, in turn round by round: the tool printing its
// version (-Version) and mkpasswd printing its own (--version). Returns
// the medians, the tool's first.
std::pair<ProcessCost, ProcessCost> measureStartUp(const Programs& programs, const fs::path& base,
                                                   int chosenRounds) {
  const BenchmarkFolder folder("scaling-start-up", base);
  const Installation installation{folder.path(), {}, {}, {}, {}};
  const int rounds = chosenRounds > 0 ? chosenRounds : startUpRounds;
  std::vector<ProcessCost> tool;
  std::vector<ProcessCost> mkpasswd;
  for (int round = 0; round < rounds; ++round) {
    const bool toolFirst = round % 2 == 0;
    if (toolFirst) tool.push_back(checkedRun({programs.tool, "-Version"}, "", installation));
    mkpasswd.push_back(checkedRun({programs.mkpasswd, "--version"}, "", installation));
    if (!toolFirst) tool.push_back(checkedRun({programs.tool, "-Version"}, "", installation));
  }
  const std::pair<ProcessCost, ProcessCost> costs{medianCost(tool), medianCost(mkpasswd)};
  std::printf("\nstart-up: the version printed and nothing else; median of %d rounds\n", rounds);
  printHeader();
  printRow("KorvanePassword -Version", costs.first);
  printRow("mkpasswd --version", costs.second);
  return costs;
}

// Where a one-user run's CPU goes, in turn round by round: the whole run,
// the same without the strength estimate (-DontRejectInsecurePasswords
// skips it) and mkpasswd's hash, the goal's reference. The start-up is
// the -Version row above. Only printed: it explains the goal, it is none.
void measureOneUserParts(const Programs& programs, const fs::path& base, int chosenRounds,
                         const std::string& hash) {
  const BenchmarkFolder folder("scaling-one-user-parts", base);
  Installation installation = makeInstallation(folder.path(), 1, hash);
  const std::vector<std::string> withoutEstimate{"-DontRejectInsecurePasswords"};
  const int rounds = roundsFor(1, chosenRounds);
  std::vector<ProcessCost> whole;
  std::vector<ProcessCost> unestimated;
  std::vector<ProcessCost> mkpasswd;
  for (int round = 0; round < rounds; ++round) {
    const bool toolFirst = round % 2 == 0;
    if (toolFirst) whole.push_back(runTool(programs, installation));
    unestimated.push_back(runTool(programs, installation, withoutEstimate));
    mkpasswd.push_back(
        checkedRun({programs.mkpasswd, "-m", "sha-512", "-s"}, passwordLine(), installation));
    if (!toolFirst) whole.push_back(runTool(programs, installation));
  }
  const ProcessCost wholeCost = medianCost(whole);
  const ProcessCost unestimatedCost = medianCost(unestimated);
  const ProcessCost mkpasswdCost = medianCost(mkpasswd);
  std::printf("\n1 user, where the CPU goes; median of %d rounds\n", rounds);
  printHeader();
  printRow("KorvanePassword", wholeCost);
  printRow("  -DontRejectInsecurePasswords", unestimatedCost);
  printRow("mkpasswd -m sha-512 -s", mkpasswdCost);
  std::printf(
      "  the strength estimate: %.2f ms CPU, %lld page faults; without it, tool CPU / mkpasswd "
      "CPU = %.2f\n",
      wholeCost.cpuMs - unestimatedCost.cpuMs,
      static_cast<long long>(wholeCost.faults) - static_cast<long long>(unestimatedCost.faults),
      unestimatedCost.cpuMs / mkpasswdCost.cpuMs);
  std::fflush(stdout);
}

const SizeResult& resultFor(const std::vector<SizeResult>& results, std::uint64_t users) {
  for (const SizeResult& result : results) {
    if (result.users == users) return result;
  }
  throw std::logic_error("no result for " + std::to_string(users) + " users");
}

void printSlope(const char* program, const ProcessCost& from, const ProcessCost& to) {
  const auto added = static_cast<double>(slopeTo - slopeFrom);
  std::printf("  %-38s %14.4f %14.4f %18.1f\n", program, (to.wallMs - from.wallMs) * 1e3 / added,
              (static_cast<double>(to.faults) - static_cast<double>(from.faults)) / added,
              (static_cast<double>(to.peakBytes) - static_cast<double>(from.peakBytes)) / added);
}

void printGrowth(const std::vector<SizeResult>& results) {
  const CaseCosts& from = resultFor(results, slopeFrom).costs;
  const CaseCosts& to = resultFor(results, slopeTo).costs;
  std::printf("\ncost per added user (slope from %s to %s users)\n",
              withThousands(slopeFrom).c_str(), withThousands(slopeTo).c_str());
  std::printf("  %-38s %14s %14s %18s\n", "program", "wall µs/user", "faults/user",
              "peak bytes/user");
  printSlope("KorvanePassword", from.tool, to.tool);
  printSlope("htpasswd -i -5", from.htpasswd, to.htpasswd);
  printSlope("FLOOR", from.floor, to.floor);
}

const char* verdict(bool met) { return met ? "met" : "NOT met"; }

// The largest peak of the tool over every case, and where it was.
std::pair<std::uint64_t, std::string> largestPeak(const std::vector<SizeResult>& results,
                                                  const CaseCosts& padded) {
  std::pair<std::uint64_t, std::string> largest{padded.tool.peakBytes, "the 200 MB value"};
  for (const SizeResult& result : results) {
    if (result.costs.tool.peakBytes > largest.first) {
      largest = {result.costs.tool.peakBytes, withThousands(result.users) + " users"};
    }
  }
  return largest;
}

void printFloorGoal(const CaseCosts& million) {
  const double ratio = million.tool.wallMs / million.floor.wallMs;
  std::printf(
      "  1. 1,000,000 users: tool wall / FLOOR wall = %.2f (%.1f / %.1f ms); limit %.2f: %s\n",
      ratio, million.tool.wallMs, million.floor.wallMs, floorWallLimit,
      verdict(ratio <= floorWallLimit));
}

void printPeakGoal(const std::vector<SizeResult>& results, const CaseCosts& padded) {
  const auto [peak, where] = largestPeak(results, padded);
  std::printf(
      "  2. tool peak, largest of every size and the 200 MB value: %.2f MiB (%s); limit "
      "%.0f MiB: %s\n",
      mebibytes(peak), where.c_str(), peakLimitMiB, verdict(mebibytes(peak) <= peakLimitMiB));
}

void printHtpasswdGoal(const CaseCosts& tenThousand) {
  const double ratio = tenThousand.tool.cpuMs / tenThousand.htpasswd.cpuMs;
  std::printf(
      "  3. 10,000 users: tool CPU / htpasswd CPU = %.2f (%.2f / %.2f ms); limit %.2f; "
      "tool page faults %llu; limit %llu: %s\n",
      ratio, tenThousand.tool.cpuMs, tenThousand.htpasswd.cpuMs, htpasswdCpuLimit,
      static_cast<unsigned long long>(tenThousand.tool.faults),
      static_cast<unsigned long long>(faultLimit),
      verdict(ratio <= htpasswdCpuLimit && tenThousand.tool.faults <= faultLimit));
}

void printMkpasswdGoal(const CaseCosts& one) {
  const double ratio = one.tool.cpuMs / one.mkpasswd.cpuMs;
  std::printf("  4. 1 user: tool CPU / mkpasswd CPU = %.2f (%.2f / %.2f ms); limit %.2f: %s\n",
              ratio, one.tool.cpuMs, one.mkpasswd.cpuMs, mkpasswdCpuLimit,
              verdict(ratio <= mkpasswdCpuLimit));
}

void printStartUpGoal(const std::pair<ProcessCost, ProcessCost>& startUp) {
  const double ratio = startUp.first.cpuMs / startUp.second.cpuMs;
  std::printf(
      "  6. start-up: tool -Version CPU / mkpasswd --version CPU = %.2f (%.2f / %.2f ms); "
      "limit %.2f: %s\n",
      ratio, startUp.first.cpuMs, startUp.second.cpuMs, startUpCpuLimit,
      verdict(ratio <= startUpCpuLimit));
}

void printGoals(const std::vector<SizeResult>& results, const CaseCosts& padded,
                const std::pair<ProcessCost, ProcessCost>& startUp) {
  std::printf("\ngoals\n");
  printFloorGoal(resultFor(results, slopeTo).costs);
  printPeakGoal(results, padded);
  printHtpasswdGoal(resultFor(results, 10000).costs);
  printMkpasswdGoal(resultFor(results, 1).costs);
  std::printf("  5. cost per added user printed above: met\n");
  printStartUpGoal(startUp);
}

void printMachine(const Programs& programs, const fs::path& base) {
  std::printf("CPU: %s\n", cpuModel().c_str());
  std::printf("files in %s: %s\n", base.c_str(), fileSystemType(base).c_str());
  std::printf("tool: %s\n", programs.tool.c_str());
  std::printf(
      "peak of an empty process (/bin/true) started the same way: %.2f MiB; every peak below "
      "is at least this (the kernel counts the starting process's size in it), so a figure "
      "near it only says that the program's own peak is no larger\n",
      mebibytes(emptyProcessPeak()));
  std::fflush(stdout);
}

int run(const Programs& programs, int chosenRounds) {
  const fs::path base = "/dev/shm";
  if (!fs::is_directory(base)) throw std::runtime_error("/dev/shm is missing");
  printMachine(programs, base);
  const std::string hash = referenceHash();
  std::vector<SizeResult> results;
  for (const std::uint64_t users : userCounts) {
    results.push_back(measureSize(programs, base, users, chosenRounds, hash));
  }
  const CaseCosts padded = measurePadded(programs, base, chosenRounds);
  const std::pair<ProcessCost, ProcessCost> startUp = measureStartUp(programs, base, chosenRounds);
  measureOneUserParts(programs, base, chosenRounds, hash);
  printGrowth(results);
  printGoals(results, padded, startUp);
  return 0;
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s <path to KorvanePassword> [rounds]\n", argv[0]);
    return 2;
  }
  korvane::bench::Programs programs;
  programs.tool = std::filesystem::absolute(argv[1]).string();
  const int rounds = argc > 2 ? std::atoi(argv[2]) : 0;
  if (argc > 2 && rounds < 1) {
    std::fprintf(stderr, "rounds must be at least 1\n");
    return 2;
  }
  try {
    return korvane::bench::run(programs, rounds);
  } catch (const std::exception& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "scalingBenchmark: %s\n", error.what());
    return 1;
  }
}
