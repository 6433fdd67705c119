// The reference the JSON benchmarks compare with: the same work done with
// RapidJSON's SAX Reader and Writer (a benchmark-only dependency).
#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace korvane::bench {

using Entries = std::vector<std::pair<std::string, std::string>>;

// The UUID text of the user named `sought`, in one pass over a users file.
std::string findUserRapid(const std::filesystem::path& path, const std::string& sought);

// Every member name and string value of a password file.
Entries readPasswordsRapid(const std::filesystem::path& path);

// Writes the entries as one object, pretty-printed (two spaces) or compact.
void writePasswordsRapid(const std::filesystem::path& path, const Entries& entries, bool pretty);

}  // namespace korvane::bench
