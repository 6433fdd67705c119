// The user configuration file (users.json): maps user names to UUIDs. The
// tool only reads it, in one pass with the streaming decoder
// (utils/json/decoder/Document.h); values it does not need are skipped,
// not built.
//
//   { "users": [ { "userName": "alice", "UUID": "…", … }, … ], … }
//
// Every UUID of every user object is counted into the tally (UserTally.h)
// and each user whose name matches is recorded with its UUID; a matched
// user with several names, no UUID or several UUIDs is an error, located at
// its object. Members not named here are skipped, whatever they hold. The
// whole file is read, so that an error anywhere in it is reported with its
// line and column, before the tally gives the search's outcome. A large
// file's second half is searched at the same time on a worker, whose
// outcome is taken only where it equals what this pass would find (see
// SecondHalfSearch.h).
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

#include "setUserPassword/SecondHalfSearch.h"
#include "setUserPassword/UserTally.h"
#include "utils/core/Uuid.h"
#include "utils/io/InputStream.h"

namespace korvane::setUserPassword {

// The UUID of the one user named `userName` (compared byte for byte).
// Throws when the file cannot be read or is malformed, when no user or more
// than one user has the name, when the matched user has no UUID, several
// names or UUIDs, the null UUID, or a UUID that another user has too.
utils::core::Uuid findUser(const std::filesystem::path& path, std::string_view userName);

// The tally of the whole text of `stream`, named `path` in messages, or the
// decoder's located error (or one of the matched user's errors, located at
// its object). With `secondHalf`, the search of the text from its boundary
// on, whose outcome is taken there when it can be (see SecondHalfSearch.h);
// when it is dropped instead, `readingOn` is called once before the pass
// reads on.
UserTally readUsers(utils::io::InputStream<char>& stream, const std::filesystem::path& path,
                    std::string_view userName, SecondHalfSearch* secondHalf = nullptr,
                    const std::function<void()>& readingOn = {});

}  // namespace korvane::setUserPassword
