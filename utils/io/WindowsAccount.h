// isTrustedAccount: whether a Windows account may be trusted with what the
// program writes, because it could write it anyway: SYSTEM, the
// Administrators group or the account running the program. Windows only.
//
// Thread safety: reentrant.
#pragma once

#include <windows.h>

namespace korvane::utils::io {

bool isTrustedAccount(PSID sid);

}  // namespace korvane::utils::io
