#include "bench/support/BenchmarkFiles.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <stdexcept>

#include "utils/core/Format.h"

namespace korvane::bench {

namespace fs = std::filesystem;

std::string userName(std::uint64_t i) { return utils::core::format("user{:07}", i); }
std::string uuidText(std::uint64_t i) {
  return utils::core::format("{:08x}-{:04x}-4{:03x}-8{:03x}-{:012x}", i * 2654435761u % 0xFFFFFFFFu,
                             i % 0xFFFF, i % 0xFFF, (i / 7) % 0xFFF, i);
}

void generateUsers(const fs::path& path, std::uint64_t count) {
  std::ofstream out(path, std::ios::binary);
  out << "{\n  \"version\": 3,\n  \"settings\": {\"limits\": [1, 2.5, -3e10, true, false, null],"
         " \"nested\": {\"a\": {\"b\": [[], {}]}}},\n  \"users\": [\n";
  std::string line;
  for (std::uint64_t i = 1; i <= count; ++i) {
    line.clear();
    line += "    {\"userName\": \"" + userName(i) + "\", ";
    switch (i % 4) {
      case 0:
        line += "\"groups\": [\"admins\", \"ops\", 42, null], ";
        break;
      case 1:
        line +=
            "\"profile\": {\"age\": 37, \"ratio\": -0.125e-3, \"active\": true, \"tags\": []}, ";
        break;
      case 2:
        line +=
            "\"notes\": \"line one\\nline \\\"two\\\"\\t\\u00e9\\ud83d\\ude00 "
            "\xC3\xA9t\xC3\xA9\", ";
        break;
      default:
        line += "\"quota\": 1234567.891, \"locked\": false, \"manager\": null, ";
        break;
    }
    line += "\"UUID\": \"" + uuidText(i) + "\"}";
    line += i == count ? "\n" : ",\n";
    out << line;
  }
  out << "  ],\n  \"trailer\": {\"generated\": true}\n}\n";
  if (!out) throw std::runtime_error("cannot write the users file");
}

namespace {

constexpr const char* passwordsHead =
    "{\n  \"$schema\": \"https://docs.korvane.com/korvane/schema-korvane-passwords.json\"";

// The member of user number `i` (1-based) in the password file, after the
// previous member.
std::string passwordEntry(std::uint64_t i) {
  static const std::string digest(86, 'x');
  return ",\n  \"" + uuidText(i) + "\": \"$6$" + utils::core::format("{:016x}", i) + '$' + digest +
         '"';
}

}  // namespace

void generatePasswords(const fs::path& path, std::uint64_t count) {
  std::ofstream out(path, std::ios::binary);
  out << passwordsHead;
  for (std::uint64_t i = 1; i <= count; ++i) out << passwordEntry(i);
  out << "\n}\n";
  if (!out) throw std::runtime_error("cannot write the password file");
}

void generatePaddedPasswords(const fs::path& path, std::uint64_t paddingBytes) {
  std::ofstream out(path, std::ios::binary);
  out << passwordsHead << ",\n  \"padding\": \"";
  // Written a piece at a time, so that the writer's memory stays small.
  std::string piece(std::size_t{1} << 20, 'a');
  for (std::size_t i = 0; i < piece.size(); ++i) piece[i] = static_cast<char>('a' + i % 26);
  for (std::uint64_t left = paddingBytes; left > 0;) {
    const std::size_t size = static_cast<std::size_t>(std::min<std::uint64_t>(left, piece.size()));
    out.write(piece.data(), static_cast<std::streamsize>(size));
    left -= size;
  }
  out << '"' << passwordEntry(1) << "\n}\n";
  if (!out) throw std::runtime_error("cannot write the password file");
}

std::uint64_t benchmarkUsers(int argc, char** argv) {
  std::uint64_t users = 1000000;
  if (const char* variable = std::getenv("KORVANE_BENCH_USERS")) {
    users = std::strtoull(variable, nullptr, 10);
  }
  if (argc > 1) users = std::strtoull(argv[1], nullptr, 10);
  return users;
}

BenchmarkFolder::BenchmarkFolder(std::string_view name)
    : BenchmarkFolder(name, fs::temp_directory_path()) {}

BenchmarkFolder::BenchmarkFolder(std::string_view name, const fs::path& base)
    : path_(base / utils::core::format("korvane-{}-{}", name, ::getpid())) {
  fs::create_directories(path_);
}

BenchmarkFolder::~BenchmarkFolder() {
  std::error_code ignored;
  fs::remove_all(path_, ignored);
}

}  // namespace korvane::bench
