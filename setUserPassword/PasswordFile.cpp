#include "setUserPassword/PasswordFile.h"

#include <algorithm>
#include <functional>

#include "setUserPassword/ExactReader.h"
#include "setUserPassword/SkimReader.h"
#include "setUserPassword/TwoPassRead.h"
#include "utils/core/Format.h"
#include "utils/io/File.h"
#include "utils/io/FileOutputStream.h"
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

// The storage grows by blocks, each twice the size of the one before from
// the first to the largest, so that a small file (the usual one) costs one
// small allocation from the heap and a large one few system calls. A longer
// name and value get a block of their own.
constexpr std::size_t firstBlockSize = 16 * 1024;
constexpr std::size_t largestBlockSize = 1024 * 1024;

void writeEntries(utils::io::OutputStream<char>& stream,
                  const std::deque<PasswordFile::Entry>& entries) {
  encoder::Document document(std::ref(stream), encoder::Format::indented);
  encoder::Object object = document.asObject();
  for (const auto& entry : entries) object.add(entry.name(), entry.value());
}

}  // namespace

std::string_view PasswordFile::schemaUrl() noexcept {
  return "https://" KORVANE_SCHEMA_HOST "/korvane/schema-korvane-passwords.json";
}

char* PasswordFile::allocate(std::size_t size) {
  if (size > freeSize_) {
    const std::size_t blockSize =
        std::min(firstBlockSize << std::min<std::size_t>(blocks_.size(), 6), largestBlockSize);
    const std::size_t blockBytes = std::max(size, blockSize);
    blocks_.push_back(std::make_unique_for_overwrite<char[]>(blockBytes));
    free_ = blocks_.back().get();
    freeSize_ = blockBytes;
  }
  char* const room = free_;
  free_ += size;
  freeSize_ -= size;
  return room;
}

PasswordFile::Entry PasswordFile::makeEntry(std::string_view name, const Uuid& uuid,
                                            std::string_view value) {
  char* const text = allocate(name.size() + value.size());
  std::copy(name.begin(), name.end(), text);
  std::copy(value.begin(), value.end(), text + name.size());
  Entry entry;
  entry.text_ = text;
  entry.lengths_ = static_cast<std::uint64_t>(value.size()) << Entry::nameLengthBits | name.size();
  entry.uuid_ = uuid;
  return entry;
}

void PasswordFile::clear() {
  entries_.clear();
  blocks_.clear();
  free_ = nullptr;
  freeSize_ = 0;
}

PasswordFile PasswordFile::reopened() const {
  target();  // resolved here, once for both
  PasswordFile other(path_);
  other.target_ = target_;
  return other;
}

const utils::io::ReplacementTarget& PasswordFile::target() const {
  if (!target_) {
    try {
      target_ = std::make_shared<const utils::io::ReplacementTarget>(path_);
    } catch (const utils::io::UntrustedLinkError& error) {
      throw utils::io::UntrustedLinkError(
          utils::core::format("{}; name the real password file with -Passwords", error.what()));
    }
  }
  return *target_;
}

void PasswordFile::read(SearchPass* settledBy) {
  clear();
  utils::io::ReplacedFile replaced;
  std::optional<utils::io::File> file = target().open(&replaced);
  hasRead_ = true;
  replaced_.reset();
  if (!file) {
    entries_.push_back(makeEntry("$schema", Uuid(), schemaUrl()));
    return;
  }
  replaced_ = std::move(replaced);
  const SearchPass pass = readSkimmingFirst(
      std::move(*file), [&](const decoder::Skimmer::Reader& reader) { return skim(reader); },
      [&](utils::io::InputStream<char>& stream) { readFrom(stream); });
  if (settledBy != nullptr) *settledBy = pass;
}

bool PasswordFile::skim(const decoder::Skimmer::Reader& reader, std::size_t window) {
  clear();
  decoder::Skimmer skimmer(reader, window);
  SkimReader skim(skimmer);
  const bool whole = skimmer.attempt([&] { readEntries(skim); });
  if (!whole) clear();
  return whole;
}

void PasswordFile::readFrom(utils::io::InputStream<char>& stream) {
  ExactReader reader(stream, path_);
  readEntries(reader);
}

// The file's rules, for both passes: one object whose members all have
// string values, each kept with its name.
template <typename Reader>
void PasswordFile::readEntries(Reader& reader) {
  clear();
  // The name is copied before the value is read, which may move what it
  // points into (the fast pass's window); the value is kept in `room` by
  // the exact pass. The room of both is kept from one member to the next.
  std::string name;
  std::string room;
  reader.readDocument([&](std::string_view member, typename Reader::Value& value) {
    name.assign(member);
    const std::string_view text = reader.readString(value, room);
    entries_.push_back(makeEntry(name, uuidOfName(name), text));
  });
}

const PasswordFile::Entry* PasswordFile::find(const Uuid& uuid) const noexcept {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.uuid_ == uuid; });
  return found == entries_.end() ? nullptr : &*found;
}

void PasswordFile::set(const Uuid& uuid, std::string_view hash) {
  auto found = std::find_if(entries_.begin(), entries_.end(),
                            [&](const Entry& entry) { return entry.uuid_ == uuid; });
  if (found == entries_.end()) {
    entries_.push_back(makeEntry(uuid.toString().view(), uuid, hash));
    found = entries_.end() - 1;
  } else {
    // The name is copied beside the new value; the old bytes stay unused.
    *found = makeEntry(found->name(), uuid, hash);
  }
  const auto later = std::remove_if(found + 1, entries_.end(),
                                    [&](const Entry& entry) { return entry.uuid_ == uuid; });
  entries_.erase(later, entries_.end());
}

void PasswordFile::erase(const Uuid& uuid) {
  std::erase_if(entries_, [&](const Entry& entry) { return entry.uuid_ == uuid; });
}

void PasswordFile::write() {
  const utils::io::ReplacementTarget& file = target();
  if (!hasRead_) {
    utils::io::ReplacedFile replaced;
    replaced_.reset();
    if (file.open(&replaced)) replaced_ = std::move(replaced);
    hasRead_ = true;
  }
  // Created exclusively: whatever is already at that name (a file, a link
  // planted there) is neither followed nor truncated; the write fails.
  utils::io::FileOutputStream<char> stream(
      file.createTemporary(Uuid::create().toString().view(), replaced_));
  const std::filesystem::path temporary = stream.file().path();
  writeEntries(stream, entries_);
  stream.sync();
  const utils::io::ReplacedFile written = utils::io::ReplacementTarget::identify(stream.file());
  stream.close();
  file.replace(temporary, written, replaced_);
  // What is there now is this object's own file.
  hasRead_ = false;
}

}  // namespace korvane::setUserPassword
