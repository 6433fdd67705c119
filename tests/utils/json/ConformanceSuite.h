// Where the public JSON parsing test suite is, when it is present beside
// the repository (it is not part of the repository), and reading its files.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace korvane::utils::json::test {

// The suite's test_parsing folder below KORVANE_SOURCE_DIR/../shared/testdata;
// empty when the variable is not set.
inline std::filesystem::path conformanceSuiteFolder() {
  const char* source = std::getenv("KORVANE_SOURCE_DIR");
  if (source == nullptr) return {};
  return std::filesystem::path(source) / ".." / "shared" / "testdata" / "json-conformance" / "test_parsing";
}

inline std::string readWholeFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

}  // namespace korvane::utils::json::test
