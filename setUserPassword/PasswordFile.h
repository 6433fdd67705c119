// PasswordFile: the password file (passwords.json), read and rewritten as a
// stream. One JSON object whose members all have string values:
// "$schema", one member per user (the UUID's text → the SHA-crypt hash
// string), and any other member, which is kept as it stands.
//
// Nothing of the file is held: check() reads it through and keeps
// nothing; rewrite() reads it again, member by member, and writes each
// member to the temporary file as it goes, applying the one change on the
// way, through fixed buffers. So a file of any size, a value of any length
// included, costs the same little memory. Every member survives with its
// name, value and place; only the entries of the user being changed are
// touched. The file on disk is never edited: rewrite() replaces it with a
// complete new version.
//
// Each read is one pass of the streaming decoder
// (utils/json/decoder/Document.h), which locates every error. Names and
// values read without an escape sequence are copied as they stand; only
// decoded escapes are escaped again on the way out.
//
// Thread safety: one object, one thread.
#pragma once

#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>

#include "utils/core/Uuid.h"
#include "utils/io/InputStream.h"
#include "utils/io/OutputStream.h"
#include "utils/io/ReplacementTarget.h"

namespace korvane::setUserPassword {

// The one change a run makes to the file.
struct PasswordChange {
  utils::core::Uuid uuid;
  // The new hash, stored in the first entry for `uuid` (one is appended at
  // the end when there is none) while every later entry for it is dropped;
  // std::nullopt removes every entry for `uuid`.
  std::optional<std::string_view> hash;
};

class PasswordFile {
 public:
  // The value of the "$schema" member of a new file.
  static std::string_view schemaUrl() noexcept;

  explicit PasswordFile(std::filesystem::path path) : path_(std::move(path)) {}

  // The file on disk, its path resolved on first use and never again (see
  // utils/io/ReplacementTarget.h): check() and rewrite() read what that
  // resolution found. Throws what resolving throws; a link that is not
  // followed says to name the real file with -Passwords.
  const utils::io::ReplacementTarget& target() const;

  // Reads the whole file and checks it, keeping nothing. A missing file is
  // a new one and passes; anything but a regular file at the name is an
  // error, and nothing is read from it; every other failure throws, an
  // error in the text with its line and column.
  void check() const;

  // Applies `change` to the file now at the name: reads it (a missing file
  // reads as one that holds only "$schema"), writes the result to
  // "<path>.<random UUID>", created exclusively (anything already at that
  // name makes it fail) with the attributes of the file read, and moves
  // that over the password file (see ReplacementTarget::replace) provided
  // that the name still refers to the file read (or still to nothing).
  // The file is read once and the temporary file written once, together;
  // yet errors come in the order of a file read whole first: an error in
  // the text (thrown as check() throws it) before a failure to create or
  // write the temporary file. Such a failure stops the writing, not the
  // reading: the rest of the text is still checked. An error in the text
  // removes the temporary file. A failure to write it or to move it leaves
  // it behind and the password file untouched, unless the in-place copy of
  // the replace failed, which says so.
  // REQUIRES: the caller holds the folder's ReplacementLock.
  void rewrite(const PasswordChange& change) const;

  // The pass behind check() and rewrite(), over any text, named `path` in
  // errors with their line and column. With `change` and `out`, the new
  // file is written to `out` as the text is read; without them the text is
  // only checked. A failure to write to `out` ends the writing: the text is
  // still read to its end, an error in it is thrown first, and otherwise
  // the write failure is thrown at the end (a failure to write the closing
  // brace is kept by `out` for its flush()). The input's exceptions pass
  // through.
  static void copy(utils::io::InputStream<char>& stream, const std::filesystem::path& path,
                   const PasswordChange* change = nullptr,
                   utils::io::OutputStream<char>* out = nullptr);
  // What rewrite() writes for a missing file.
  static void writeNewFile(const PasswordChange& change, utils::io::OutputStream<char>& out);

  const std::filesystem::path& path() const noexcept { return path_; }

 private:
  std::filesystem::path path_;
  mutable std::shared_ptr<const utils::io::ReplacementTarget> target_;
};

}  // namespace korvane::setUserPassword
