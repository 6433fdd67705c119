// Runs a program as a whole process, as an administrator's script does, and
// measures it: started with posix_spawn, reaped with wait4, wall-clock time
// from just before the start to just after the reaping (steady clock), and
// the kernel's account of the child (CPU time, page faults, peak resident
// memory).
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace korvane::bench {

// What one process cost.
struct ProcessCost {
  double wallMs = 0;            // steady clock, start to reaping
  double cpuMs = 0;             // user + system CPU time
  std::uint64_t faults = 0;     // minor + major page faults
  std::uint64_t peakBytes = 0;  // peak resident memory (ru_maxrss)
};

struct ProcessOutcome {
  ProcessCost cost;
  int exitStatus = -1;  // -1 when the process ended on a signal
};

// Runs `argv` (argv[0]: the program's path) with `input` on standard input
// through a pipe (at most 64 KiB, written before the start so that the
// child never waits for it), standard output to /dev/null and standard
// error to `errorPath`.
//
// The kernel counts in a child's peak the resident size of the process that
// started it: posix_spawn runs the child on the parent's memory until it
// starts its program. The parent's recorded peak is reset to its current
// size before each start, so that what the parent once used does not show;
// its current size remains a lower bound of every child's peak
// (emptyProcessPeak measures it).
ProcessOutcome runProcess(const std::vector<std::string>& argv, std::string_view input,
                          const std::filesystem::path& errorPath = "/dev/null");

// The peak that runProcess reports for /bin/true: below it, the figure is
// the parent's resident size, not the child's.
std::uint64_t emptyProcessPeak();

}  // namespace korvane::bench
