// PasswordFileReference: what the password file's rewrite must produce,
// computed the plain way, for the tests to compare the streamed passes
// (setUserPassword/PasswordFile.h) with: the whole text decoded by the
// exact JSON decoder into a list of members held in memory, the change
// applied to the list, and the list encoded again.
//
// Thread safety: free functions over their arguments only.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "utils/core/Uuid.h"
#include "utils/io/InputStream.h"

namespace korvane::testing {

// One member of a password file, decoded.
struct PasswordMember {
  std::string name;
  std::string value;
  // Parsed from the name; std::nullopt when the name is no UUID.
  std::optional<utils::core::Uuid> uuid;

  friend bool operator==(const PasswordMember&, const PasswordMember&) = default;
};

using PasswordMembers = std::vector<PasswordMember>;

// The members of `text`, in order. Throws the decoder's error, which names
// `sourceName`, where the text is no object whose members all have string
// values.
PasswordMembers decodePasswordFile(std::string_view text,
                                   const std::filesystem::path& sourceName = "passwords.json");

// The members of the file at `path`; throws when it cannot be read or
// decoded.
PasswordMembers readPasswordFile(const std::filesystem::path& path);

// The members a missing password file stands for: "$schema" alone.
PasswordMembers newPasswordFile();

// Applies `change` to `members`: a new hash replaces the value of the first
// member whose name is the change's UUID (any spelling), keeping its name
// and place, and every later one is dropped; without such a member, one
// named by the UUID's text is appended. A removal drops every such member.
void applyPasswordChange(PasswordMembers& members, const setUserPassword::PasswordChange& change);

// The text of `members`, indented, as the tool writes files.
std::string encodePasswordFile(const PasswordMembers& members);

// The text a rewrite writes for `change` over `text` (std::nullopt: a
// missing file); throws as decodePasswordFile() does.
std::string rewrittenPasswordFile(const std::optional<std::string>& text,
                                  const setUserPassword::PasswordChange& change);

// What a pass over a text made of it: whether it accepted the text, and
// then what it wrote (empty when it only checked), else the error's
// message.
struct PassOutcome {
  bool accepted = false;
  std::string text;

  friend bool operator==(const PassOutcome&, const PassOutcome&) = default;
};

// The reference over `text`: the rewritten file for `change`, or with no
// change only the check; the text is named "passwords.json" in errors.
PassOutcome referencePass(std::string_view text,
                          const setUserPassword::PasswordChange* change = nullptr);

// PasswordFile::copy over `stream` (named "passwords.json"), with `change`
// into memory, or without it only checking.
PassOutcome copyPass(utils::io::InputStream<char>& stream,
                     const setUserPassword::PasswordChange* change = nullptr);
// The same over `text`, read through a buffer of `bufferSize` bytes.
PassOutcome copyPass(std::string_view text, const setUserPassword::PasswordChange* change = nullptr,
                     std::size_t bufferSize = utils::io::InputStream<char>::defaultBufferSize);

// "name=value" for each member, one a line, for readable failure messages.
std::string describePasswordMembers(const PasswordMembers& members);

}  // namespace korvane::testing
