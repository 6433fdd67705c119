#include <windows.h>

#include <algorithm>
#include <chrono>
#include <optional>
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
      // No file yet: the folder itself, opened again through its handle,
      // carries the same lock.
      locked = WindowsHandle::openRelative(reinterpret_cast<HANDLE>(target.directoryHandle()), L"",
                                           FILE_LIST_DIRECTORY, shareAll, FILE_OPEN,
                                           FILE_DIRECTORY_FILE);
      if (!locked.valid()) throwFileError("lock", target.directoryPath(), lastSystemError());
    }
    const std::filesystem::path& lockedPath = file ? target.path() : target.directoryPath();
    if (tryLock(locked.get(), lockedPath)) {
      // Another run may have replaced the file, or created the first one,
      // while this one waited: then the lock is on the wrong file.
      const bool current = file ? nameRefersTo(target, locked.get()) : !target.resolved().exists();
      if (current) {
        handle_ = reinterpret_cast<std::intptr_t>(locked.release());
        return;
      }
      unlock(locked.get());
      continue;
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
  unlock(handle);
  ::CloseHandle(handle);
}

}  // namespace korvane::utils::io
