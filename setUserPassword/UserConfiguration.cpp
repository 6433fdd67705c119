#include "setUserPassword/UserConfiguration.h"

#include <optional>
#include <span>
#include <utility>

#include "setUserPassword/UserSkim.h"
#include "utils/core/Format.h"
#include "utils/io/File.h"
#include "utils/io/FileInputStream.h"
#include "utils/json/decoder/Document.h"

namespace korvane::setUserPassword {

namespace {

namespace decoder = utils::json::decoder;
using utils::core::Uuid;

class UserSearch {
 public:
  explicit UserSearch(UserTally& tally) : tally_(tally) {}

  void parseUser(decoder::Value& value) {
    int namesSeen = 0;
    int uuidsSeen = 0;
    bool matches = false;
    Uuid uuid;
    for (decoder::Member& member : value.asObject()) {
      if (member.name() == "UUID") {
        uuid = member.value().toUuid();
        ++uuidsSeen;
        tally_.countUuid(uuid);
      } else if (member.name() == "userName") {
        ++namesSeen;
        // Compared as it streams by, so that an enormous name costs no memory.
        const bool equal = member.value().asString().equals(tally_.soughtName());
        matches = matches || equal;
      } else {
        member.value().skip();
      }
    }
    if (!matches) return;
    if (namesSeen > 1) {
      fail(value, "multiple user names specified for user \"{}\"");
    }
    if (uuidsSeen == 0) fail(value, "missing user UUID in the configuration of user \"{}\"");
    if (uuidsSeen > 1) fail(value, "multiple UUIDs specified for user \"{}\"");
    tally_.recordMatch(uuid);
  }

 private:
  // `message` has one placeholder, for the name sought.
  // The location is that of the user object (the value keeps where it
  // started), only made when there is an error to report.
  [[noreturn]] void fail(const decoder::Value& user,
                         utils::core::FormatString<const std::string_view&> message) const {
    const std::string_view soughtName = tally_.soughtName();
    decoder::throwAtLocation(user.location(), utils::core::format(message, soughtName));
  }

  UserTally& tally_;
};

}  // namespace

UserTally readUsers(utils::io::InputStream<char>& stream, const std::filesystem::path& path,
                    std::string_view userName) {
  decoder::Document document(stream, path);
  UserTally tally(userName);
  UserSearch search(tally);
  for (decoder::Member& member : document.readAsObject()) {
    if (member.name() == "users") {
      for (decoder::Value& user : member.value().asArray()) search.parseUser(user);
    } else {
      member.value().skip();
    }
  }
  document.finish();
  return tally;
}

Uuid findUser(const std::filesystem::path& path, std::string_view userName, SearchPass* settledBy) {
  utils::io::File file(path, utils::io::File::Access::read);
  std::optional<UserTally> tally;
  if (file.isRegularFile()) {
    tally = UserSkim::run([&file](std::span<char> into) { return file.read(into); }, userName);
    if (!tally) file.rewind();
  }
  SearchPass pass = SearchPass::skim;
  if (!tally) {
    utils::io::FileInputStream<char> stream(std::move(file));
    tally.emplace(readUsers(stream, path, userName));
    pass = SearchPass::exact;
  }
  if (settledBy != nullptr) *settledBy = pass;
  return tally->result(path);
}

}  // namespace korvane::setUserPassword
