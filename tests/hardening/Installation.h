// Installation: a throw-away Korvane installation for the hardening tests:
// a temporary directory with users.json (users "user00", "user01", …, with
// UUIDs derived from their numbers) and passwords.json, plus the command
// lines and environment that run the built program on them without ever
// looking at the machine's own configuration.
//
// Thread safety: one object, one thread.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SkipOrFail.h"

namespace korvane::hardening {

using Environment = std::map<std::string, std::optional<std::string>>;

// The built program under test.
std::filesystem::path programPath();

// An environment in which no standard location holds an installation.
Environment isolatedEnvironment();

// A password the strength policy accepts.
inline constexpr std::string_view strongPassword = "Vq7#tR2!mX9@kL4$wZ";

class Installation {
 public:
  explicit Installation(int userCount);

  const std::filesystem::path& directory() const noexcept { return directory_.path(); }
  std::filesystem::path usersPath() const { return directory() / "users.json"; }
  std::filesystem::path passwordsPath() const { return directory() / "passwords.json"; }

  static std::string userName(int index);
  static std::string userUuid(int index);

  // passwords.json: "$schema", an entry for each user in `withEntries`, and
  // `extraMembers` members that are no UUIDs, interleaved with them.
  void writePasswords(const std::vector<int>& withEntries, int extraMembers);
  // The value passwords.json holds for user `index` before any run.
  static std::string initialHash(int index);

  // Arguments that name both files explicitly.
  std::vector<std::string> arguments(int user, bool remove) const;

  // One entry of passwords.json, copied out of the reader.
  struct Entry {
    std::string name;
    utils::core::Uuid uuid;
    std::string value;
  };
  // Reads passwords.json with the exact decoder (the uuid is null for a
  // name that is no UUID); throws when it does not decode.
  std::vector<Entry> readEntries() const;

  // Every file in the directory, by name.
  std::vector<std::string> fileNames() const;
  // Removes every file but users.json and passwords.json.
  void removeLeftovers() const;

 private:
  testing::TemporaryDirectory directory_;
};

// Verifies a SHA-crypt hash string against a password with libcrypt.
bool hashMatches(const std::string& hash, std::string_view password);

// What is wrong with `path` as a complete new password file: it parses, has
// `entryCount` entries, and the hash of user `user` verifies against
// `password`. Empty when nothing is.
std::string checkNewPasswordFile(const std::filesystem::path& path, std::size_t entryCount,
                                 int user, std::string_view password);

}  // namespace korvane::hardening
