#include "tests/support/PasswordFileReference.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>

#include "tests/utils/json/MemoryStreams.h"
#include "utils/json/decoder/Document.h"
#include "utils/json/encoder/Document.h"

namespace korvane::testing {

namespace {

bool isEntryOf(const PasswordMember& member, const utils::core::Uuid& uuid) {
  return member.uuid && *member.uuid == uuid;
}

std::optional<utils::core::Uuid> uuidOfName(std::string_view name) {
  const auto parsed = utils::core::Uuid::fromString(name);
  if (!parsed) return std::nullopt;
  return *parsed;
}

}  // namespace

PasswordMembers decodePasswordFile(std::string_view text, const std::filesystem::path& sourceName) {
  utils::json::test::MemoryInputStream stream{std::string(text)};
  utils::json::decoder::Document document(stream, sourceName);
  PasswordMembers members;
  for (utils::json::decoder::Member& member : document.readAsObject()) {
    PasswordMember decoded;
    decoded.name = member.name().view();
    member.value().asString().appendTo(decoded.value);
    decoded.uuid = uuidOfName(decoded.name);
    members.push_back(std::move(decoded));
  }
  document.finish();
  return members;
}

PasswordMembers readPasswordFile(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("could not open " + path.string());
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  if (file.bad()) throw std::runtime_error("could not read " + path.string());
  return decodePasswordFile(text, path);
}

PasswordMembers newPasswordFile() {
  return {{"$schema", std::string(setUserPassword::PasswordFile::schemaUrl()), std::nullopt}};
}

void applyPasswordChange(PasswordMembers& members, const setUserPassword::PasswordChange& change) {
  const auto ofTheUser = [&](const PasswordMember& member) {
    return isEntryOf(member, change.uuid);
  };
  if (!change.hash) {
    std::erase_if(members, ofTheUser);
    return;
  }
  const auto first = std::find_if(members.begin(), members.end(), ofTheUser);
  if (first == members.end()) {
    members.push_back(
        {std::string(change.uuid.toString().view()), std::string(*change.hash), change.uuid});
    return;
  }
  first->value = *change.hash;
  members.erase(std::remove_if(first + 1, members.end(), ofTheUser), members.end());
}

std::string encodePasswordFile(const PasswordMembers& members) {
  utils::json::test::MemoryOutputStream stream;
  {
    utils::json::encoder::Document document(std::ref<utils::io::OutputStream<char>>(stream),
                                            utils::json::encoder::Format::indented);
    utils::json::encoder::Object object = document.asObject();
    for (const PasswordMember& member : members) object.add(member.name, member.value);
  }
  return stream.text();
}

std::string rewrittenPasswordFile(const std::optional<std::string>& text,
                                  const setUserPassword::PasswordChange& change) {
  PasswordMembers members = text ? decodePasswordFile(*text) : newPasswordFile();
  applyPasswordChange(members, change);
  return encodePasswordFile(members);
}

PassOutcome referencePass(std::string_view text, const setUserPassword::PasswordChange* change) {
  try {
    PasswordMembers members = decodePasswordFile(text);
    if (change == nullptr) return {true, {}};
    applyPasswordChange(members, *change);
    return {true, encodePasswordFile(members)};
  } catch (const std::runtime_error& error) {
    return {false, error.what()};
  }
}

PassOutcome copyPass(utils::io::InputStream<char>& stream,
                     const setUserPassword::PasswordChange* change) {
  utils::json::test::MemoryOutputStream out;
  try {
    setUserPassword::PasswordFile::copy(stream, "passwords.json", change,
                                        change != nullptr ? &out : nullptr);
  } catch (const std::runtime_error& error) {
    return {false, error.what()};
  }
  return {true, out.text()};
}

PassOutcome copyPass(std::string_view text, const setUserPassword::PasswordChange* change,
                     std::size_t bufferSize) {
  utils::json::test::MemoryInputStream stream(std::string(text), bufferSize);
  return copyPass(stream, change);
}

std::string describePasswordMembers(const PasswordMembers& members) {
  std::string text;
  for (const PasswordMember& member : members) {
    text += member.name + "=" + member.value + "\n";
  }
  return text;
}

}  // namespace korvane::testing
