// UserSkim: the fast first pass of the user search. It runs the file's
// rules (UserFileRules.h, the same as the exact pass's) on a SkimReader
// over the Skimmer (utils/json/decoder/Skimmer.h), which keeps no line or
// column, and either settles the search (the tally of the whole file) or
// gives up.
//
// It gives up on anything the exact pass (readUsers in UserConfiguration.h)
// would report as an error, and on anything outside its subset: a member
// name of the top-level object or of a user object, a user name or a UUID
// that holds an escape. So when it settles the search, the exact pass
// would have read the whole file without an error and ended with the same
// tally.
//
// Thread safety: reentrant.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "setUserPassword/UserTally.h"
#include "utils/json/decoder/Skimmer.h"

namespace korvane::setUserPassword {

class UserSkim {
 public:
  // The tally of the text that `reader` gives, or nothing when the skim
  // gave up (its memory is then released). `window` is the Skimmer's. The
  // reader's exceptions pass through: a read failure is the search's
  // outcome in either pass.
  static std::optional<UserTally> run(
      const utils::json::decoder::Skimmer::Reader& reader, std::string_view userName,
      std::size_t window = utils::json::decoder::Skimmer::defaultWindow);
};

}  // namespace korvane::setUserPassword
