#include "setUserPassword/UserSkim.h"

#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

namespace {

using utils::core::Uuid;
using utils::json::decoder::SkimmedString;
using utils::json::decoder::Skimmer;

// A member name the exact pass would compare as it stands: no escape.
std::string_view plainName(const SkimmedString& name) {
  if (name.escaped) Skimmer::giveUp();
  return name.raw;
}

// A string value taken as it stands: no escape.
std::string_view plainString(const SkimmedString& text) {
  if (text.escaped) Skimmer::giveUp();
  return text.raw;
}

void skimUser(Skimmer& skimmer, UserTally& tally) {
  skimmer.openObject();
  int namesSeen = 0;
  int uuidsSeen = 0;
  bool matches = false;
  Uuid uuid;
  bool started = false;
  SkimmedString name;
  while (skimmer.nextMember(started, name)) {
    const std::string_view member = plainName(name);
    if (member == "UUID") {
      const auto parsed = Uuid::fromString(plainString(skimmer.readString()));
      if (!parsed) Skimmer::giveUp();
      uuid = *parsed;
      ++uuidsSeen;
      tally.countUuid(uuid);
    } else if (member == "userName") {
      ++namesSeen;
      const bool equal = plainString(skimmer.readString()) == tally.soughtName();
      matches = matches || equal;
    } else {
      skimmer.skipValue();
    }
  }
  if (!matches) return;
  if (namesSeen > 1 || uuidsSeen != 1) Skimmer::giveUp();
  tally.recordMatch(uuid);
}

void skimDocument(Skimmer& skimmer, UserTally& tally) {
  skimmer.startDocument();
  skimmer.openObject();
  bool started = false;
  SkimmedString name;
  while (skimmer.nextMember(started, name)) {
    if (plainName(name) == "users") {
      skimmer.openArray();
      bool usersStarted = false;
      while (skimmer.nextElement(usersStarted)) skimUser(skimmer, tally);
    } else {
      skimmer.skipValue();
    }
  }
  skimmer.finish();
}

}  // namespace

std::optional<UserTally> UserSkim::run(const Skimmer::Reader& reader, std::string_view userName,
                                       std::size_t window) {
  std::optional<UserTally> tally(std::in_place, userName);
  Skimmer skimmer(reader, window);
  if (!skimmer.attempt([&] { skimDocument(skimmer, *tally); })) tally.reset();
  return tally;
}

}  // namespace korvane::setUserPassword
