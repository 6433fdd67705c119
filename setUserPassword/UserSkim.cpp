#include "setUserPassword/UserSkim.h"

#include "setUserPassword/SkimReader.h"
#include "setUserPassword/UserFileRules.h"

namespace korvane::setUserPassword {

std::optional<UserTally> UserSkim::run(const utils::json::decoder::Skimmer::Reader& reader,
                                       std::string_view userName, std::size_t window) {
  std::optional<UserTally> tally(std::in_place, userName);
  utils::json::decoder::Skimmer skimmer(reader, window);
  SkimReader skim(skimmer);
  if (!skimmer.attempt([&] { readUserFile(skim, *tally); })) tally.reset();
  return tally;
}

}  // namespace korvane::setUserPassword
