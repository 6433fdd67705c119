// UserTally: what a pass over the user configuration file found out about
// the user sought, and the one place that turns it into the search's
// outcome. The search (see UserConfiguration.h) feeds one as it reads the
// file.
//
// Every UUID of every user object is counted (countUuid), each user whose
// name matches is recorded with its UUID (recordMatch); result() then
// reports, in this order: no match, more than one match, the null UUID,
// and a UUID that more than one user has.
//
// Thread safety: one object, one thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string_view>

#include "setUserPassword/UuidCounts.h"
#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

class UserTally {
 public:
  // REQUIRES: `soughtName` outlives the tally.
  explicit UserTally(std::string_view soughtName) : soughtName_(soughtName) {}

  std::string_view soughtName() const noexcept { return soughtName_; }

  // One UUID member of a user object, matched or not.
  void countUuid(utils::core::Uuid uuid) { uuidCounts_.add(uuid); }

  // A user object whose name is the one sought, with its one UUID (already
  // counted).
  void recordMatch(const utils::core::Uuid& uuid) {
    // Only the first match's UUID can be reported as a duplicate: a second
    // match is an error of its own, reported before the duplicate test.
    if (++matches_ == 1) uuidCounts_.choose(uuid);
    uuid_ = uuid;
  }

  // Adds what a search of the rest of the file found, as if this tally
  // had gone on through it: `matches` users matched there, the first with
  // the UUID `firstMatch`, the last with `lastMatch`; `occurrences(uuid)`
  // tells how often `uuid` occurs there, or nothing when it cannot tell
  // exactly. Returns false, leaving the tally as it was, when the outcome
  // needs an occurrence count that `occurrences` cannot tell.
  bool addRest(
      std::size_t matches, const utils::core::Uuid& firstMatch, const utils::core::Uuid& lastMatch,
      const std::function<std::optional<std::uint64_t>(const utils::core::Uuid&)>& occurrences);

  // The UUID of the one matched user; throws std::runtime_error for the
  // outcomes above, naming `path` where they name the file.
  utils::core::Uuid result(const std::filesystem::path& path) const;

 private:
  std::string_view soughtName_;
  utils::core::Uuid uuid_;
  std::size_t matches_ = 0;
  UuidCounts uuidCounts_;
};

}  // namespace korvane::setUserPassword
