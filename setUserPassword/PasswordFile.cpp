#include "setUserPassword/PasswordFile.h"

#include <algorithm>
#include <functional>

#include "utils/core/Format.h"
#include "utils/io/File.h"
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

void PasswordFile::read(SearchPass* settledBy) {
  clear();
  try {
    utils::io::File file(path_, utils::io::File::Access::read);
    // A file that cannot be read twice (a FIFO, a device) gets the exact
    // pass alone.
    const bool regular = file.isRegularFile();
    SearchPass pass = SearchPass::skim;
    if (!regular || !skim([&file](std::span<char> into) { return file.read(into); })) {
      if (regular) file.rewind();
      utils::io::FileInputStream<char> stream(std::move(file));
      readFrom(stream);
      pass = SearchPass::exact;
    }
    if (settledBy != nullptr) *settledBy = pass;
  } catch (const utils::io::FileNotFoundError&) {
    if (entries_.empty()) entries_.push_back(makeEntry("$schema", Uuid(), schemaUrl()));
  }
}

bool PasswordFile::skim(const decoder::Skimmer::Reader& reader, std::size_t window) {
  clear();
  decoder::Skimmer skimmer(reader, window);
  // The name is copied before the value is read, which may move the
  // Skimmer's window; its room is kept from one name to the next.
  std::string name;
  const bool whole = skimmer.attempt([&] {
    skimmer.startDocument();
    skimmer.openObject();
    bool started = false;
    decoder::SkimmedString member;
    while (skimmer.nextMember(started, member)) {
      if (member.escaped) decoder::Skimmer::giveUp();
      name.assign(member.raw);
      const decoder::SkimmedString value = skimmer.readString();
      if (value.escaped) decoder::Skimmer::giveUp();
      entries_.push_back(makeEntry(name, uuidOfName(name), value.raw));
    }
    skimmer.finish();
  });
  if (!whole) clear();
  return whole;
}

void PasswordFile::readFrom(utils::io::InputStream<char>& stream) {
  clear();
  decoder::Document document(stream, path_);
  // The value is collected here, whose room is kept from one value to
  // the next, then copied into the storage beside its name.
  std::string value;
  for (decoder::Member& member : document.readAsObject()) {
    value.clear();
    member.value().asString().appendTo(value);
    const std::string_view name = member.name().view();
    entries_.push_back(makeEntry(name, uuidOfName(name), value));
  }
  document.finish();
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

void PasswordFile::write() const {
  const std::filesystem::path target = utils::io::resolveReplacementTarget(path_);
  std::filesystem::path temporary = target;
  temporary += utils::core::format(".{}", Uuid::create());
  // Created exclusively: whatever is already at that name (a file, a link
  // planted there) is neither followed nor truncated; the write fails.
  utils::io::FileOutputStream<char> stream(
      temporary, utils::io::File::Access::createNew,
      std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  utils::io::copyAttributesForReplacement(stream.file(), target);
  writeEntries(stream, entries_);
  stream.sync();
  stream.close();
  utils::io::replaceFile(temporary, target);
}

}  // namespace korvane::setUserPassword
