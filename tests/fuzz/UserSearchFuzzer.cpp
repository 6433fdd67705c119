// Feeds arbitrary bytes to the user search as the content of users.json.
//
// The input lives in an in-memory file (memfd) that the search opens by its
// /proc path, so no disk is touched. Every outcome is either a non-null
// UUID or an exception derived from std::exception; anything else (a crash,
// a sanitizer report, another exception type) is a finding.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <string>

#include "setUserPassword/UserConfiguration.h"

namespace {

int memoryFile() {
  static const int fd = ::memfd_create("users.json", MFD_CLOEXEC);
  return fd;
}

bool store(const std::uint8_t* data, std::size_t size) {
  const int fd = memoryFile();
  if (fd < 0 || ::ftruncate(fd, 0) != 0) return false;
  std::size_t done = 0;
  while (done < size) {
    const ssize_t written = ::pwrite(fd, data + done, size - done, static_cast<off_t>(done));
    if (written <= 0) return false;
    done += static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (!store(data, size)) __builtin_trap();
  static const std::filesystem::path path = "/proc/self/fd/" + std::to_string(memoryFile());
  try {
    const auto uuid = korvane::setUserPassword::findUser(path, "alice");
    if (uuid.isNull()) __builtin_trap();
  } catch (const std::exception&) {
    // Every refusal is an exception of this kind.
  }
  return 0;
}
