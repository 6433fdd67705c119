// The user configuration file (users.json): maps user names to UUIDs. The
// tool only reads it, in one forward pass with the streaming decoder;
// values it does not need are skipped, not built.
//
//   { "users": [ { "userName": "alice", "UUID": "…", … }, … ], … }
//
// Thread safety: reentrant.
#pragma once

#include <filesystem>
#include <string_view>

#include "utils/core/Uuid.h"

namespace korvane::setUserPassword {

// The UUID of the one user named `userName` (compared byte for byte).
// Throws when the file cannot be read or is malformed, when no user or more
// than one user has the name, when the matched user has no UUID, several
// names or UUIDs, the null UUID, or a UUID that another user has too.
utils::core::Uuid findUser(const std::filesystem::path& path, std::string_view userName);

}  // namespace korvane::setUserPassword
