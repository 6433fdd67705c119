#include "setUserPassword/UserTally.h"

#include <stdexcept>
#include <string>

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/string/PrintableText.h"

namespace korvane::setUserPassword {

bool UserTally::addRest(
    std::size_t matches, const utils::core::Uuid& firstMatch, const utils::core::Uuid& lastMatch,
    const std::function<std::optional<std::uint64_t>(const utils::core::Uuid&)>& occurrences) {
  const std::size_t total = matches_ + matches;
  // Only a single match's UUID is ever counted: no match and several
  // matches are reported before any duplicate.
  if (total == 1) {
    const utils::core::Uuid chosen = matches_ == 1 ? uuid_ : firstMatch;
    const std::optional<std::uint64_t> more = occurrences(chosen);
    if (!more) return false;
    if (matches_ == 0) uuidCounts_.choose(chosen);
    uuidCounts_.addChosen(*more);
  }
  if (matches > 0) uuid_ = lastMatch;
  matches_ = total;
  return true;
}

utils::core::Uuid UserTally::result(const std::filesystem::path& path) const {
  const std::string file = utils::filesystem::toPrintable(path);
  // The name is the one given on the command line, whatever it holds.
  const std::string user = utils::string::toPrintableText(soughtName_);
  if (matches_ == 0) {
    throw std::runtime_error(
        utils::core::format("the user \"{}\" was not found in the file \"{}\"", user, file));
  }
  if (matches_ > 1) {
    throw std::runtime_error(utils::core::format(
        "there is more than one user named \"{}\" in the file \"{}\"", user, file));
  }
  if (uuid_.isNull()) {
    throw std::runtime_error(utils::core::format("the UUID of user \"{}\" is {}", user, uuid_));
  }
  if (uuidCounts_.count() > 1) {
    throw std::runtime_error(utils::core::format(
        "there is more than one user with UUID {} in the file \"{}\"", uuid_, file));
  }
  return uuid_;
}

}  // namespace korvane::setUserPassword
