// Large installations for the benchmarks: a users file of `count` users
// (each with members of every kind to skip) and a password file with as many
// entries, in the form the tool reads and writes.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace korvane::bench {

// The name and UUID text of user number `i` (1-based).
std::string userName(std::uint64_t i);
std::string uuidText(std::uint64_t i);

void generateUsers(const std::filesystem::path& path, std::uint64_t count);
void generatePasswords(const std::filesystem::path& path, std::uint64_t count);

}  // namespace korvane::bench
