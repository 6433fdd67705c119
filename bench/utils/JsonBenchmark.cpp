// jsonBenchmark: throughput and peak memory of the JSON decoder and encoder,
// with RapidJSON's SAX Reader and Writer as the reference.
//
//   jsonBenchmark [users [phase]]   users: default 1000000, or KORVANE_BENCH_USERS
//                                   phase: users, read or write (default all)
//
// Generates, in a temporary folder, a users file with `users` user objects
// (each with members of every kind to skip) and a password file with as
// many entries. Then, each phase in its own child process (so that its peak
// memory can be measured from a clean baseline):
//   users:      find the last user by name in one pass, reading its UUID;
//   passwords:  read every member name and string value into memory;
//   write:      write the entries read back as a JSON object.
// Times are the process's CPU time (user and system), the best of three
// runs: on a shared machine wall time mostly measures the neighbours.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/support/BenchmarkFiles.h"
#include "bench/support/ChildMeasurement.h"
#include "bench/support/FileOutputStream.h"
#include "bench/support/RapidJsonReference.h"
#include "utils/core/Format.h"
#include "utils/core/Uuid.h"
#include "utils/io/FileInputStream.h"
#include "utils/json/decoder/Document.h"
#include "utils/json/encoder/Document.h"

namespace korvane::bench {
namespace {

namespace fs = std::filesystem;
namespace decoder = utils::json::decoder;
namespace encoder = utils::json::encoder;

// ---- the decoder and encoder under test

std::string findUserKorvane(const fs::path& path, const std::string& sought) {
  utils::io::FileInputStream<char> stream(path);
  decoder::Document document(stream, path);
  utils::core::Uuid found;
  for (decoder::Member& top : document.readAsObject()) {
    if (!(top.name() == "users")) continue;
    for (decoder::Value& user : top.value().asArray()) {
      bool match = false;
      utils::core::Uuid uuid;
      for (decoder::Member& member : user.asObject()) {
        if (member.name() == "userName") {
          std::size_t length = 0;
          bool equal = true;
          for (const char c : member.value().asString()) {
            equal = equal && length < sought.size() && sought[length] == c;
            ++length;
          }
          match = equal && length == sought.size();
        } else if (member.name() == "UUID") {
          uuid = member.value().toUuid();
        }
      }
      if (match) found = uuid;
    }
  }
  return found.toString().str();
}

Entries readPasswordsKorvane(const fs::path& path) {
  utils::io::FileInputStream<char> stream(path);
  decoder::Document document(stream, path);
  Entries entries;
  for (decoder::Member& member : document.readAsObject()) {
    std::string value;
    member.value().asString().appendTo(value);
    entries.emplace_back(std::move(member.name()), std::move(value));
  }
  return entries;
}

void writePasswordsKorvane(const fs::path& path, const Entries& entries, encoder::Format format) {
  FileOutputStream stream(path);
  {
    encoder::Document document(stream, format);
    encoder::Object object = document.asObject();
    for (const auto& [name, value] : entries) object.add(name, value);
  }
  stream.close();
}

int run(int argc, char** argv) {
  const std::uint64_t users = benchmarkUsers(argc, argv);
  if (users == 0) {
    std::fprintf(stderr, "usage: jsonBenchmark [number of users > 0]\n");
    return 2;
  }
  const BenchmarkFolder benchmarkFolder("json-bench");
  const fs::path& folder = benchmarkFolder.path();

  const fs::path usersPath = folder / "users.json";
  const fs::path passwordsPath = folder / "passwords.json";
  const fs::path outPath = folder / "out.json";
  generateUsers(usersPath, users);
  generatePasswords(passwordsPath, users);
  const std::uintmax_t usersBytes = fs::file_size(usersPath);
  const std::uintmax_t passwordsBytes = fs::file_size(passwordsPath);
  std::printf("%llu users: users file %.1f MiB, password file %.1f MiB\n",
              static_cast<unsigned long long>(users), static_cast<double>(usersBytes) / 1048576.0,
              static_cast<double>(passwordsBytes) / 1048576.0);

  const std::string phases = argc > 2 ? argv[2] : "users,read,write";
  const std::string sought = userName(users);
  auto nothing = [] {};
  if (phases.find("users") != std::string::npos)
    report("find the last user (users file)", usersBytes,
           measure(nothing, [&] { return findUserKorvane(usersPath, sought); }),
           measure(nothing, [&] { return findUserRapid(usersPath, sought); }));

  auto count = [](const Entries& entries) {
    return utils::core::format("{} entries, last {}", entries.size(),
                               entries.empty() ? "" : entries.back().first);
  };
  if (phases.find("read") != std::string::npos)
    report("read the password file", passwordsBytes,
           measure(nothing, [&] { return count(readPasswordsKorvane(passwordsPath)); }),
           measure(nothing, [&] { return count(readPasswordsRapid(passwordsPath)); }));

  if (phases.find("write") == std::string::npos) return 0;
  // The writers get the entries read beforehand, outside the measurement.
  Entries entries;
  auto load = [&] { entries = readPasswordsKorvane(passwordsPath); };
  auto size = [&] { return utils::core::format("{} bytes", fs::file_size(outPath)); };
  const Result indented = measure(load, [&] {
    writePasswordsKorvane(outPath, entries, encoder::Format::indented);
    return size();
  });
  const std::uintmax_t indentedBytes = fs::file_size(outPath);
  const Result pretty = measure(load, [&] {
    writePasswordsRapid(outPath, entries, true);
    return size();
  });
  report("write the password file, indented", indentedBytes, indented, pretty);
  const Result compact = measure(load, [&] {
    writePasswordsKorvane(outPath, entries, encoder::Format::compact);
    return size();
  });
  const std::uintmax_t compactBytes = fs::file_size(outPath);
  const Result plain = measure(load, [&] {
    writePasswordsRapid(outPath, entries, false);
    return size();
  });
  report("write the password file, compact", compactBytes, compact, plain);
  return 0;
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
  try {
    return korvane::bench::run(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "jsonBenchmark: %s\n", error.what());
    return 1;
  }
}
