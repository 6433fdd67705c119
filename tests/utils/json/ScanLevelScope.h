// ScanLevelScope: makes a scan level current for the life of the object
// (see utils/json/ScanKernels.h), so that a test that compares the levels
// leaves the best one current however it ends. everyScanLevel(): the levels
// this processor runs, plain first.
#pragma once

#include <vector>

#include "utils/json/ScanKernels.h"

namespace korvane::utils::json::test {

class ScanLevelScope {
 public:
  explicit ScanLevelScope(detail::ScanLevel level) : previous_(detail::setScanLevel(level)) {}
  ~ScanLevelScope() { detail::setScanLevel(previous_); }
  ScanLevelScope(const ScanLevelScope&) = delete;
  ScanLevelScope& operator=(const ScanLevelScope&) = delete;

 private:
  detail::ScanLevel previous_;
};

inline std::vector<detail::ScanLevel> everyScanLevel() {
  using detail::ScanLevel;
  std::vector<ScanLevel> levels{ScanLevel::plain};
  if (detail::bestScanLevel() >= ScanLevel::sse2) levels.push_back(ScanLevel::sse2);
  if (detail::bestScanLevel() >= ScanLevel::avx2) levels.push_back(ScanLevel::avx2);
  return levels;
}

}  // namespace korvane::utils::json::test
