#include <windows.h>
// After windows.h, which the security headers need.
#include <aclapi.h>
#include <sddl.h>

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
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/ReplacementTarget.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

// As many links as the system follows before it gives up.
constexpr int maxLinksFollowed = 40;

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
constexpr auto fileRenameInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
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

class Handle {
 public:
  explicit Handle(HANDLE handle = INVALID_HANDLE_VALUE) noexcept : handle_(handle) {}
  ~Handle() {
    if (valid()) ::CloseHandle(handle_);
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  bool valid() const noexcept { return handle_ != INVALID_HANDLE_VALUE && handle_ != nullptr; }
  HANDLE get() const noexcept { return handle_; }
  HANDLE release() noexcept { return std::exchange(handle_, INVALID_HANDLE_VALUE); }

 private:
  HANDLE handle_;
};

struct LocalMemory {
  void operator()(void* memory) const noexcept { ::LocalFree(memory); }
};

bool meansNotFound(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

std::string printable(const std::filesystem::path& path) { return filesystem::toPrintable(path); }

[[noreturn]] void throwChanged(const std::filesystem::path& path) {
  throw std::runtime_error(core::format(
      "\"{}\" was changed or replaced by another program during the run; nothing was replaced",
      printable(path)));
}

// Opens `path` itself, a link or junction as such, with `access`.
Handle openItself(const std::filesystem::path& path, DWORD access) {
  return Handle(::CreateFileW(path.c_str(), access, shareAll, nullptr, OPEN_EXISTING,
                              FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

// Whether `sid` is SYSTEM, the Administrators group or the account running
// the program: those who could write the target anyway.
bool isTrustedOwner(PSID sid) {
  if (::IsWellKnownSid(sid, WinLocalSystemSid) ||
      ::IsWellKnownSid(sid, WinBuiltinAdministratorsSid)) {
    return true;
  }
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  const Handle owned(token);
  DWORD size = 0;
  ::GetTokenInformation(token, TokenUser, nullptr, 0, &size);
  auto buffer = std::make_unique<unsigned char[]>(size);
  if (!::GetTokenInformation(token, TokenUser, buffer.get(), size, &size)) return false;
  return ::EqualSid(sid, reinterpret_cast<TOKEN_USER*>(buffer.get())->User.Sid) != 0;
}

void requireTrustedLink(const std::filesystem::path& link) {
  const Handle handle = openItself(link, READ_CONTROL);
  if (!handle.valid()) throwFileError("open the link", link, lastSystemError());
  PSID owner = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error = ::GetSecurityInfo(handle.get(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION,
                                        &owner, nullptr, nullptr, nullptr, &descriptor);
  if (error != ERROR_SUCCESS) {
    throwFileError("read the owner of", link, {static_cast<int>(error), std::system_category()});
  }
  const std::unique_ptr<void, LocalMemory> release(descriptor);
  if (isTrustedOwner(owner)) return;
  LPWSTR text = nullptr;
  std::string ownerText = "another account";
  if (::ConvertSidToStringSidW(owner, &text)) {
    const std::unique_ptr<void, LocalMemory> releaseText(text);
    ownerText = core::format("the account {}", printable(std::filesystem::path(text)));
  }
  throw UntrustedLinkError(core::format(
      "the symbolic link \"{}\" belongs to {}, neither an administrator nor the account running "
      "this program, and is not followed",
      printable(link), ownerText));
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
  const Handle owned(token);
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

void applyDacl(const std::filesystem::path& path, const std::wstring& sddl) {
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  if (!::ConvertStringSecurityDescriptorToSecurityDescriptorW(sddl.c_str(), SDDL_REVISION_1,
                                                              &descriptor, nullptr)) {
    throwFileError("set the access rules of", path, lastSystemError());
  }
  const std::unique_ptr<void, LocalMemory> release(descriptor);
  BOOL present = FALSE;
  BOOL defaulted = FALSE;
  PACL dacl = nullptr;
  ::GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted);
  SECURITY_DESCRIPTOR_CONTROL control = 0;
  DWORD revision = 0;
  ::GetSecurityDescriptorControl(descriptor, &control, &revision);
  const SECURITY_INFORMATION information =
      DACL_SECURITY_INFORMATION |
      ((control & SE_DACL_PROTECTED) != 0 ? PROTECTED_DACL_SECURITY_INFORMATION
                                          : UNPROTECTED_DACL_SECURITY_INFORMATION);
  std::wstring name = path.wstring();
  const DWORD error = ::SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT, information, nullptr,
                                              nullptr, dacl, nullptr);
  if (error != ERROR_SUCCESS) {
    throwFileError("set the access rules of", path,
                   {static_cast<int>(error), std::system_category()});
  }
}

// Whether the name still refers to the file `replaced` describes (or to
// nothing when there is none).
void requireUnchanged(const std::filesystem::path& path,
                      const std::optional<ReplacedFile>& replaced) {
  const Handle handle = openItself(path, 0);
  if (!handle.valid()) {
    const DWORD error = ::GetLastError();
    if (meansNotFound(error) && !replaced) return;
    if (meansNotFound(error)) throwChanged(path);
    throwFileError("open", path, {static_cast<int>(error), std::system_category()});
  }
  if (!replaced || !identityOf(handle.get()).sameFileAs(*replaced)) throwChanged(path);
}

struct RenameResult {
  bool supported = true;  // false: the system or file system has no such rename
  DWORD error = ERROR_SUCCESS;
};

// Renames `from` to `to` (an absolute path) with POSIX semantics.
RenameResult renameWithPosixSemantics(const std::filesystem::path& from, const std::wstring& to) {
  // The temporary file itself, never a link planted at its name.
  const Handle source(::CreateFileW(from.c_str(), DELETE | SYNCHRONIZE, shareAll, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
  // Without delete access to the file itself, the move by name may still
  // be allowed through the folder's rights.
  if (!source.valid()) return {false, ::GetLastError()};
  // The name with its terminating NUL, which the system's path conversion
  // reads; the length excludes it.
  const std::size_t bytes = offsetof(RenameInformation, fileName) + (to.size() + 1) * sizeof(WCHAR);
  std::vector<std::uint64_t> storage((bytes + sizeof(std::uint64_t) - 1) / sizeof(std::uint64_t));
  auto* information = reinterpret_cast<RenameInformation*>(storage.data());
  information->flags = renameReplaceIfExists | renamePosixSemantics;
  information->rootDirectory = nullptr;
  information->fileNameLength = static_cast<DWORD>(to.size() * sizeof(WCHAR));
  std::memcpy(information->fileName, to.c_str(), (to.size() + 1) * sizeof(WCHAR));
  if (::SetFileInformationByHandle(source.get(), fileRenameInfoEx, information,
                                   static_cast<DWORD>(bytes))) {
    return {};
  }
  const DWORD error = ::GetLastError();
  // Older systems and Wine reject the information class, other file systems
  // the flags; a move to another volume must copy. MoveFileExW does both.
  const bool unsupported = error == ERROR_INVALID_PARAMETER || error == ERROR_NOT_SUPPORTED ||
                           error == ERROR_INVALID_FUNCTION || error == ERROR_NOT_SAME_DEVICE;
  return {!unsupported, error};
}

// MoveFileExW: the classic move, which cannot replace a file that is open.
DWORD moveReplacing(const std::filesystem::path& from, const std::filesystem::path& to) {
  const DWORD flags = MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED | MOVEFILE_WRITE_THROUGH;
  return ::MoveFileExW(from.c_str(), to.c_str(), flags) ? ERROR_SUCCESS : ::GetLastError();
}

}  // namespace

ReplacementTarget::ReplacementTarget(const std::filesystem::path& path)
    : directory_(reinterpret_cast<File::NativeHandle>(INVALID_HANDLE_VALUE)) {
  std::filesystem::path current = path;
  for (int followed = 0;; ++followed) {
    std::error_code error;
    const auto status = std::filesystem::symlink_status(current, error);
    if (error && status.type() != std::filesystem::file_type::not_found) {
      throwFileError("read the attributes of", current, error);
    }
    if (status.type() != std::filesystem::file_type::symlink) break;
    if (followed == maxLinksFollowed) {
      throwFileError("follow the links of", path,
                     std::make_error_code(std::errc::too_many_symbolic_link_levels));
    }
    requireTrustedLink(current);
    std::error_code readError;
    const std::filesystem::path target = std::filesystem::read_symlink(current, readError);
    if (readError) throwFileError("read the link", current, readError);
    current = target.is_absolute() ? target : current.parent_path() / target;
  }
  path_ = current;
  name_ = current.filename();
  directoryPath_ =
      current.parent_path().empty() ? std::filesystem::path(".") : current.parent_path();
  Handle directory(::CreateFileW(directoryPath_.c_str(), FILE_LIST_DIRECTORY, shareAll, nullptr,
                                 OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!directory.valid()) {
    const DWORD error = ::GetLastError();
    if (meansNotFound(error) || error == ERROR_DIRECTORY) return;
    throwFileError("open the directory", directoryPath_,
                   {static_cast<int>(error), std::system_category()});
  }
  directory_ = reinterpret_cast<File::NativeHandle>(directory.release());
  directoryExists_ = true;
}

ReplacementTarget::~ReplacementTarget() {
  if (directoryExists_) ::CloseHandle(reinterpret_cast<HANDLE>(directory_));
}

std::optional<File> ReplacementTarget::open(ReplacedFile* replaced) const {
  if (!directoryExists_) return std::nullopt;
  // Delete sharing: another run may replace the file while this one reads.
  Handle handle(::CreateFileW(path_.c_str(), GENERIC_READ | READ_CONTROL, shareAll, nullptr,
                              OPEN_EXISTING,
                              FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_BACKUP_SEMANTICS, nullptr));
  if (!handle.valid()) {
    const DWORD error = ::GetLastError();
    if (meansNotFound(error)) return std::nullopt;
    throwFileError("open", path_, {static_cast<int>(error), std::system_category()});
  }
  BY_HANDLE_FILE_INFORMATION information{};
  if (!::GetFileInformationByHandle(handle.get(), &information)) {
    throwFileError("open", path_, lastSystemError());
  }
  if ((information.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0) throwChanged(path_);
  if ((information.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ||
      ::GetFileType(handle.get()) != FILE_TYPE_DISK) {
    throw std::runtime_error(core::format(
        "could not open \"{}\": it is no regular file and is not read", printable(path_)));
  }
  if (replaced != nullptr) {
    *replaced = identityOf(handle.get());
    replaced->attributes.emplace_back("dacl", readDacl(handle.get(), path_));
  }
  return File(reinterpret_cast<File::NativeHandle>(handle.release()), path_);
}

File ReplacementTarget::createTemporary(std::string_view suffix,
                                        const std::optional<ReplacedFile>& replaced) const {
  std::filesystem::path temporary = path_;
  temporary += core::format(".{}", suffix);
  File file(temporary, File::Access::createNew);
  std::wstring sddl;
  if (replaced && !replaced->attributes.empty()) {
    const std::string& bytes = replaced->attributes.front().second;
    sddl.assign(reinterpret_cast<const wchar_t*>(bytes.data()), bytes.size() / sizeof(wchar_t));
  } else {
    sddl = privateDacl;
    const std::wstring user = currentUserSid();
    if (!user.empty()) sddl += L"(A;;FA;;;" + user + L")";
  }
  applyDacl(temporary, sddl);
  return file;
}

void ReplacementTarget::discardTemporary(File temporary) const noexcept {
  if (!temporary.isOpen()) return;
  const ReplacedFile written = identityOf(reinterpret_cast<HANDLE>(temporary.nativeHandle()));
  // Without an identity nothing can tell the file apart: it stays.
  if (written.id == 0 && written.volume == 0) return;
  try {
    const std::filesystem::path path = temporary.path();
    temporary.close();
    const Handle handle = openItself(path, DELETE | FILE_READ_ATTRIBUTES);
    if (!handle.valid() || !identityOf(handle.get()).sameFileAs(written)) return;
    FILE_DISPOSITION_INFO disposition{};
    disposition.DeleteFile = TRUE;
    ::SetFileInformationByHandle(handle.get(), FileDispositionInfo, &disposition,
                                 sizeof disposition);
  } catch (...) {
    // Left behind, as any temporary file whose removal fails.
  }
}

ReplacedFile ReplacementTarget::identify(const File& file) {
  return identityOf(reinterpret_cast<HANDLE>(file.nativeHandle()));
}

void ReplacementTarget::replace(const std::filesystem::path& temporary, const ReplacedFile& written,
                                const std::optional<ReplacedFile>& replaced) const {
  std::error_code absoluteError;
  std::filesystem::path absoluteTarget = std::filesystem::absolute(path_, absoluteError);
  if (absoluteError) absoluteTarget = path_;
  bool posixRename = true;
  const auto deadline = std::chrono::steady_clock::now() + longestMoveRetry;
  auto pause = firstMovePause;
  for (;;) {
    // Checked again before every attempt: a wait may be long.
    requireUnchanged(temporary, written);
    requireUnchanged(path_, replaced);
    DWORD error = ERROR_SUCCESS;
    if (posixRename) {
      const RenameResult result = renameWithPosixSemantics(temporary, absoluteTarget.native());
      posixRename = result.supported;
      error = result.error;
    }
    if (!posixRename) error = moveReplacing(temporary, path_);
    if (error == ERROR_SUCCESS) return;
    // Another program (a service, a scanner, a backup agent) holds the
    // file open without delete sharing, or the classic move meets any open
    // handle: wait it out, for a bounded time.
    const bool heldOpen = error == ERROR_SHARING_VIOLATION || error == ERROR_ACCESS_DENIED;
    if (!heldOpen || std::chrono::steady_clock::now() >= deadline) {
      throw std::filesystem::filesystem_error(
          "rename", temporary, path_,
          std::error_code(static_cast<int>(error), std::system_category()));
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2,
                     std::chrono::duration_cast<std::chrono::milliseconds>(longestMovePause));
  }
}

}  // namespace korvane::utils::io
