#include "setUserPassword/UserConfiguration.h"

#include <stdexcept>

#include "setUserPassword/UuidCounts.h"
#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/FileInputStream.h"
#include "utils/json/decoder/Document.h"

namespace korvane::setUserPassword {

namespace {

namespace decoder = utils::json::decoder;
using utils::core::Uuid;

class UserSearch {
 public:
  explicit UserSearch(std::string_view soughtName) : soughtName_(soughtName) {}

  void parseUser(decoder::Value& value) {
    int namesSeen = 0;
    int uuidsSeen = 0;
    bool matches = false;
    Uuid uuid;
    for (decoder::Member& member : value.asObject()) {
      if (member.name() == "UUID") {
        uuid = member.value().toUuid();
        ++uuidsSeen;
        uuidCounts_.add(uuid);
      } else if (member.name() == "userName") {
        ++namesSeen;
        // Compared as it streams by, so that an enormous name costs no memory.
        const bool equal = member.value().asString().equals(soughtName_);
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
    // Only the first match's UUID can be reported as a duplicate: a second
    // match is an error of its own, reported before the duplicate test.
    if (++matches_ == 1) uuidCounts_.choose(uuid);
    uuid_ = uuid;
  }

  Uuid result(const std::filesystem::path& path) {
    const std::string file = utils::filesystem::toPrintable(path);
    if (matches_ == 0) {
      throw std::runtime_error(utils::core::format("the user \"{}\" was not found in the file \"{}\"",
                                                   soughtName_, file));
    }
    if (matches_ > 1) {
      throw std::runtime_error(utils::core::format(
          "there is more than one user named \"{}\" in the file \"{}\"", soughtName_, file));
    }
    if (uuid_.isNull()) {
      throw std::runtime_error(
          utils::core::format("the UUID of user \"{}\" is {}", soughtName_, uuid_));
    }
    if (uuidCounts_.count() > 1) {
      throw std::runtime_error(utils::core::format(
          "there is more than one user with UUID {} in the file \"{}\"", uuid_, file));
    }
    return uuid_;
  }

 private:
  // `message` has one placeholder, for the name sought.
  // The location is that of the user object (the value keeps where it
  // started), only made when there is an error to report.
  [[noreturn]] void fail(const decoder::Value& user,
                         utils::core::FormatString<const std::string_view&> message) const {
    decoder::throwAtLocation(user.location(), utils::core::format(message, soughtName_));
  }

  std::string_view soughtName_;
  Uuid uuid_;
  std::size_t matches_ = 0;
  UuidCounts uuidCounts_;
};

}  // namespace

Uuid findUser(const std::filesystem::path& path, std::string_view userName) {
  utils::io::FileInputStream<char> stream(path);
  decoder::Document document(stream, path);
  UserSearch search(userName);
  for (decoder::Member& member : document.readAsObject()) {
    if (member.name() == "users") {
      for (decoder::Value& user : member.value().asArray()) search.parseUser(user);
    } else {
      member.value().skip();
    }
  }
  document.finish();
  return search.result(path);
}

}  // namespace korvane::setUserPassword
