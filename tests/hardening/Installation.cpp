#include "tests/hardening/Installation.h"

#include <crypt.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "tests/support/PasswordFileReference.h"
#include "utils/core/Format.h"

namespace korvane::hardening {

std::filesystem::path programPath() { return KORVANE_PASSWORD_PROGRAM; }

Environment isolatedEnvironment() { return {{"XDG_CONFIG_DIRS", "/nonexistent-korvane-base"}}; }

Installation::Installation(int userCount) {
  std::string users = "{\n  \"users\": [\n";
  for (int i = 0; i < userCount; ++i) {
    users += utils::core::format("    {{\"userName\": \"{}\", \"UUID\": \"{}\"}}{}\n", userName(i),
                                 userUuid(i), i + 1 < userCount ? "," : "");
  }
  users += "  ]\n}\n";
  testing::writeFile(usersPath(), users);
}

std::string Installation::userName(int index) { return utils::core::format("user{:02}", index); }

std::string Installation::userUuid(int index) {
  return utils::core::format("{:08x}-1111-4222-8333-{:012x}",
                             0xa0000000u + static_cast<unsigned>(index),
                             static_cast<unsigned>(index) * 7919u);
}

std::string Installation::initialHash(int index) {
  return utils::core::format("$6$initialsalt{:03}${:0>86}", index, index);
}

void Installation::writePasswords(const std::vector<int>& withEntries, int extraMembers) {
  std::vector<std::string> members;
  members.push_back(
      utils::core::format("\"$schema\": \"{}\"", setUserPassword::PasswordFile::schemaUrl()));
  const std::size_t total = withEntries.size() + static_cast<std::size_t>(extraMembers);
  std::size_t user = 0;
  int extra = 0;
  for (std::size_t i = 0; i < total; ++i) {
    // Spread the users evenly between the other members.
    const bool takeUser = user < withEntries.size() &&
                          (extra >= extraMembers || i * withEntries.size() >= user * total);
    if (takeUser) {
      const int index = withEntries[user++];
      members.push_back(utils::core::format("\"{}\": \"{}\"", userUuid(index), initialHash(index)));
    } else {
      members.push_back(
          utils::core::format("\"member-{:05}\": \"kept value {} \\u00e9\\\"\"", extra, extra));
      ++extra;
    }
  }
  std::string text = "{";
  for (std::size_t i = 0; i < members.size(); ++i) {
    text += (i == 0 ? "\n  " : ",\n  ") + members[i];
  }
  text += "\n}\n";
  testing::writeFile(passwordsPath(), text);
}

std::vector<std::string> Installation::arguments(int user, bool remove) const {
  std::vector<std::string> result{"-Users", usersPath().string(), "-Passwords",
                                  passwordsPath().string()};
  if (remove) result.push_back("-Remove");
  result.push_back(userName(user));
  return result;
}

std::vector<Installation::Entry> Installation::readEntries() const {
  std::vector<Entry> entries;
  for (auto& member : testing::readPasswordFile(passwordsPath())) {
    entries.push_back({std::move(member.name), member.uuid.value_or(utils::core::Uuid()),
                       std::move(member.value)});
  }
  return entries;
}

std::vector<std::string> Installation::fileNames() const {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory())) {
    names.push_back(entry.path().filename().string());
  }
  std::sort(names.begin(), names.end());
  return names;
}

void Installation::removeLeftovers() const {
  for (const std::string& name : fileNames()) {
    if (name != "users.json" && name != "passwords.json") {
      std::filesystem::remove_all(directory() / name);
    }
  }
}

bool hashMatches(const std::string& hash, std::string_view password) {
  const auto data = std::make_unique<crypt_data>();
  const std::string key(password);
  const char* computed = ::crypt_r(key.c_str(), hash.c_str(), data.get());
  return computed != nullptr && hash == computed;
}

std::string checkNewPasswordFile(const std::filesystem::path& path, std::size_t entryCount,
                                 int user, std::string_view password) {
  testing::PasswordMembers members;
  try {
    members = testing::readPasswordFile(path);
  } catch (const std::exception& error) {
    return std::string("does not parse: ") + error.what();
  }
  if (members.size() != entryCount) return "wrong number of entries";
  for (const auto& member : members) {
    if (member.name == Installation::userUuid(user)) {
      return hashMatches(member.value, password) ? "" : "the new hash does not verify";
    }
  }
  return "the changed user's entry is missing";
}

}  // namespace korvane::hardening
