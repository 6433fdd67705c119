// The user configuration file (users.json): maps user names to UUIDs. The
// tool only reads it; values it does not need are skipped, not built.
//
//   { "users": [ { "userName": "alice", "UUID": "…", … }, … ], … }
//
// The search makes up to two passes over the file (see TwoPassRead.h). The
// first, UserSkim (UserSkim.h), runs over the raw bytes without keeping
// lines and columns and settles the common case: a well-formed file. Where
// it gives up (an error, or something outside what it handles), the exact
// pass, readUsers, walks the file again from the start with the streaming
// decoder, which locates every error. A file that cannot be read twice (a
// FIFO, a device) gets the exact pass alone. Both run the same rules
// (UserFileRules.h) into the same tally, and so end in the same outcome.
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <string_view>

#include "setUserPassword/SearchPass.h"
#include "setUserPassword/UserTally.h"
#include "utils/core/Uuid.h"
#include "utils/io/InputStream.h"

namespace korvane::setUserPassword {

// The UUID of the one user named `userName` (compared byte for byte).
// Throws when the file cannot be read or is malformed, when no user or more
// than one user has the name, when the matched user has no UUID, several
// names or UUIDs, the null UUID, or a UUID that another user has too.
// When the file could be read, *settledBy (if given) tells which pass
// settled the search, for tests.
utils::core::Uuid findUser(const std::filesystem::path& path, std::string_view userName,
                           SearchPass* settledBy = nullptr);

// The exact pass over `stream`, named `path` in messages: the tally of the
// whole text, or the decoder's located error (or one of the matched user's
// errors, located at its object).
UserTally readUsers(utils::io::InputStream<char>& stream, const std::filesystem::path& path,
                    std::string_view userName);

}  // namespace korvane::setUserPassword
