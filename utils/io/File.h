// File: an open operating-system file, closed when the object goes away.
//
// Every failure of the system calls behind it becomes an exception naming
// the operation, the file and the system's reason (see SystemError.h); a
// file that does not exist when opened for reading is a FileNotFoundError.
// Interrupted calls are retried.
//
// Thread safety: one object must not be used from two threads at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <span>
#include <utility>

namespace korvane::utils::io {

class File {
 public:
  // The process's standard streams. They are not closed by the File.
  enum class PseudoFile : int { standardInput = 0, standardOutput = 1, standardError = 2 };

  enum class Access : int {
    read = 0,              // existing file, reading
    createOrTruncate = 1,  // create the file, or empty an existing one, for writing
    // Create a new file for writing. Fails when anything is at the path
    // already, a symbolic link included, which is never followed.
    createNew = 2,
  };

  // Mode bits a new file is created with (before the process's umask).
  static constexpr std::filesystem::perms defaultCreatePermissions =
      std::filesystem::perms::owner_read | std::filesystem::perms::owner_write |
      std::filesystem::perms::group_read | std::filesystem::perms::others_read;

  // A descriptor on POSIX, a HANDLE on Windows.
  using NativeHandle = std::intptr_t;

  explicit File(PseudoFile pseudoFile);

  // Opens `path`. Reading a file that does not exist throws
  // FileNotFoundError; every other failure throws std::system_error (with
  // createNew, std::errc::file_exists when something is at the path).
  // Opening does not block on a FIFO without a writer; reading it then
  // sees the end of input.
  File(const std::filesystem::path& path, Access access,
       std::filesystem::perms createPermissions = defaultCreatePermissions);

  // Takes ownership of an open `handle`; `path` names it in messages.
  File(NativeHandle handle, std::filesystem::path path) noexcept;

  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Closes the file; a failure here is not reported (call close() for that).
  ~File();

  // Reads at most into.size() bytes; 0 means the end of input.
  std::size_t read(std::span<char> into);

  // Writes every byte of `bytes`.
  void write(std::span<const char> bytes);

  // Makes the written data durable (fsync, FlushFileBuffers).
  void sync();

  // Sets the file's mode bits exactly, whatever the umask (no-op on Windows).
  void setPermissions(std::filesystem::perms permissions);

  // Whether the file is a regular (disk) file, whose content can be read
  // again from the start after rewind(); false for a pipe, a FIFO, a
  // terminal or a device.
  bool isRegularFile() const;

  // The size of a regular file, in bytes.
  std::uint64_t size() const;

  // Moves the read and write position back to the start of the file.
  // REQUIRES: isRegularFile().
  void rewind();

  // Closes the file, reporting a failure. Closing twice does nothing.
  void close();

  bool isOpen() const noexcept { return handle_ != invalidHandle; }

  // The path opened, or a description such as "standard input" for a
  // pseudo file; used in error messages.
  const std::filesystem::path& path() const noexcept { return path_; }

  NativeHandle nativeHandle() const noexcept { return handle_; }

  // Gives up the open handle, which the caller then owns and closes.
  NativeHandle releaseHandle() noexcept { return std::exchange(handle_, invalidHandle); }

  // What stands for no open file (-1, INVALID_HANDLE_VALUE).
  static const NativeHandle invalidHandle;

 private:
  // The description that stands for a pseudo file's path in messages.
  static const char* pseudoFileName(PseudoFile pseudoFile) noexcept;

  // Closes an owned open handle without reporting a failure.
  void release() noexcept;

  std::filesystem::path path_;
  NativeHandle handle_;
  bool owned_;
};

}  // namespace korvane::utils::io
