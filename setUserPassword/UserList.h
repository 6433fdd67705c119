// UserList: how the user configuration file's user objects are read into
// a tally, shared by the pass over the whole file (UserConfiguration.h)
// and the search of its second half on a worker (SecondHalfSearch.h), so
// that both read alike by construction.
//
// A Tally provides soughtName(), countUuid(uuid) and recordMatch(uuid), as
// UserTally does.
//
// Thread safety: reentrant.
#pragma once

#include <string>

#include "utils/core/Format.h"
#include "utils/core/Uuid.h"
#include "utils/json/decoder/Document.h"
#include "utils/string/PrintableText.h"

namespace korvane::setUserPassword::userList {

namespace decoder = utils::json::decoder;

// One user object: its UUIDs counted, and recorded with its UUID when its
// name matches. A matched user with several names, no UUID or several
// UUIDs is an error, located at its object.
template <typename Tally>
void readUser(decoder::Value& user, Tally& tally) {
  int namesSeen = 0;
  int uuidsSeen = 0;
  bool matches = false;
  utils::core::Uuid uuid;
  for (decoder::Member& member : user.asObject()) {
    if (member.name() == "UUID") {
      uuid = member.value().toUuid();
      ++uuidsSeen;
      tally.countUuid(uuid);
    } else if (member.name() == "userName") {
      ++namesSeen;
      const bool equal = member.value().stringEquals(tally.soughtName());
      matches = matches || equal;
    } else {
      member.value().skip();
    }
  }
  if (!matches) return;
  // `message` has one placeholder, for the name sought, shown escaped.
  const auto fail = [&](utils::core::FormatString<const std::string&> message) {
    const std::string soughtName = utils::string::toPrintableText(tally.soughtName());
    decoder::throwAtLocation(user.location(), utils::core::format(message, soughtName));
  };
  if (namesSeen > 1) fail("multiple user names specified for user \"{}\"");
  if (uuidsSeen == 0) fail("missing user UUID in the configuration of user \"{}\"");
  if (uuidsSeen > 1) fail("multiple UUIDs specified for user \"{}\"");
  tally.recordMatch(uuid);
}

// The rest of an array of user objects. `afterUser()` runs after each
// one; when it returns true, reading stops there and this returns true.
template <typename Tally, typename AfterUser>
bool readArray(decoder::Array& users, Tally& tally, AfterUser&& afterUser) {
  for (decoder::Value& user : users) {
    readUser(user, tally);
    if (afterUser()) return true;
  }
  return false;
}

// The rest of the top-level object: the user objects of each member named
// "users" (an array), every other member skipped. Stops and returns true
// where `afterUser()` does.
template <typename Tally, typename AfterUser>
bool readMembers(decoder::Object& object, Tally& tally, AfterUser&& afterUser) {
  for (decoder::Member& member : object) {
    if (!(member.name() == "users")) {
      member.value().skip();
      continue;
    }
    decoder::Array users = member.value().asArray();
    if (readArray(users, tally, afterUser)) return true;
  }
  return false;
}

}  // namespace korvane::setUserPassword::userList
