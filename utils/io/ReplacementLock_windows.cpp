#include <windows.h>
// After windows.h, which the security headers need.
#include <aclapi.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "utils/io/ReplacementLock.h"
#include "utils/io/SystemError.h"
#include "utils/io/WindowsHandle.h"

namespace korvane::utils::io {

namespace {

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// The locked range: one byte far beyond the end of any real file, so that
// the lock blocks no reader and no writer of the file's content.
constexpr DWORD lockOffsetLow = 0;
constexpr DWORD lockOffsetHigh = 0xFFFFFFFF;

constexpr auto firstPause = std::chrono::milliseconds(5);
constexpr auto longestPause = std::chrono::milliseconds(250);

// Takes the lock on the open `handle` without waiting; false when another
// handle holds it.
bool tryLock(HANDLE handle, const std::filesystem::path& path) {
  OVERLAPPED where{};
  where.Offset = lockOffsetLow;
  where.OffsetHigh = lockOffsetHigh;
  if (::LockFileEx(handle, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &where)) {
    return true;
  }
  const DWORD error = ::GetLastError();
  if (error == ERROR_LOCK_VIOLATION || error == ERROR_IO_PENDING) return false;
  throwFileError("lock", path, {static_cast<int>(error), std::system_category()});
}

void unlock(HANDLE handle) noexcept {
  OVERLAPPED where{};
  where.Offset = lockOffsetLow;
  where.OffsetHigh = lockOffsetHigh;
  ::UnlockFileEx(handle, 0, 1, 0, &where);
}

// The volume and file ID of the open `handle`, which tell whether two
// handles are of one file.
std::optional<std::pair<DWORD, ULONGLONG>> identityOf(HANDLE handle) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (!::GetFileInformationByHandle(handle, &information)) return std::nullopt;
  return std::pair{
      information.dwVolumeSerialNumber,
      (static_cast<ULONGLONG>(information.nFileIndexHigh) << 32) | information.nFileIndexLow};
}

// Whether the name of `target` still refers to the file open as `locked`.
bool nameRefersTo(const ReplacementTarget& target, HANDLE locked) {
  const WindowsHandle atName = WindowsHandle::openRelative(
      reinterpret_cast<HANDLE>(target.directoryHandle()), target.resolved().name().native(),
      FILE_READ_ATTRIBUTES, shareAll, FILE_OPEN, 0);
  if (!atName.valid()) return false;
  const auto named = identityOf(atName.get());
  return named && named == identityOf(locked);
}

// Whether `sid` is SYSTEM, the Administrators group or the account running
// the program.
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

// Whether the kernel object `handle` was made by a trusted account.
bool madeByTrustedAccount(HANDLE handle) {
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (::GetSecurityInfo(handle, SE_KERNEL_OBJECT, OWNER_SECURITY_INFORMATION, &owner, nullptr,
                        nullptr, nullptr, &descriptor) != ERROR_SUCCESS) {
    return false;
  }
  // Wine keeps no owner for kernel objects; Windows always has one.
  const bool trusted = owner == nullptr || isTrustedAccount(owner);
  ::LocalFree(descriptor);
  return trusted;
}

// The mutex that stands for the lock of the folder open as `folder` while
// there is no file: byte-range locks need a file (Windows and Wine refuse
// them on a folder's handle), and a folder's handle with a share mode that
// shuts others out would also shut out the programs that list the folder
// and the rename into it. Named after the folder's identity (volume and
// file ID), not its path, in the namespace of every session. A
// mutex of that name that another account made first is not waited for,
// so that no bystander can hold up a run: only the creation of the first
// file then goes unserialised, and the replace still refuses a file that
// appeared meanwhile. Invalid when there is none to take.
WindowsHandle folderMutex(HANDLE folder) {
  BY_HANDLE_FILE_INFORMATION information{};
  if (!::GetFileInformationByHandle(folder, &information)) return WindowsHandle();
  std::wstring name = L"KorvanePasswordFolder-";
  for (const DWORD part :
       {information.dwVolumeSerialNumber, information.nFileIndexHigh, information.nFileIndexLow}) {
    for (int shift = 28; shift >= 0; shift -= 4) name += L"0123456789abcdef"[(part >> shift) & 0xF];
  }
  // The token's default access rules: its account, SYSTEM (and the
  // Administrators for an administrator).
  // Global names reach every session (two administrators on one server);
  // without the right to create them, the session's own namespace serves.
  HANDLE mutex = ::CreateMutexW(nullptr, FALSE, (L"Global\\" + name).c_str());
  if (mutex == nullptr) mutex = ::CreateMutexW(nullptr, FALSE, (L"Local\\" + name).c_str());
  WindowsHandle owned(mutex);
  if (owned.valid() && !madeByTrustedAccount(owned.get())) owned.reset();
  return owned;
}

// Takes `mutex` without waiting; false when another thread holds it. A
// holder that died leaves it to the next.
bool tryTake(HANDLE mutex) {
  const DWORD waited = ::WaitForSingleObject(mutex, 0);
  return waited == WAIT_OBJECT_0 || waited == WAIT_ABANDONED;
}

}  // namespace

ReplacementLock::ReplacementLock(const ReplacementTarget& target) : handle_(0) {
  // No folder: nothing to serialise, the replace fails anyway.
  if (!target.directoryExists()) return;
  const auto deadline = std::chrono::steady_clock::now() + longestWait;
  auto pause = firstPause;
  for (;;) {
    // The file itself, opened for reading (only who may read it can lock
    // it) through the folder's handle; anything but a regular file there
    // is refused as a read refuses it.
    std::optional<File> file = target.resolved().openRegularFile();
    WindowsHandle locked;
    if (file) {
      HANDLE duplicate = nullptr;
      if (!::DuplicateHandle(::GetCurrentProcess(), reinterpret_cast<HANDLE>(file->nativeHandle()),
                             ::GetCurrentProcess(), &duplicate, 0, FALSE, DUPLICATE_SAME_ACCESS)) {
        throwFileError("lock", target.path(), lastSystemError());
      }
      locked = WindowsHandle(duplicate);
      file->close();
    } else {
      // No file yet: the folder's mutex (see folderMutex), then no file
      // may have appeared meanwhile.
      WindowsHandle mutex = folderMutex(reinterpret_cast<HANDLE>(target.directoryHandle()));
      if (!mutex.valid()) return;
      if (tryTake(mutex.get())) {
        if (!target.resolved().exists()) {
          handle_ = reinterpret_cast<std::intptr_t>(mutex.release());
          return;
        }
        ::ReleaseMutex(mutex.get());
        continue;
      }
    }
    if (file) {
      const std::filesystem::path& lockedPath = target.path();
      if (tryLock(locked.get(), lockedPath)) {
        // Another run may have replaced the file while this one waited:
        // then the lock is on the wrong file.
        if (nameRefersTo(target, locked.get())) {
          handle_ = reinterpret_cast<std::intptr_t>(locked.release());
          return;
        }
        unlock(locked.get());
        continue;
      }
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      if (file) detail::throwLockHeld("file", target.path());
      detail::throwLockHeld("folder", target.directoryPath());
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, longestPause);
  }
}

ReplacementLock::~ReplacementLock() {
  if (handle_ == 0) return;
  const HANDLE handle = reinterpret_cast<HANDLE>(handle_);
  // A file's lock, or the folder's mutex.
  if (::GetFileType(handle) == FILE_TYPE_DISK) {
    unlock(handle);
  } else {
    ::ReleaseMutex(handle);
  }
  ::CloseHandle(handle);
}

}  // namespace korvane::utils::io
