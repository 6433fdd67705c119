#include "bench/support/RapidJsonReference.h"

#include <rapidjson/filereadstream.h>
#include <rapidjson/filewritestream.h>
#include <rapidjson/prettywriter.h>
#include <rapidjson/reader.h>
#include <rapidjson/writer.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "utils/core/Uuid.h"

namespace korvane::bench {

namespace fs = std::filesystem;

namespace {

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
    if (key == "userName")
      match = sought.size() == length && std::memcmp(sought.data(), text, length) == 0;
    if (key == "UUID") uuid.assign(text, length);
    return true;
  }
  bool Default() { return true; }
};

}  // namespace

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

namespace {

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

}  // namespace

Entries readPasswordsRapid(const fs::path& path) {
  FilePtr file = openFile(path, "rb");
  std::vector<char> buffer(64 * 1024);
  rapidjson::FileReadStream stream(file.get(), buffer.data(), buffer.size());
  EntriesHandler handler;
  rapidjson::Reader reader;
  if (!reader.Parse(stream, handler)) throw std::runtime_error("RapidJSON parse error");
  return std::move(handler.entries);
}

namespace {

template <typename Writer>
void writeEntries(Writer& writer, const Entries& entries) {
  writer.StartObject();
  for (const auto& [name, value] : entries) {
    writer.Key(name.data(), static_cast<rapidjson::SizeType>(name.size()));
    writer.String(value.data(), static_cast<rapidjson::SizeType>(value.size()));
  }
  writer.EndObject();
}

}  // namespace

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

}  // namespace korvane::bench
