#include <windows.h>

#include <cwctype>
#include <string>
#include <system_error>

#include "utils/io/ReplacementLock.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

// Mutex names may not contain "\", and file names compare without case:
// the name is a hash of the absolute, lower-cased path.
std::wstring mutexName(const std::filesystem::path& file, const wchar_t* scope) {
  std::wstring path = std::filesystem::absolute(file).lexically_normal().wstring();
  for (wchar_t& c : path) c = static_cast<wchar_t>(std::towlower(c));
  std::uint64_t hash = 14695981039346656037ULL;  // FNV-1a
  for (const wchar_t c : path) {
    hash ^= static_cast<std::uint64_t>(c);
    hash *= 1099511628211ULL;
  }
  wchar_t digits[17];
  for (int i = 15; i >= 0; --i, hash >>= 4) digits[i] = L"0123456789abcdef"[hash & 0xF];
  digits[16] = L'\0';
  return std::wstring(scope) + L"KorvanePasswordFile-" + digits;
}

}  // namespace

ReplacementLock::ReplacementLock(const ReplacementTarget& target) : handle_(0) {
  const std::filesystem::path& file = target.path();
  // Global names reach every session (two administrators on one server);
  // without the right to create them, the session's own namespace serves.
  HANDLE mutex = ::CreateMutexW(nullptr, FALSE, mutexName(file, L"Global\\").c_str());
  if (mutex == nullptr) mutex = ::CreateMutexW(nullptr, FALSE, mutexName(file, L"Local\\").c_str());
  if (mutex == nullptr) throwFileError("lock", file, lastSystemError());
  const auto wait = std::chrono::duration_cast<std::chrono::milliseconds>(longestWait);
  const DWORD waited = ::WaitForSingleObject(mutex, static_cast<DWORD>(wait.count()));
  if (waited == WAIT_TIMEOUT) {
    ::CloseHandle(mutex);
    detail::throwLockHeld(target.directoryPath());
  }
  // WAIT_ABANDONED: the previous holder died; the lock is ours all the same.
  if (waited != WAIT_OBJECT_0 && waited != WAIT_ABANDONED) {
    const std::error_code error = lastSystemError();
    ::CloseHandle(mutex);
    throwFileError("lock", file, error);
  }
  handle_ = reinterpret_cast<std::intptr_t>(mutex);
}

ReplacementLock::~ReplacementLock() {
  if (handle_ == 0) return;
  const HANDLE mutex = reinterpret_cast<HANDLE>(handle_);
  ::ReleaseMutex(mutex);
  ::CloseHandle(mutex);
}

}  // namespace korvane::utils::io
