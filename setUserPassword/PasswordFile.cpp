#include "setUserPassword/PasswordFile.h"

#include <algorithm>
#include <functional>

#include "utils/core/Format.h"
#include "utils/io/FileInputStream.h"
#include "utils/io/FileNotFoundError.h"
#include "utils/io/FileOutputStream.h"
#include "utils/io/FileReplacement.h"
#include "utils/json/decoder/Document.h"
#include "utils/json/encoder/Document.h"

#ifndef KORVANE_SCHEMA_HOST
#error "KORVANE_SCHEMA_HOST must name the documentation host"
#endif

namespace korvane::setUserPassword {

namespace {

namespace decoder = utils::json::decoder;
namespace encoder = utils::json::encoder;
using utils::core::Uuid;

Uuid uuidOfName(std::string_view name) {
  const auto parsed = Uuid::fromString(name);
  return parsed ? *parsed : Uuid();
}

// Collects the string in `scratch`, whose room is kept from one value to
// the next, and returns a copy of exactly its size: one allocation a value
// instead of one for every doubling.
std::string readString(decoder::Value& value, std::string& scratch) {
  scratch.clear();
  value.asString().appendTo(scratch);
  return scratch;
}

void writeEntries(utils::io::OutputStream<char>& stream,
                  const std::vector<PasswordFile::Entry>& entries) {
  encoder::Document document(std::ref(stream), encoder::Format::indented);
  encoder::Object object = document.asObject();
  for (const auto& entry : entries) object.add(entry.name, entry.value);
}

}  // namespace

std::string_view PasswordFile::schemaUrl() noexcept {
  return "https://" KORVANE_SCHEMA_HOST "/korvane/schema-korvane-passwords.json";
}

void PasswordFile::read() {
  entries_.clear();
  try {
    utils::io::FileInputStream<char> stream(path_);
    decoder::Document document(stream, path_);
    std::string scratch;
    for (decoder::Member& member : document.readAsObject()) {
      std::string value = readString(member.value(), scratch);
      std::string name = std::move(member.name());
      const Uuid uuid = uuidOfName(name);
      entries_.push_back({std::move(name), uuid, std::move(value)});
    }
    document.finish();
  } catch (const utils::io::FileNotFoundError&) {
    if (entries_.empty()) entries_.push_back({"$schema", Uuid(), std::string(schemaUrl())});
  }
}

const PasswordFile::Entry* PasswordFile::find(const Uuid& uuid) const noexcept {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.uuid == uuid; });
  return found == entries_.end() ? nullptr : &*found;
}

void PasswordFile::set(const Uuid& uuid, std::string hash) {
  auto found = std::find_if(entries_.begin(), entries_.end(),
                            [&](const Entry& entry) { return entry.uuid == uuid; });
  if (found == entries_.end()) {
    entries_.push_back({uuid.toString().str(), uuid, {}});
    found = entries_.end() - 1;
  }
  found->value = std::move(hash);
  const auto later = std::remove_if(found + 1, entries_.end(),
                                    [&](const Entry& entry) { return entry.uuid == uuid; });
  entries_.erase(later, entries_.end());
}

void PasswordFile::erase(const Uuid& uuid) {
  std::erase_if(entries_, [&](const Entry& entry) { return entry.uuid == uuid; });
}

void PasswordFile::write() const {
  const std::filesystem::path target = utils::io::resolveReplacementTarget(path_);
  std::filesystem::path temporary = target;
  temporary += utils::core::format(".{}", Uuid::create());
  // Created exclusively: whatever is already at that name (a file, a link
  // planted there) is neither followed nor truncated; the write fails.
  utils::io::FileOutputStream<char> stream(temporary, utils::io::File::Access::createNew,
                                           std::filesystem::perms::owner_read |
                                               std::filesystem::perms::owner_write);
  utils::io::copyAttributesForReplacement(stream.file(), target);
  writeEntries(stream, entries_);
  stream.sync();
  stream.close();
  utils::io::replaceFile(temporary, target);
}

}  // namespace korvane::setUserPassword
