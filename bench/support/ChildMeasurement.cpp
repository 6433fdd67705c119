#include "bench/support/ChildMeasurement.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <stdexcept>

namespace korvane::bench {

namespace {

std::uint64_t statusKiB(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(field, 0) == 0)
      return std::strtoull(line.c_str() + std::strlen(field), nullptr, 10);
  }
  return 0;
}

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

}  // namespace

Result measure(const std::function<void()>& prepare, const std::function<std::string()>& phase) {
  int pipeFds[2];
  if (pipe(pipeFds) != 0) throw std::runtime_error("pipe failed");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("fork failed");
  if (child == 0) {
    close(pipeFds[0]);
    Result result{1e300, 0, {}};
    try {
      prepare();
      for (int run = 0; run < 3; ++run) {
        {
          std::ofstream clear("/proc/self/clear_refs");
          clear << "5";  // resets the peak resident size to the current one
        }
        const std::uint64_t baseline = statusKiB("VmRSS:");
        const double start = cpuSeconds();
        const std::string check = phase();
        const double took = cpuSeconds() - start;
        const std::uint64_t peak = statusKiB("VmHWM:");
        result.seconds = std::min(result.seconds, took);
        result.peakMiB =
            std::max(result.peakMiB, static_cast<double>(peak - std::min(peak, baseline)) / 1024.0);
        std::snprintf(result.check, sizeof result.check, "%s", check.c_str());
      }
    } catch (const std::exception& error) {
      std::snprintf(result.check, sizeof result.check, "ERROR %s", error.what());
    }
    const ssize_t written = write(pipeFds[1], &result, sizeof result);
    _exit(written == static_cast<ssize_t>(sizeof result) ? 0 : 1);
  }
  close(pipeFds[1]);
  Result result{};
  const ssize_t got = read(pipeFds[0], &result, sizeof result);
  close(pipeFds[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (got != static_cast<ssize_t>(sizeof result))
    throw std::runtime_error("a benchmark child failed");
  return result;
}

void report(const char* what, std::uintmax_t bytes, const Result& ours, const Result& reference) {
  const double mib = static_cast<double>(bytes) / (1024.0 * 1024.0);
  const double oursRate = mib / ours.seconds;
  const double referenceRate = mib / reference.seconds;
  std::printf(
      "%-34s korvane %8.1f MiB/s (peak +%6.1f MiB)   RapidJSON %8.1f MiB/s (peak +%6.1f MiB)   "
      "ratio %.2f\n",
      what, oursRate, ours.peakMiB, referenceRate, reference.peakMiB, oursRate / referenceRate);
  std::printf("%-34s   results: korvane \"%s\", RapidJSON \"%s\"%s\n", "", ours.check,
              reference.check, std::strcmp(ours.check, reference.check) == 0 ? "" : "   MISMATCH");
}

}  // namespace korvane::bench
