// SearchPass: which of the two passes over a configuration file settled a
// read of it: the fast skim over the raw bytes, or the exact decoder walk
// that locates every error (see UserConfiguration.h and PasswordFile.h).
// Reported for tests, which check that ordinary files never need the
// second pass.
#pragma once

namespace korvane::setUserPassword {

enum class SearchPass : int { skim, exact };

}  // namespace korvane::setUserPassword
