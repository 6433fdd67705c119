#include <windows.h>

#include <utility>

#include "utils/io/File.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io {

namespace {

HANDLE toHandle(File::NativeHandle handle) { return reinterpret_cast<HANDLE>(handle); }

File::NativeHandle fromHandle(HANDLE handle) {
  return reinterpret_cast<File::NativeHandle>(handle);
}

DWORD desiredAccess(File::Access access) {
  switch (access) {
    case File::Access::read:
      return GENERIC_READ;
    case File::Access::createOrTruncate:
      return GENERIC_WRITE;
    case File::Access::createNew:
      return GENERIC_WRITE;
  }
  return GENERIC_READ;
}

DWORD creationDisposition(File::Access access) {
  switch (access) {
    case File::Access::read:
      return OPEN_EXISTING;
    case File::Access::createOrTruncate:
      return CREATE_ALWAYS;
    // Fails on any name that exists, a link included, without following it.
    case File::Access::createNew:
      return CREATE_NEW;
  }
  return OPEN_EXISTING;
}

// Others may read, and may delete or replace the file while it is open: a
// run that reads users.json or a password file never makes another
// program's replace of it fail. A file opened only to be read lets others
// write it too, so that a program holding it open for writing does not make
// the read fail; a file this program writes is shared for reading only.
DWORD shareMode(File::Access access) {
  const DWORD readAndDelete = FILE_SHARE_READ | FILE_SHARE_DELETE;
  return access == File::Access::read ? readAndDelete | FILE_SHARE_WRITE : readAndDelete;
}

DWORD standardHandleId(File::PseudoFile pseudoFile) {
  switch (pseudoFile) {
    case File::PseudoFile::standardInput:
      return STD_INPUT_HANDLE;
    case File::PseudoFile::standardOutput:
      return STD_OUTPUT_HANDLE;
    case File::PseudoFile::standardError:
      return STD_ERROR_HANDLE;
  }
  return STD_INPUT_HANDLE;
}

bool isMissing(std::error_code code) {
  return code.value() == ERROR_FILE_NOT_FOUND || code.value() == ERROR_PATH_NOT_FOUND;
}

}  // namespace

const File::NativeHandle File::invalidHandle =
    reinterpret_cast<File::NativeHandle>(INVALID_HANDLE_VALUE);

File::File(PseudoFile pseudoFile)
    : path_(pseudoFileName(pseudoFile)),
      handle_(fromHandle(::GetStdHandle(standardHandleId(pseudoFile)))),
      owned_(false) {
  if (handle_ == 0) handle_ = invalidHandle;
}

File::File(const std::filesystem::path& path, Access access, std::filesystem::perms)
    : path_(path), handle_(invalidHandle), owned_(true) {
  const HANDLE handle =
      ::CreateFileW(path.c_str(), desiredAccess(access), shareMode(access), nullptr,
                    creationDisposition(access), FILE_ATTRIBUTE_NORMAL, nullptr);
  if (handle == INVALID_HANDLE_VALUE) {
    const std::error_code code = lastSystemError();
    if (access == Access::read && isMissing(code)) {
      throwFileError("open", path, std::make_error_code(std::errc::no_such_file_or_directory),
                     true);
    }
    throwFileError("open", path, code);
  }
  handle_ = fromHandle(handle);
}

void File::release() noexcept {
  if (owned_ && isOpen()) ::CloseHandle(toHandle(handle_));
}

std::size_t File::read(std::span<char> into) {
  DWORD got = 0;
  const auto wanted = static_cast<DWORD>(std::min<std::size_t>(into.size(), 1u << 30));
  if (!::ReadFile(toHandle(handle_), into.data(), wanted, &got, nullptr)) {
    const DWORD error = ::GetLastError();
    // A pipe whose writer has gone is the end of input, not a failure.
    if (error == ERROR_BROKEN_PIPE || error == ERROR_HANDLE_EOF) return 0;
    throwFileError("read", path_, {static_cast<int>(error), std::system_category()});
  }
  return got;
}

void File::write(std::span<const char> bytes) {
  while (!bytes.empty()) {
    DWORD done = 0;
    const auto chunk = static_cast<DWORD>(std::min<std::size_t>(bytes.size(), 1u << 30));
    if (!::WriteFile(toHandle(handle_), bytes.data(), chunk, &done, nullptr)) {
      throwFileError("write", path_, lastSystemError());
    }
    bytes = bytes.subspan(done);
  }
}

void File::sync() {
  if (!::FlushFileBuffers(toHandle(handle_))) throwFileError("sync", path_, lastSystemError());
}

void File::setPermissions(std::filesystem::perms) {}

bool File::isRegularFile() const { return ::GetFileType(toHandle(handle_)) == FILE_TYPE_DISK; }

std::uint64_t File::size() const {
  LARGE_INTEGER size{};
  if (!::GetFileSizeEx(toHandle(handle_), &size)) throwFileError("stat", path_, lastSystemError());
  return static_cast<std::uint64_t>(size.QuadPart);
}

void File::rewind() {
  LARGE_INTEGER start{};
  if (!::SetFilePointerEx(toHandle(handle_), start, nullptr, FILE_BEGIN)) {
    throwFileError("rewind", path_, lastSystemError());
  }
}

void File::close() {
  if (!isOpen()) return;
  const HANDLE handle = toHandle(std::exchange(handle_, invalidHandle));
  if (owned_ && !::CloseHandle(handle)) throwFileError("close", path_, lastSystemError());
}

}  // namespace korvane::utils::io
