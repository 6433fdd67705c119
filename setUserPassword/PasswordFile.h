// PasswordFile: the password file (passwords.json) in memory. One JSON
// object whose members all have string values: "$schema", one member per
// user (the UUID's text → the SHA-crypt hash string), and any other member,
// which is kept as it stands.
//
// Every member survives a rewrite with its name, value and place; only the
// entries of the user being changed are touched. The file on disk is never
// edited: write() replaces it with a complete new version.
//
// Thread safety: one object, one thread.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

class PasswordFile {
 public:
  struct Entry {
    std::string name;        // as read, or the UUID's text for an added entry
    utils::core::Uuid uuid;  // parsed from the name; null when it is no UUID
    std::string value;
  };

  // The value of the "$schema" member of a new file.
  static std::string_view schemaUrl() noexcept;

  explicit PasswordFile(std::filesystem::path path) : path_(std::move(path)) {}

  // Fills the entries from the file, replacing any held. A missing file
  // reads as a new one that holds only "$schema"; every other failure throws.
  void read();

  // The first entry for `uuid`, or null.
  const Entry* find(const utils::core::Uuid& uuid) const noexcept;

  // Stores `hash` in the first entry for `uuid` (appending one at the end
  // when there is none) and removes every later entry for it.
  void set(const utils::core::Uuid& uuid, std::string hash);

  // Removes every entry for `uuid`.
  void erase(const utils::core::Uuid& uuid);

  // Writes the entries to "<path>.<random UUID>", a file created there
  // exclusively (anything already at that name makes it fail), and moves
  // that file over the password file (see replaceFile). On failure the
  // temporary file is left behind and the password file is untouched,
  // unless the in-place copy of replaceFile failed, which says so.
  void write() const;

  const std::filesystem::path& path() const noexcept { return path_; }
  const std::vector<Entry>& entries() const noexcept { return entries_; }

 private:
  std::filesystem::path path_;
  std::vector<Entry> entries_;
};

}  // namespace korvane::setUserPassword
