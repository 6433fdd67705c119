#include <windows.h>
// After windows.h, which these headers need.
#include <aclapi.h>
#include <winioctl.h>
#include <winternl.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "utils/core/Format.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/ResolvedPath.h"
#include "utils/io/SystemError.h"
#include "utils/io/WindowsAccount.h"
#include "utils/io/WindowsHandle.h"

namespace korvane::utils::io {

namespace {

// As many links as the system follows before it gives up.
constexpr int maxLinksFollowed = 40;

constexpr DWORD shareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

// A folder on the way: listed, traversed, examined and its access rules
// read (to decide whether a link in it is followed).
constexpr ACCESS_MASK folderAccess =
    FILE_LIST_DIRECTORY | FILE_TRAVERSE | FILE_READ_ATTRIBUTES | READ_CONTROL | SYNCHRONIZE;
// The folder that holds the final name, when the account may: files are
// created, renamed and removed in it through this handle.
constexpr ACCESS_MASK finalFolderAccess = folderAccess | FILE_ADD_FILE | FILE_DELETE_CHILD;

// Rights that let an account put or rename something in a folder, or give
// itself those rights.
constexpr ACCESS_MASK folderWriteRights = FILE_ADD_FILE | FILE_ADD_SUBDIRECTORY |
                                          FILE_DELETE_CHILD | WRITE_DAC | WRITE_OWNER |
                                          GENERIC_WRITE | GENERIC_ALL;

struct LocalMemory {
  void operator()(void* memory) const noexcept { ::LocalFree(memory); }
};

std::string printable(const std::filesystem::path& path) { return filesystem::toPrintable(path); }

std::error_code errorOf(DWORD error) { return {static_cast<int>(error), std::system_category()}; }

bool meansNotFound(DWORD error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
         error == ERROR_DIRECTORY || error == ERROR_BAD_NETPATH || error == ERROR_BAD_NET_NAME;
}

[[noreturn]] void throwNotRegular(const std::filesystem::path& path, bool folder) {
  if (folder) {
    throw std::runtime_error(
        core::format("could not open \"{}\": it is a folder, not a regular file, and is not read",
                     printable(path)));
  }
  throw std::runtime_error(core::format(
      "could not open \"{}\": it is no regular file and is not read", printable(path)));
}

[[noreturn]] void throwNamesAFolder(const std::filesystem::path& path) {
  throw std::runtime_error(
      core::format("could not open \"{}\": it names a folder, not a regular file, and is not read",
                   printable(path)));
}

// The attributes and reparse tag of the open `handle`; false when the
// query fails.
bool attributesOf(HANDLE handle, FILE_ATTRIBUTE_TAG_INFO* information) {
  return ::GetFileInformationByHandleEx(handle, FileAttributeTagInfo, information,
                                        sizeof *information) != 0;
}

bool isLinkTag(DWORD tag) {
  return tag == IO_REPARSE_TAG_SYMLINK || tag == IO_REPARSE_TAG_MOUNT_POINT;
}

// Whether no account but the trusted ones can write the open folder
// `folder`: its owner is one of them (an owner can always change the
// rules), and no rule that applies to the folder itself lets another
// account add, rename or remove entries or change the rules.
bool onlyTrustedCanWrite(HANDLE folder, const std::filesystem::path& path) {
  PSID owner = nullptr;
  PACL dacl = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  const DWORD error = ::GetSecurityInfo(folder, SE_FILE_OBJECT,
                                        OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION,
                                        &owner, nullptr, &dacl, nullptr, &descriptor);
  if (error != ERROR_SUCCESS) throwFileError("read the access rules of", path, errorOf(error));
  const std::unique_ptr<void, LocalMemory> release(descriptor);
  if (owner == nullptr || !isTrustedAccount(owner)) return false;
  // No access control list at all lets everyone do everything.
  if (dacl == nullptr) return false;
  for (DWORD index = 0; index < dacl->AceCount; ++index) {
    void* entry = nullptr;
    if (!::GetAce(dacl, index, &entry)) return false;
    const auto* header = static_cast<const ACE_HEADER*>(entry);
    // Rules only passed on to what is created inside do not apply here.
    if ((header->AceFlags & INHERIT_ONLY_ACE) != 0) continue;
    if (header->AceType != ACCESS_ALLOWED_ACE_TYPE &&
        header->AceType != ACCESS_ALLOWED_CALLBACK_ACE_TYPE) {
      continue;
    }
    // Both allowing layouts start with the mask and the SID.
    const auto* allowed = static_cast<const ACCESS_ALLOWED_ACE*>(entry);
    if ((allowed->Mask & folderWriteRights) == 0) continue;
    if (!isTrustedAccount(const_cast<DWORD*>(&allowed->SidStart))) return false;
  }
  return true;
}

// The layout of FSCTL_GET_REPARSE_POINT's answer for symbolic links and
// junctions (REPARSE_DATA_BUFFER).
struct ReparseHeader {
  DWORD tag;
  WORD dataLength;
  WORD reserved;
  WORD substituteNameOffset;
  WORD substituteNameLength;
  WORD printNameOffset;
  WORD printNameLength;
};
constexpr std::size_t symlinkPathOffset = sizeof(ReparseHeader) + sizeof(ULONG);
constexpr std::size_t mountPointPathOffset = sizeof(ReparseHeader);

// The target of the link open as `link`, read through that handle, as a
// Win32 path: "\??\C:\x" becomes "C:\x", "\??\UNC\server\share" becomes
// "\\server\share".
std::filesystem::path readLinkTarget(HANDLE link, const std::filesystem::path& path) {
  std::vector<std::uint64_t> storage(MAXIMUM_REPARSE_DATA_BUFFER_SIZE / sizeof(std::uint64_t));
  DWORD got = 0;
  if (!::DeviceIoControl(link, FSCTL_GET_REPARSE_POINT, nullptr, 0, storage.data(),
                         static_cast<DWORD>(storage.size() * sizeof(std::uint64_t)), &got,
                         nullptr)) {
    throwFileError("read the link", path, lastSystemError());
  }
  const auto* bytes = reinterpret_cast<const unsigned char*>(storage.data());
  ReparseHeader header{};
  if (got < sizeof header) {
    throwFileError("read the link", path, errorOf(ERROR_INVALID_REPARSE_DATA));
  }
  std::memcpy(&header, bytes, sizeof header);
  const std::size_t pathOffset =
      header.tag == IO_REPARSE_TAG_SYMLINK ? symlinkPathOffset : mountPointPathOffset;
  const std::size_t start = pathOffset + header.substituteNameOffset;
  if (start + header.substituteNameLength > got || header.substituteNameLength == 0) {
    throwFileError("read the link", path, errorOf(ERROR_INVALID_REPARSE_DATA));
  }
  std::wstring target(header.substituteNameLength / sizeof(wchar_t), L'\0');
  std::memcpy(target.data(), bytes + start, target.size() * sizeof(wchar_t));
  if (target.starts_with(L"\\??\\UNC\\")) {
    target.replace(0, 8, L"\\\\");
  } else if (target.starts_with(L"\\??\\")) {
    target.erase(0, 4);
  }
  return target;
}

// A link met on the way.
struct Link {
  std::filesystem::path path;       // the link, as messages name it
  std::filesystem::path folder;     // the folder that holds it
  std::filesystem::path target;     // where it leads
  std::filesystem::path remainder;  // the components after it
};

// The outcome of one walk from a root: the folder that holds the final
// name (invalid when a folder on the way does not exist), or a link.
struct Walk {
  WindowsHandle folder;
  std::optional<Link> link;
};

// Opens the start of `path`: its root (a drive's root, a share), or the
// current folder for a relative path.
WindowsHandle openStart(const std::filesystem::path& start, ACCESS_MASK access) {
  return WindowsHandle(::CreateFileW(start.c_str(), access, shareAll, nullptr, OPEN_EXISTING,
                                     FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

// Opens the folder `name` (empty: `parent` again) relative to `parent`,
// with the rights to change it when `last` and the account may.
WindowsHandle openFolder(HANDLE parent, const std::wstring& name, bool last) {
  if (last) {
    WindowsHandle writable =
        WindowsHandle::openRelative(parent, name, finalFolderAccess, shareAll, FILE_OPEN, 0);
    if (writable.valid() || ::GetLastError() != ERROR_ACCESS_DENIED) return writable;
  }
  return WindowsHandle::openRelative(parent, name, folderAccess, shareAll, FILE_OPEN, 0);
}

// Splits `path` into where a walk starts and the components after it.
// A relative path starts at the current folder; ".." and "." are taken
// away as the system takes them away, by the text.
std::pair<std::filesystem::path, std::vector<std::wstring>> split(
    const std::filesystem::path& path) {
  std::filesystem::path full = path;
  if (path.has_root_name() || path.has_root_directory()) {
    full = std::filesystem::absolute(path);
  } else {
    full = path.lexically_normal();
    if (!full.empty() && *full.begin() == "..") full = std::filesystem::absolute(path);
  }
  std::filesystem::path start = full.has_root_path() ? full.root_path() : ".";
  std::vector<std::wstring> components;
  for (const auto& component : full.relative_path()) {
    if (component.empty() || component == ".") continue;
    components.push_back(component.native());
  }
  // "\\server\share\": the share is part of the start.
  const std::wstring rootName = full.root_name().native();
  if (rootName.size() > 2 && (rootName[0] == L'\\' || rootName[0] == L'/') &&
      (rootName[1] == L'\\' || rootName[1] == L'/') && rootName != L"\\\\?" &&
      rootName != L"\\\\." && !components.empty()) {
    start = std::filesystem::path(rootName + L"\\" + components.front() + L"\\");
    components.erase(components.begin());
  }
  return {start, components};
}

// Walks `path` from its start, one component at a time, up to the folder
// that holds the final component, and looks at the final component itself.
// Stops at the first link (symbolic link or junction), which is checked
// and read through the handle that opened it.
Walk walk(const std::filesystem::path& path, std::filesystem::path* folderPath,
          std::filesystem::path* name) {
  auto [start, components] = split(path);
  if (components.empty()) {
    throwNamesAFolder(path);
  }
  Walk result;
  *folderPath = path.parent_path().empty() ? std::filesystem::path(".") : path.parent_path();
  *name = path.filename();
  result.folder = openStart(start, components.size() == 1 ? finalFolderAccess : folderAccess);
  if (!result.folder.valid() && components.size() == 1 && ::GetLastError() == ERROR_ACCESS_DENIED) {
    result.folder = openStart(start, folderAccess);
  }
  if (!result.folder.valid()) {
    const DWORD error = ::GetLastError();
    if (meansNotFound(error)) return result;
    throwFileError("open the directory", start, errorOf(error));
  }
  std::filesystem::path walked = start == "." ? std::filesystem::path() : start;
  for (std::size_t index = 0; index < components.size(); ++index) {
    const bool final = index + 1 == components.size();
    const std::wstring& component = components[index];
    const std::filesystem::path here = walked / component;
    WindowsHandle item =
        final ? WindowsHandle::openRelative(result.folder.get(), component, FILE_READ_ATTRIBUTES,
                                            shareAll, FILE_OPEN, 0)
              : openFolder(result.folder.get(), component, index + 2 == components.size());
    if (!item.valid()) {
      const DWORD error = ::GetLastError();
      if (meansNotFound(error)) {
        // Nothing at the final name, or a folder on the way is missing.
        if (!final) result.folder.reset();
        return result;
      }
      // Something is at the final name that cannot be examined: reading
      // it will say why.
      if (final) return result;
      throwFileError("open the directory", here, errorOf(error));
    }
    FILE_ATTRIBUTE_TAG_INFO information{};
    if (!attributesOf(item.get(), &information)) {
      throwFileError("read the attributes of", here, lastSystemError());
    }
    const bool reparse = (information.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0;
    if (reparse && isLinkTag(information.ReparseTag)) {
      const std::filesystem::path linkFolder = walked.empty() ? std::filesystem::path(".") : walked;
      if (!onlyTrustedCanWrite(result.folder.get(), linkFolder)) {
        throw UntrustedLinkError(core::format(
            "the symbolic link \"{}\" is in the folder \"{}\", which another account than "
            "SYSTEM, the Administrators and the account running this program can write, and is "
            "not followed",
            printable(here), printable(linkFolder)));
      }
      Link link{here, linkFolder, readLinkTarget(item.get(), here), {}};
      for (std::size_t rest = index + 1; rest < components.size(); ++rest) {
        link.remainder /= components[rest];
      }
      result.link = std::move(link);
      return result;
    }
    if (final) return result;
    // A file where a folder was expected: the folder does not exist.
    if ((information.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
      result.folder.reset();
      return result;
    }
    result.folder = std::move(item);
    walked = here;
  }
  return result;
}

}  // namespace

ResolvedPath::ResolvedPath(const std::filesystem::path& path) {
  const std::filesystem::path::string_type& text = path.native();
  if (path.empty() || !path.has_filename() || path.filename() == "." || path.filename() == ".." ||
      text.back() == L'\\' || text.back() == L'/') {
    throwNamesAFolder(path);
  }
  std::filesystem::path current = path;
  for (int followed = 0;; ++followed) {
    Walk result = walk(current, &folderPath_, &name_);
    if (!result.link) {
      path_ = current;
      folder_ = reinterpret_cast<File::NativeHandle>(result.folder.release());
      return;
    }
    if (followed == maxLinksFollowed) {
      throwFileError("follow the links of", path,
                     std::make_error_code(std::errc::too_many_symbolic_link_levels));
    }
    const Link& link = *result.link;
    std::filesystem::path next =
        link.target.is_absolute() || link.target.has_root_path()
            ? link.target
            : (link.folder == "." ? link.target : link.folder / link.target);
    if (!link.remainder.empty()) next /= link.remainder;
    current = next.lexically_normal();
    if (!current.has_filename()) current = current.parent_path();
  }
}

ResolvedPath::~ResolvedPath() {
  if (folder_ != File::invalidHandle) ::CloseHandle(reinterpret_cast<HANDLE>(folder_));
}

bool ResolvedPath::exists() const {
  if (!folderExists()) return false;
  const WindowsHandle item =
      WindowsHandle::openRelative(reinterpret_cast<HANDLE>(folder_), name_.native(),
                                  FILE_READ_ATTRIBUTES, shareAll, FILE_OPEN, 0);
  if (item.valid()) return true;
  const DWORD error = ::GetLastError();
  if (meansNotFound(error)) return false;
  // Something is there that this account may not look at, or that is being
  // removed.
  if (error == ERROR_ACCESS_DENIED || error == ERROR_SHARING_VIOLATION) return true;
  throwFileError("read the attributes of", path_, errorOf(error));
}

std::optional<File> ResolvedPath::openRegularFile() const {
  if (!folderExists()) return std::nullopt;
  // First only examined: nothing that is no regular file is opened for
  // reading (which could have effects on a device).
  const WindowsHandle examined =
      WindowsHandle::openRelative(reinterpret_cast<HANDLE>(folder_), name_.native(),
                                  FILE_READ_ATTRIBUTES | READ_CONTROL, shareAll, FILE_OPEN, 0);
  if (!examined.valid()) {
    const DWORD error = ::GetLastError();
    if (meansNotFound(error)) return std::nullopt;
    throwFileError("open", path_, errorOf(error));
  }
  FILE_ATTRIBUTE_TAG_INFO information{};
  if (!attributesOf(examined.get(), &information)) throwFileError("open", path_, lastSystemError());
  if ((information.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
    detail::throwChangedDuringRun(path_);
  if ((information.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) throwNotRegular(path_, true);
  // Then opened for reading through the handle examined, so that the file
  // read is the file examined. Delete sharing: another run may replace
  // the file while this one reads.
  WindowsHandle file = WindowsHandle::openRelative(examined.get(), L"", GENERIC_READ | READ_CONTROL,
                                                   shareAll, FILE_OPEN, FILE_NON_DIRECTORY_FILE);
  if (!file.valid()) throwFileError("open", path_, lastSystemError());
  if (!attributesOf(file.get(), &information)) throwFileError("open", path_, lastSystemError());
  if ((information.FileAttributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0)
    detail::throwChangedDuringRun(path_);
  if ((information.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ||
      ::GetFileType(file.get()) != FILE_TYPE_DISK) {
    throwNotRegular(path_, (information.FileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0);
  }
  return File(reinterpret_cast<File::NativeHandle>(file.release()), path_);
}

}  // namespace korvane::utils::io
