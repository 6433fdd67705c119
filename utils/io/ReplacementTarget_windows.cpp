#include <windows.h>
// After windows.h, which the security headers need.
#include <aclapi.h>
#include <sddl.h>
#include <winternl.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include "utils/core/Format.h"
#include "utils/io/ReplacementTarget.h"
#include "utils/io/SystemError.h"
#include "utils/io/WindowsHandle.h"

namespace korvane::utils::io {

namespace {

// A move refused because another program holds the file open is tried
// again for about this long.
constexpr auto longestMoveRetry = std::chrono::seconds(10);
constexpr auto firstMovePause = std::chrono::milliseconds(5);
constexpr auto longestMovePause = std::chrono::milliseconds(250);

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// The rename with POSIX semantics (Windows 10 1709 and later, NTFS): the
// name moves to the new file even while other programs hold the old one
// open with delete sharing; they keep reading the old file. Older headers
// lack the information class and FILE_RENAME_INFO's Flags member, which
// shares its place with the BOOLEAN ReplaceIfExists.
constexpr int fileRenameInformation = 10;
constexpr int fileRenameInformationEx = 65;
constexpr DWORD renameReplaceIfExists = 0x1;
constexpr DWORD renamePosixSemantics = 0x2;

struct RenameInformation {
  DWORD flags;
  HANDLE rootDirectory;
  DWORD fileNameLength;
  WCHAR fileName[1];
};
static_assert(offsetof(RenameInformation, rootDirectory) ==
              offsetof(FILE_RENAME_INFO, RootDirectory));
static_assert(offsetof(RenameInformation, fileNameLength) ==
              offsetof(FILE_RENAME_INFO, FileNameLength));
static_assert(offsetof(RenameInformation, fileName) == offsetof(FILE_RENAME_INFO, FileName));

// The DACL of a new password file: full control for SYSTEM, the
// Administrators and the account running the tool (added at run time),
// protected from the folder's inherited rules, which would let every local
// user of ProgramData read the hashes.
constexpr const wchar_t* privateDacl = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)";

struct LocalMemory {
  void operator()(void* memory) const noexcept { ::LocalFree(memory); }
};

bool meansNotFound(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

ReplacedFile identityOf(HANDLE handle) {
  BY_HANDLE_FILE_INFORMATION information{};
  ReplacedFile replaced;
  if (!::GetFileInformationByHandle(handle, &information)) return replaced;
  replaced.volume = information.dwVolumeSerialNumber;
  replaced.id =
      (static_cast<std::uint64_t>(information.nFileIndexHigh) << 32) | information.nFileIndexLow;
  // Where file IDs come back at once for new files (Wine over a Unix file
  // system), the creation time tells them apart. Not the last write time,
  // which the system may set again when the handle is closed.
  replaced.changeTime =
      (static_cast<std::uint64_t>(information.ftCreationTime.dwHighDateTime) << 32) |
      information.ftCreationTime.dwLowDateTime;
  return replaced;
}

std::string readDacl(HANDLE handle, const std::filesystem::path& path) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error = ::GetSecurityInfo(handle, SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr,
                                        nullptr, nullptr, nullptr, &descriptor);
  if (error != ERROR_SUCCESS) {
    throwFileError("read the access rules of", path,
                   {static_cast<int>(error), std::system_category()});
  }
  const std::unique_ptr<void, LocalMemory> release(descriptor);
  LPWSTR text = nullptr;
  if (!::ConvertSecurityDescriptorToStringSecurityDescriptorW(
          descriptor, SDDL_REVISION_1, DACL_SECURITY_INFORMATION, &text, nullptr)) {
    throwFileError("read the access rules of", path, lastSystemError());
  }
  const std::unique_ptr<void, LocalMemory> releaseText(text);
  const std::wstring wide(text);
  return std::string(reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t));
}

std::wstring currentUserSid() {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return {};
  const WindowsHandle owned(token);
  DWORD size = 0;
  ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  auto buffer = std::make_unique<unsigned char[]>(size);
  if (!::GetTokenInformation(token, TokenUser, buffer.get(), size, &size)) return {};
  LPWSTR text = nullptr;
  if (!::ConvertSidToStringSidW(reinterpret_cast<TOKEN_USER*>(buffer.get())->User.Sid, &text)) {
    return {};
  }
  const std::unique_ptr<void, LocalMemory> release(text);
  return text;
}

// The security descriptor that `sddl` describes, freed with LocalFree.
std::unique_ptr<void, LocalMemory> descriptorOf(const std::wstring& sddl,
                                                const std::filesystem::path& path) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                              &descriptor, nullptr)) {
    throwFileError("set the access rules of", path, lastSystemError());
  }
  return std::unique_ptr<void, LocalMemory>(descriptor);
}

// Gives the open file `handle` the access rules `sddl`, protected from the
// folder's or not as they say.
void applyDacl(HANDLE handle, const std::filesystem::path& path, const std::wstring& sddl) {
  const auto descriptor = descriptorOf(sddl, path);
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL dacl = nullptr;
  ::GetSecurityDescriptorDacl(descriptor.get(), &present, &dacl, &defaulted);
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  ::GetSecurityDescriptorControl(descriptor.get(), &control, &revision);
  const SECURITY_INFORMATION information =
      DACL_SECURITY_INFORMATION |
      ((control & SE_DACL_PROTECTED) != 0 ? PROTECTED_DACL_SECURITY_INFORMATION
                                          : UNPROTECTED_DACL_SECURITY_INFORMATION);
  const DWORD error =
      ::SetSecurityInfo(handle, SE_FILE_OBJECT, information, nullptr, nullptr, dacl, nullptr);
  if (error != ERROR_SUCCESS) {
    throwFileError("set the access rules of", path,
                   {static_cast<int>(error), std::system_category()});
  }
}

// Opens what is now at `name` in `folder`, a link as itself, to look at
// it (and, with `access`, to move it). Invalid when nothing is there.
WindowsHandle openEntry(HANDLE folder, const std::filesystem::path& name, ACCESS_MASK access,
                        const std::filesystem::path& path) {
  WindowsHandle handle = WindowsHandle::openRelative(
      folder, name.native(), access | FILE_READ_ATTRIBUTES, shareAll, FILE_OPEN, 0);
  if (!handle.valid()) {
    const DWORD error = ::GetLastError();
    if (!meansNotFound(error)) {
      throwFileError("open", path, {static_cast<int>(error), std::system_category()});
    }
  }
  return handle;
}

// Whether the open `handle` is the file `expected` describes.
bool isFile(const WindowsHandle& handle, const ReplacedFile& expected) {
  return handle.valid() && identityOf(handle.get()).sameFileAs(expected);
}

struct RenameResult {
  bool supported = true;  // false: the system or file system has no such rename
  DWORD error = ERROR_SUCCESS;
};

// Renames the open `source` to `name` in the open `folder`; with
// POSIX semantics when `posix`, otherwise the classic rename, which cannot
// replace a file that is open.
RenameResult renameTo(HANDLE source, HANDLE folder, const std::wstring& name, bool posix) {
  // The name with its terminating NUL, which the system's path conversion
  // reads; the length excludes it.
  const std::size_t bytes =
      offsetof(RenameInformation, fileName) + (name.size() + 1) * sizeof(WCHAR);
  std::vector<std::uint64_t> storage((bytes + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t));
  auto* information = reinterpret_cast<RenameInformation*>(storage.data());
  // The classic layout's BOOLEAN ReplaceIfExists is the first byte of flags.
  information->flags = posix ? renameReplaceIfExists | renamePosixSemantics : TRUE;
  information->rootDirectory = folder;
  information->fileNameLength = static_cast<DWORD>(name.size() * sizeof(WCHAR));
  std::memcpy(information->fileName, name.c_str(), (name.size() + 1) * sizeof(WCHAR));
  // The native call: Wine's SetFileInformationByHandle takes no rename
  // relative to a folder.
  IO_STATUS_BLOCK status{};
  const NTSTATUS result = ::NtSetInformationFile(
      source, &status, information, static_cast<ULONG>(bytes),
      static_cast<FILE_INFORMATION_CLASS>(posix ? fileRenameInformationEx : fileRenameInformation));
  if (result >= 0) return {};
  const DWORD error = ::RtlNtStatusToDosError(result);
  // Older systems and Wine reject the information class, other file
  // systems the flags.
  const bool unsupported = error == ERROR_INVALID_PARAMETER || error == ERROR_NOT_SUPPORTED ||
                           error == ERROR_INVALID_FUNCTION;
  return {!(posix && unsupported), error};
}

HANDLE folderOf(const ReplacementTarget& target) {
  return reinterpret_cast<HANDLE>(target.folderHandle());
}

}  // namespace

std::optional<File> ReplacementTarget::open(ReplacedFile* replaced) const {
  std::optional<File> file = resolved_.openRegularFile();
  if (file && replaced != nullptr) {
    const HANDLE handle = reinterpret_cast<HANDLE>(file->nativeHandle());
    *replaced = identityOf(handle);
    replaced->attributes.emplace_back("dacl", readDacl(handle, path()));
  }
  return file;
}

File ReplacementTarget::createTemporary(std::string_view suffix,
                                        const std::optional<ReplacedFile>& replaced) const {
  std::filesystem::path temporary = path();
  temporary += core::format(".{}", suffix);
  if (!folderExists()) {
    throwFileError("open", temporary, {ERROR_PATH_NOT_FOUND, std::system_category()});
  }
  std::wstring sddl;
  const bool copied = replaced && !replaced->attributes.empty();
  if (copied) {
    const std::string& bytes = replaced->attributes.front().second;
    sddl.assign(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t));
  } else {
    sddl = privateDacl;
    const std::wstring user = currentUserSid();
    if (!user.empty()) sddl += L"(A;;FA;;;" + user + L")";
  }
  // A new file is private from its creation on; a copied rule set is set
  // afterwards, as the system merges it with the folder's inherited rules.
  const auto privateDescriptor = copied ? nullptr : descriptorOf(sddl, temporary);
  // Created exclusively in the folder itself: whatever is already at that
  // name, a link included, makes it fail and is neither followed nor
  // truncated. Shared for reading only while it is written; DELETE so that
  // it can be removed through this handle.
  WindowsHandle handle = WindowsHandle::openRelative(
      folderOf(*this), temporary.filename().native(),
      GENERIC_WRITE | READ_CONTROL | WRITE_DAC | DELETE | FILE_READ_ATTRIBUTES,
      FILE_SHARE_READ | FILE_SHARE_DELETE, FILE_CREATE, FILE_NON_DIRECTORY_FILE,
      privateDescriptor.get());
  if (!handle.valid()) throwFileError("open", temporary, lastSystemError());
  File file(reinterpret_cast<File::NativeHandle>(handle.release()), temporary);
  applyDacl(reinterpret_cast<HANDLE>(file.nativeHandle()), temporary, sddl);
  return file;
}

void ReplacementTarget::discardTemporary(File temporary) const noexcept {
  if (!temporary.isOpen() || !folderExists()) return;
  const HANDLE handle = reinterpret_cast<HANDLE>(temporary.nativeHandle());
  const ReplacedFile written = identityOf(handle);
  // Without an identity nothing can tell the file apart: it stays.
  if (written.id == 0 && written.volume == 0) return;
  try {
    const WindowsHandle atName =
        openEntry(folderOf(*this), temporary.path().filename(), 0, temporary.path());
    if (!isFile(atName, written)) return;
    // Removed through the handle that created it: the file removed is the
    // file written, whatever happens to names meanwhile.
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = TRUE;
    ::SetFileInformationByHandle(handle, FileDispositionInfo, &disposition, sizeof disposition);
  } catch (...) {
    // Left behind, as any temporary file whose removal fails.
  }
}

ReplacedFile ReplacementTarget::identify(const File& file) {
  return identityOf(reinterpret_cast<HANDLE>(file.nativeHandle()));
}

void ReplacementTarget::replace(const std::filesystem::path& temporary, const ReplacedFile& written,
                                const std::optional<ReplacedFile>& replaced) const {
  if (!folderExists()) detail::throwChangedDuringRun(temporary);
  const HANDLE folder = folderOf(*this);
  bool posixRename = true;
  const auto deadline = std::chrono::steady_clock::now() + longestMoveRetry;
  auto pause = firstMovePause;
  for (;;) {
    // Checked again before every attempt, through handles opened in the
    // folder: a wait may be long. The file moved is the one checked.
    const WindowsHandle source =
        WindowsHandle::openRelative(folder, temporary.filename().native(),
                                    DELETE | FILE_READ_ATTRIBUTES, shareAll, FILE_OPEN, 0);
    RenameResult result{true, source.valid() ? ERROR_SUCCESS : ::GetLastError()};
    if (source.valid()) {
      if (!isFile(source, written)) detail::throwChangedDuringRun(temporary);
      {
        // Closed before the move: a rename without POSIX semantics cannot
        // replace a file that is open.
        const WindowsHandle current = openEntry(folder, resolved_.name(), 0, path());
        if (current.valid() ? !replaced || !isFile(current, *replaced) : replaced.has_value()) {
          detail::throwChangedDuringRun(path());
        }
      }
      result = renameTo(source.get(), folder, resolved_.name().native(), posixRename);
      if (!result.supported) {
        posixRename = false;
        result = renameTo(source.get(), folder, resolved_.name().native(), false);
      }
    } else if (meansNotFound(result.error)) {
      detail::throwChangedDuringRun(temporary);
    }
    if (result.error == ERROR_SUCCESS) {
      // Write-through: the folder's new entry on disk now, where the file
      // system lets a folder be flushed (NTFS); elsewhere its journal
      // keeps the rename.
      ::FlushFileBuffers(folder);
      return;
    }
    // Another program (a service, a scanner, a backup agent) holds the
    // file open without delete sharing, or the classic move meets any open
    // handle: wait it out, for a bounded time.
    const bool heldOpen =
        result.error == ERROR_SHARING_VIOLATION || result.error == ERROR_ACCESS_DENIED;
    if (!heldOpen || std::chrono::steady_clock::now() >= deadline) {
      throw std::filesystem::filesystem_error(
          "rename", temporary, path(),
          std::error_code(static_cast<int>(result.error), std::system_category()));
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2,
                     std::chrono::duration_cast<std::chrono::milliseconds>(longestMovePause));
  }
}

}  // namespace korvane::utils::io
