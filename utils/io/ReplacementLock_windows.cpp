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
#include "utils/io/WindowsAccount.h"
#include "utils/io/WindowsHandle.h"

namespace korvane::utils::io {

namespace {

constexpr auto firstPause = std::chrono::milliseconds(5);
constexpr auto longestPause = std::chrono::milliseconds(250);

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

// The mutex that stands for the lock of the folder open as `folder`. A
// lock on the password file itself would keep it open, and a file that is
// open cannot be replaced where the system lacks the POSIX-semantics
// rename; byte-range locks need a file (Windows and Wine refuse them on a
// folder's handle), and a folder's handle with a share mode that shuts
// others out would also shut out the programs that list the folder and the
// rename into it. Named after the folder's identity (volume and file ID),
// not its path, in the namespace of every session. A mutex of that name
// that another account made first is not waited for, so that no bystander
// can hold up a run: the runs then go unserialised, and the replace still
// refuses a file that was replaced meanwhile. Invalid when there is none
// to take.
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
  if (!target.folderExists()) return;
  // Anything but a regular file at the name is refused as a read refuses
  // it; the file is closed again at once.
  const bool fileExists = target.resolved().openRegularFile().has_value();
  WindowsHandle mutex = folderMutex(reinterpret_cast<HANDLE>(target.folderHandle()));
  if (!mutex.valid()) return;
  const auto deadline = std::chrono::steady_clock::now() + longestWait;
  auto pause = firstPause;
  while (!tryTake(mutex.get())) {
    if (std::chrono::steady_clock::now() >= deadline) {
      if (fileExists) detail::throwLockHeld("file", target.path());
      detail::throwLockHeld("folder", target.folderPath());
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, longestPause);
  }
  handle_ = reinterpret_cast<std::intptr_t>(mutex.release());
}

ReplacementLock::~ReplacementLock() {
  if (handle_ == 0) return;
  const HANDLE mutex = reinterpret_cast<HANDLE>(handle_);
  ::ReleaseMutex(mutex);
  ::CloseHandle(mutex);
}

}  // namespace korvane::utils::io
