// PasswordFile: the password file (passwords.json) in memory. One JSON
// object whose members all have string values: "$schema", one member per
// user (the UUID's text → the SHA-crypt hash string), and any other member,
// which is kept as it stands.
//
// Every member survives a rewrite with its name, value and place; only the
// entries of the user being changed are touched. The file on disk is never
// edited: write() replaces it with a complete new version.
//
// Entries are held compactly: the names and values of all entries in a few
// large blocks of bytes, each entry a pointer, two lengths and its UUID.
//
// Thread safety: one object, one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "setUserPassword/SearchPass.h"
#include "utils/core/Uuid.h"
#include "utils/io/InputStream.h"
#include "utils/io/ReplacementTarget.h"
#include "utils/json/decoder/Skimmer.h"

namespace korvane::setUserPassword {

class PasswordFile {
 public:
  // One member of the file. Its name and value are kept side by side in the
  // file's storage (see below) and stay valid while the PasswordFile lives.
  class Entry {
   public:
    // As read, or the UUID's text for an added entry.
    std::string_view name() const noexcept { return {text_, nameLength()}; }
    // Parsed from the name; null when it is no UUID.
    const utils::core::Uuid& uuid() const noexcept { return uuid_; }
    std::string_view value() const noexcept {
      return {text_ + nameLength(), static_cast<std::size_t>(lengths_ >> nameLengthBits)};
    }

   private:
    friend class PasswordFile;
    // Member names are at most 64 KiB (the decoder's limit), values anything.
    static constexpr unsigned nameLengthBits = 20;
    std::size_t nameLength() const noexcept {
      return static_cast<std::size_t>(lengths_ & ((std::uint64_t{1} << nameLengthBits) - 1));
    }

    const char* text_ = nullptr;  // the name, then the value
    std::uint64_t lengths_ = 0;   // the value's length above the name's
    utils::core::Uuid uuid_;
  };

  // The value of the "$schema" member of a new file.
  static std::string_view schemaUrl() noexcept;

  explicit PasswordFile(std::filesystem::path path) : path_(std::move(path)) {}

  // An empty PasswordFile for the same file, resolved once for both (see
  // target()): what it reads is what this one would read now.
  PasswordFile reopened() const;

  // The file on disk, its path resolved on first use and never again (see
  // utils/io/ReplacementTarget.h). Throws what resolving throws; a link
  // that is not followed says to name the real file with -Passwords.
  const utils::io::ReplacementTarget& target() const;

  // Fills the entries from the file, replacing any held, and remembers
  // which file that was, for write(). A missing file reads as a new one
  // that holds only "$schema"; anything but a regular file at the name is
  // an error, and nothing is read from it; every other failure throws.
  // The file is read first by skim(); where it gives up, by readFrom().
  // *settledBy (if given) tells which.
  void read(SearchPass* settledBy = nullptr);

  // The two passes behind read(), each replacing the entries held.
  // skim: the fast pass over the text that `reader` gives (see
  // utils/json/decoder/Skimmer.h): true when it read the whole file; false,
  // with no entries, where it gave up: on anything readFrom() refuses, and
  // on an escape in a name or a value. The reader's exceptions pass through.
  bool skim(const utils::json::decoder::Skimmer::Reader& reader,
            std::size_t window = utils::json::decoder::Skimmer::defaultWindow);
  // readFrom: the exact pass over `stream`, whose errors name the file and
  // the line and column.
  void readFrom(utils::io::InputStream<char>& stream);

  // The first entry for `uuid`, or null.
  const Entry* find(const utils::core::Uuid& uuid) const noexcept;

  // Stores `hash` in the first entry for `uuid` (appending one at the end
  // when there is none) and removes every later entry for it.
  void set(const utils::core::Uuid& uuid, std::string_view hash);

  // Removes every entry for `uuid`.
  void erase(const utils::core::Uuid& uuid);

  // Writes the entries to "<path>.<random UUID>", a file created there
  // exclusively (anything already at that name makes it fail) with the
  // attributes of the file that read() read, and moves that file over the
  // password file (see ReplacementTarget::replace), provided that the
  // password file is still the one read() read (or still missing). Without
  // a read() since the last write(), whatever file is there now is
  // replaced. On failure the temporary file is left behind and the password
  // file is untouched, unless the in-place copy of the replace failed,
  // which says so.
  void write();

  const std::filesystem::path& path() const noexcept { return path_; }
  // In file order. A deque, so that growing it never copies what it holds.
  const std::deque<Entry>& entries() const noexcept { return entries_; }

 private:
  // Drops every entry and the storage.
  void clear();
  // The file's rules, run by both passes on their reader (ExactReader.h,
  // SkimReader.h): replaces the entries with the file's members.
  template <typename Reader>
  void readEntries(Reader& reader);
  // Makes an entry whose name and value are copied into the storage.
  Entry makeEntry(std::string_view name, const utils::core::Uuid& uuid, std::string_view value);
  // Room for `size` bytes in the storage.
  char* allocate(std::size_t size);

  std::filesystem::path path_;
  mutable std::shared_ptr<const utils::io::ReplacementTarget> target_;
  // The file the last read() read: std::nullopt when it was missing.
  std::optional<utils::io::ReplacedFile> replaced_;
  bool hasRead_ = false;
  std::deque<Entry> entries_;
  // The storage of names and values: blocks that never move, filled in
  // turn, so that a file of a million entries is held in little more than
  // its own size (one heap string per name and value would double it).
  std::vector<std::unique_ptr<char[]>> blocks_;
  char* free_ = nullptr;
  std::size_t freeSize_ = 0;
};

}  // namespace korvane::setUserPassword
