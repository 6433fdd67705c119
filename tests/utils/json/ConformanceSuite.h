// Where the public JSON parsing test suite is, when it is present beside
// the repository (it is not part of the repository), and reading its files.
// Outside CI a missing suite lets its tests skip; in CI (the variable CI
// set) it is a failure, so that the tests never silently vanish there.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace korvane::utils::json::test {

// The suite's test_parsing folder below KORVANE_SOURCE_DIR/../shared/testdata;
// empty when the variable is not set or the folder is missing, which in CI
// also records a failure of the calling test (which then skips).
inline std::filesystem::path conformanceSuiteFolder() {
  const char* source = std::getenv("KORVANE_SOURCE_DIR");
  std::filesystem::path folder;
  if (source != nullptr) {
    folder = std::filesystem::path(source) / ".." / "shared" / "testdata" / "json-conformance" /
             "test_parsing";
  }
  if (!folder.empty() && std::filesystem::is_directory(folder)) return folder;
  if (std::getenv("CI") != nullptr) {
    ADD_FAILURE() << "the public JSON parsing suite is missing: " << folder;
  }
  return {};
}

inline std::string readWholeFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace korvane::utils::json::test
