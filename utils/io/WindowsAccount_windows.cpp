#include <memory>

#include "utils/io/WindowsAccount.h"
#include "utils/io/WindowsHandle.h"

namespace korvane::utils::io {

bool isTrustedAccount(PSID sid) {
  if (::IsWellKnownSid(sid, WinLocalSystemSid) ||
      ::IsWellKnownSid(sid, WinBuiltinAdministratorsSid)) {
    return true;
  }
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  const WindowsHandle owned(token);
  DWORD size = 0;
  ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  if (size == 0) return false;
  auto buffer = std::make_unique<unsigned char[]>(size);
  if (!::GetTokenInformation(token, TokenUser, buffer.get(), size, &size)) return false;
  return ::EqualSid(sid, reinterpret_cast<TOKEN_USER*>(buffer.get())->User.Sid) != 0;
}

}  // namespace korvane::utils::io
