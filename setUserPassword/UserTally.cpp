#include "setUserPassword/UserTally.h"

#include <stdexcept>
#include <string>

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/string/PrintableText.h"

namespace korvane::setUserPassword {

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
