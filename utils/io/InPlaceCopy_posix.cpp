#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "utils/core/Format.h"
#include "utils/core/PosixCall.h"
#include "utils/filesystem/PrintablePath.h"
#include "utils/io/FileAttributes.h"
#include "utils/io/InPlaceCopy.h"
#include "utils/io/PosixDescriptor.h"
#include "utils/io/ResolvedPath.h"
#include "utils/io/SystemError.h"

namespace korvane::utils::io::detail {

using core::retryOnInterrupt;

namespace {

// The in-place copy moves the content in pieces of this size.
constexpr std::size_t copyBufferSize = 64 * 1024;

std::string printable(const std::filesystem::path& path) { return filesystem::toPrintable(path); }

// A failed step of the in-place copy: the text names both files, says that
// the target may be incomplete and where the complete new file is, and
// ends with the step that failed (operation, file and, appended by
// std::system_error, the system's reason).
[[noreturn]] void throwCopyError(const InPlaceCopy& copy, std::string_view operation,
                                 const std::filesystem::path& file, std::error_code code) {
  const std::string from = printable(copy.from);
  const std::string to = printable(copy.to);
  throw std::system_error(
      code, core::format("could not copy \"{}\" over \"{}\" in place (rename: {}): \"{}\" may "
                         "be incomplete, the complete new file remains at \"{}\"; {}",
                         from, to, copy.renameError.message(), to, from,
                         describeFileOperation(operation, file)));
}

// Runs one step of the copy; its failure becomes the copy's error.
template <typename Step>
void copyStep(const InPlaceCopy& copy, std::string_view operation,
              const std::filesystem::path& file, Step step) {
  try {
    step();
  } catch (const std::system_error& error) {
    throwCopyError(copy, operation, file, error.code());
  }
}

// Opens `name` in `folder` with `flags` (never following a link) as a
// File named `path` in messages.
File openFileAt(int folder, const std::filesystem::path& name, int flags,
                const std::filesystem::path& path) {
  PosixDescriptor fd = openAt(folder, name.c_str(), flags | O_NOFOLLOW | O_NOCTTY);
  if (!fd.valid()) throwFileError("open", path, lastSystemError());
  return File(fd.release(), path);
}

}  // namespace

void copyInPlace(const InPlaceCopy& copy, const ReplacedFile& written,
                 const ReplacedFile& replaced) {
  std::optional<File> source;
  std::optional<File> target;
  copyStep(copy, "open", copy.from, [&] {
    source.emplace(openFileAt(copy.folder, copy.fromName, O_RDONLY | O_NONBLOCK, copy.from));
  });
  struct stat opened {};
  if (::fstat(static_cast<int>(source->nativeHandle()), &opened) != 0 ||
      !isSameFile(opened, written)) {
    throwChangedDuringRun(copy.from);
  }
  copyStep(copy, "open", copy.to, [&] {
    target.emplace(openFileAt(copy.folder, copy.toName, O_WRONLY | O_NONBLOCK, copy.to));
  });
  const int fd = static_cast<int>(target->nativeHandle());
  if (::fstat(fd, &opened) != 0 || !isSameFile(opened, replaced)) throwChangedDuringRun(copy.to);
  if (opened.st_nlink != 1) {
    throw std::runtime_error(core::format(
        "\"{}\" has other names (hard links), which a copy in place would change too; nothing "
        "was replaced, the complete new file remains at \"{}\"",
        printable(copy.to), printable(copy.from)));
  }
  std::vector<char> buffer(copyBufferSize);
  off_t length = 0;
  for (;;) {
    std::size_t got = 0;
    copyStep(copy, "read", copy.from, [&] { got = source->read(buffer); });
    if (got == 0) break;
    copyStep(copy, "write", copy.to, [&] { target->write(std::span(buffer).first(got)); });
    length += static_cast<off_t>(got);
  }
  if (retryOnInterrupt([&] { return ::ftruncate(fd, length); }) != 0) {
    throwCopyError(copy, "truncate", copy.to, lastSystemError());
  }
  copyStep(copy, "sync", copy.to, [&] { target->sync(); });
  copyStep(copy, "close", copy.to, [&] { target->close(); });
  // The complete copy of the new content is no longer needed.
  if (retryOnInterrupt([&] { return ::unlinkat(copy.folder, copy.fromName.c_str(), 0); }) != 0) {
    throw std::system_error(lastSystemError(), describeFileOperation("remove", copy.from) +
                                                   " after copying it over \"" +
                                                   printable(copy.to) +
                                                   "\" (the new file is in place)");
  }
}

}  // namespace korvane::utils::io::detail
