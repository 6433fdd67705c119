// Measures one phase of a benchmark in a child process: the best CPU time
// of three runs and the peak resident memory above the phase's baseline.
// Times are CPU time (user and system): on a shared machine wall time
// mostly measures the neighbours.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace korvane::bench {

struct Result {
  double seconds;  // best of the runs
  double peakMiB;  // peak resident memory above the phase's baseline
  char check[64];  // a short result, to compare both implementations
};

// Runs `phase` three times in a child process. `prepare` runs first in the
// child, outside the timing and before the memory baseline is taken.
Result measure(const std::function<void()>& prepare, const std::function<std::string()>& phase);

// Prints throughput and peak memory of both and their ratio (above 1: ours
// is faster).
void report(const char* what, std::uintmax_t bytes, const Result& ours, const Result& reference);

}  // namespace korvane::bench
