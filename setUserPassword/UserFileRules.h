// The rules of the user configuration file (users.json), written once for
// both passes of the search (see UserConfiguration.h): run on an
// ExactReader (ExactReader.h) they locate every error; on a SkimReader
// (SkimReader.h) they give up wherever the exact pass would fail.
//
//   { "users": [ { "userName": "alice", "UUID": "…", … }, … ], … }
//
// Every UUID of every user object is counted into the tally and each user
// whose name matches is recorded with its UUID; a matched user with
// several names, no UUID or several UUIDs is an error, located at its
// object. Members not named here are skipped, whatever they hold.
//
// Thread safety: as the reader's.
#pragma once

#include <string>

#include "setUserPassword/UserTally.h"
#include "utils/core/Format.h"
#include "utils/core/Uuid.h"
#include "utils/string/PrintableText.h"

namespace korvane::setUserPassword {

// One user object.
template <typename Reader>
void readUser(Reader& reader, typename Reader::Value& user, UserTally& tally) {
  int namesSeen = 0;
  int uuidsSeen = 0;
  bool matches = false;
  utils::core::Uuid uuid;
  reader.forEachMember(user, [&](std::string_view name, typename Reader::Value& value) {
    if (name == "UUID") {
      uuid = reader.readUuid(value);
      ++uuidsSeen;
      tally.countUuid(uuid);
    } else if (name == "userName") {
      ++namesSeen;
      const bool equal = reader.stringEquals(value, tally.soughtName());
      matches = matches || equal;
    } else {
      reader.skip(value);
    }
  });
  if (!matches) return;
  // `message` has one placeholder, for the name sought, shown escaped.
  const auto fail = [&](utils::core::FormatString<const std::string&> message) {
    const std::string soughtName = utils::string::toPrintableText(tally.soughtName());
    reader.fail(user, utils::core::format(message, soughtName));
  };
  if (namesSeen > 1) fail("multiple user names specified for user \"{}\"");
  if (uuidsSeen == 0) fail("missing user UUID in the configuration of user \"{}\"");
  if (uuidsSeen > 1) fail("multiple UUIDs specified for user \"{}\"");
  tally.recordMatch(uuid);
}

// The whole file, to its end.
template <typename Reader>
void readUserFile(Reader& reader, UserTally& tally) {
  reader.readDocument([&](std::string_view name, typename Reader::Value& value) {
    if (name == "users") {
      reader.forEachElement(value,
                            [&](typename Reader::Value& user) { readUser(reader, user, tally); });
    } else {
      reader.skip(value);
    }
  });
}

}  // namespace korvane::setUserPassword
