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

#include <rapidjson/filereadstream.h>
#include <rapidjson/filewritestream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/writer.h>

#include <algorithm>
#include <ctime>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "utils/core/Format.h"
#include "utils/core/Uuid.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/FileOutputStream.h"
#include "utils/json/decoder/Document.h"
#include "utils/json/encoder/Document.h"

namespace korvane::bench {
namespace {

namespace fs = std::filesystem;
namespace decoder = utils::json::decoder;
namespace encoder = utils::json::encoder;
using Entries = std::vector<std::pair<std::string, std::string>>;

std::string userName(std::uint64_t i) { return utils::core::format("user{:07}", i); }
std::string uuidText(std::uint64_t i) {
  return utils::core::format("{:08x}-{:04x}-4{:03x}-8{:03x}-{:012x}", i * 2654435761u % 0xFFFFFFFFu, i % 0xFFFF,
                             i % 0xFFF, (i / 7) % 0xFFF, i);
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
      case 0: line += "\"groups\": [\"admins\", \"ops\", 42, null], "; break;
      case 1: line += "\"profile\": {\"age\": 37, \"ratio\": -0.125e-3, \"active\": true, \"tags\": []}, "; break;
      case 2: line += "\"notes\": \"line one\\nline \\\"two\\\"\\t\\u00e9\\ud83d\\ude00 \xC3\xA9t\xC3\xA9\", "; break;
      default: line += "\"quota\": 1234567.891, \"locked\": false, \"manager\": null, "; break;
    }
    line += "\"UUID\": \"" + uuidText(i) + "\"}";
    line += i == count ? "\n" : ",\n";
    out << line;
  }
  out << "  ],\n  \"trailer\": {\"generated\": true}\n}\n";
  if (!out) throw std::runtime_error("cannot write the users file");
}

void generatePasswords(const fs::path& path, std::uint64_t count) {
  std::ofstream out(path, std::ios::binary);
  out << "{\n  \"$schema\": \"https://docs.korvane.com/korvane/schema-korvane-passwords.json\"";
  const std::string digest(86, 'x');
  for (std::uint64_t i = 1; i <= count; ++i) {
    out << ",\n  \"" << uuidText(i) << "\": \"$6$" << utils::core::format("{:016x}", i) << '$' << digest
        << '"';
  }
  out << "\n}\n";
  if (!out) throw std::runtime_error("cannot write the password file");
}

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
    for (const char c : member.value().asString()) value += c;
    entries.emplace_back(std::move(member.name()), std::move(value));
  }
  return entries;
}

void writePasswordsKorvane(const fs::path& path, const Entries& entries, encoder::Format format) {
  utils::io::FileOutputStream<char> stream(path, utils::io::File::Access::createOrTruncate);
  {
    encoder::Document document(stream, format);
    encoder::Object object = document.asObject();
    for (const auto& [name, value] : entries) object.add(name, value);
  }
  stream.close();
}

// ---- the RapidJSON reference

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;

FilePtr openFile(const fs::path& path, const char* mode) {
  FilePtr file(std::fopen(path.c_str(), mode));
  if (!file) throw std::runtime_error("cannot open " + path.string());
  return file;
}

struct UsersHandler : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, UsersHandler> {
  std::string sought;
  int depth = 0;
  bool inUsers = false;
  std::string topKey;
  std::string key;
  bool match = false;
  std::string uuid;
  std::string found;

  bool userLevel() const { return inUsers && depth == 3; }
  bool StartObject() {
    ++depth;
    if (userLevel()) {
      match = false;
      uuid.clear();
    }
    return true;
  }
  bool EndObject(rapidjson::SizeType) {
    if (userLevel() && match) found = uuid;
    --depth;
    return true;
  }
  bool StartArray() {
    ++depth;
    if (depth == 2 && topKey == "users") inUsers = true;
    return true;
  }
  bool EndArray(rapidjson::SizeType) {
    if (depth == 2) inUsers = false;
    --depth;
    return true;
  }
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    if (depth == 1) topKey.assign(text, length);
    if (userLevel()) key.assign(text, length);
    return true;
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    if (!userLevel()) return true;
    if (key == "userName") match = sought.size() == length && std::memcmp(sought.data(), text, length) == 0;
    if (key == "UUID") uuid.assign(text, length);
    return true;
  }
  bool Default() { return true; }
};

std::string findUserRapid(const fs::path& path, const std::string& sought) {
  FilePtr file = openFile(path, "rb");
  std::vector<char> buffer(64 * 1024);
  rapidjson::FileReadStream stream(file.get(), buffer.data(), buffer.size());
  UsersHandler handler;
  handler.sought = sought;
  rapidjson::Reader reader;
  if (!reader.Parse(stream, handler)) throw std::runtime_error("RapidJSON parse error");
  const auto uuid = utils::core::Uuid::fromString(handler.found);
  return uuid ? uuid->toString().str() : std::string("?");
}

struct EntriesHandler : rapidjson::BaseReaderHandler<rapidjson::UTF8<>, EntriesHandler> {
  Entries entries;
  std::string key;
  bool Key(const char* text, rapidjson::SizeType length, bool) {
    key.assign(text, length);
    return true;
  }
  bool String(const char* text, rapidjson::SizeType length, bool) {
    entries.emplace_back(std::move(key), std::string(text, length));
    return true;
  }
  bool StartObject() { return true; }
  bool EndObject(rapidjson::SizeType) { return true; }
  bool Default() { return false; }
};

Entries readPasswordsRapid(const fs::path& path) {
  FilePtr file = openFile(path, "rb");
  std::vector<char> buffer(64 * 1024);
  rapidjson::FileReadStream stream(file.get(), buffer.data(), buffer.size());
  EntriesHandler handler;
  rapidjson::Reader reader;
  if (!reader.Parse(stream, handler)) throw std::runtime_error("RapidJSON parse error");
  return std::move(handler.entries);
}

template <typename Writer>
void writeEntries(Writer& writer, const Entries& entries) {
  writer.StartObject();
  for (const auto& [name, value] : entries) {
    writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
  }
  writer.EndObject();
}

void writePasswordsRapid(const fs::path& path, const Entries& entries, bool pretty) {
  FilePtr file = openFile(path, "wb");
  std::vector<char> buffer(64 * 1024);
  rapidjson::FileWriteStream stream(file.get(), buffer.data(), buffer.size());
  if (pretty) {
    rapidjson::PrettyWriter<rapidjson::FileWriteStream> writer(stream);
    writer.SetIndent(' ', 2);
    writeEntries(writer, entries);
  } else {
    rapidjson::Writer<rapidjson::FileWriteStream> writer(stream);
    writeEntries(writer, entries);
  }
  if (pretty) stream.Put('\n');
  stream.Flush();
}

// ---- measurement

std::uint64_t statusKiB(const char* field) {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind(field, 0) == 0) return std::strtoull(line.c_str() + std::strlen(field), nullptr, 10);
  }
  return 0;
}

double cpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

struct Result {
  double seconds;      // best of the runs
  double peakMiB;      // peak resident memory above the phase's baseline
  char check[64];      // a short result, to compare both implementations
};

// Runs `phase` three times in a child process. `prepare` runs first in the
// child, outside the timing and before the memory baseline is taken.
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
        result.peakMiB = std::max(result.peakMiB, static_cast<double>(peak - std::min(peak, baseline)) / 1024.0);
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
  if (got != static_cast<ssize_t>(sizeof result)) throw std::runtime_error("a benchmark child failed");
  return result;
}

void report(const char* what, std::uintmax_t bytes, const Result& ours, const Result& reference) {
  const double mib = static_cast<double>(bytes) / (1024.0 * 1024.0);
  const double oursRate = mib / ours.seconds;
  const double referenceRate = mib / reference.seconds;
  std::printf("%-34s korvane %8.1f MiB/s (peak +%6.1f MiB)   RapidJSON %8.1f MiB/s (peak +%6.1f MiB)   ratio %.2f\n",
              what, oursRate, ours.peakMiB, referenceRate, reference.peakMiB, oursRate / referenceRate);
  std::printf("%-34s   results: korvane \"%s\", RapidJSON \"%s\"%s\n", "", ours.check, reference.check,
              std::strcmp(ours.check, reference.check) == 0 ? "" : "   MISMATCH");
}

int run(int argc, char** argv) {
  std::uint64_t users = 1000000;
  if (const char* env = std::getenv("KORVANE_BENCH_USERS")) users = std::strtoull(env, nullptr, 10);
  if (argc > 1) users = std::strtoull(argv[1], nullptr, 10);
  if (users == 0) {
    std::fprintf(stderr, "usage: jsonBenchmark [number of users > 0]\n");
    return 2;
  }
  const fs::path folder = fs::temp_directory_path() / utils::core::format("korvane-json-bench-{}", getpid());
  fs::create_directories(folder);
  struct Cleanup {
    fs::path folder;
    ~Cleanup() {
      std::error_code ignored;
      fs::remove_all(folder, ignored);
    }
  } cleanup{folder};

  const fs::path usersPath = folder / "users.json";
  const fs::path passwordsPath = folder / "passwords.json";
  const fs::path outPath = folder / "out.json";
  generateUsers(usersPath, users);
  generatePasswords(passwordsPath, users);
  const std::uintmax_t usersBytes = fs::file_size(usersPath);
  const std::uintmax_t passwordsBytes = fs::file_size(passwordsPath);
  std::printf("%llu users: users file %.1f MiB, password file %.1f MiB\n", static_cast<unsigned long long>(users),
              static_cast<double>(usersBytes) / 1048576.0, static_cast<double>(passwordsBytes) / 1048576.0);

  const std::string phases = argc > 2 ? argv[2] : "users,read,write";
  const std::string sought = userName(users);
  auto nothing = [] {};
  if (phases.find("users") != std::string::npos) report("find the last user (users file)", usersBytes,
         measure(nothing, [&] { return findUserKorvane(usersPath, sought); }),
         measure(nothing, [&] { return findUserRapid(usersPath, sought); }));

  auto count = [](const Entries& entries) {
    return utils::core::format("{} entries, last {}", entries.size(), entries.empty() ? "" : entries.back().first);
  };
  if (phases.find("read") != std::string::npos) report("read the password file", passwordsBytes,
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
