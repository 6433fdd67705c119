// Large installations for the benchmarks: a users file of `count` users
// (each with members of every kind to skip) and a password file with as many
// entries, in the form the tool reads and writes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace korvane::bench {

// The name and UUID text of user number `i` (1-based).
std::string userName(std::uint64_t i);
std::string uuidText(std::uint64_t i);

void generateUsers(const std::filesystem::path& path, std::uint64_t count);
void generatePasswords(const std::filesystem::path& path, std::uint64_t count);
// A password file with user 1's entry and, between "$schema" and it, a
// member "padding" whose string value is `paddingBytes` plain letters.
void generatePaddedPasswords(const std::filesystem::path& path, std::uint64_t paddingBytes);

// The number of users to generate: the first argument, else the variable
// KORVANE_BENCH_USERS, else a million. 0 for an argument that is no number.
std::uint64_t benchmarkUsers(int argc, char** argv);

// A fresh folder for one benchmark run, removed with its content at the end:
// "korvane-<name>-<process ID>" in `base` (default: the temporary folder).
class BenchmarkFolder {
 public:
  explicit BenchmarkFolder(std::string_view name);
  BenchmarkFolder(std::string_view name, const std::filesystem::path& base);
  ~BenchmarkFolder();
  BenchmarkFolder(const BenchmarkFolder&) = delete;
  BenchmarkFolder& operator=(const BenchmarkFolder&) = delete;

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
};

}  // namespace korvane::bench
