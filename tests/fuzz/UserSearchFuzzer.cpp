// Feeds arbitrary bytes to the user search as the content of users.json.
//
// The fast pass (UserSkim) is compared with the exact one (readUsers) on
// the same bytes: where the fast pass settles the search, the exact pass
// must read the whole input without an error and end with the same outcome
// (the same UUID, or the same error text). The fast pass runs twice, on the
// whole input in its usual window and on pieces of a few bytes in a small
// window (both chosen from the input's length), which must decide alike.
//
// Then the whole search runs on an in-memory file (memfd) that it opens by
// its /proc path, so no disk is touched. Every outcome is either a non-null
// UUID or an exception derived from std::exception; anything else (a crash,
// a sanitizer report, another exception type, a disagreement) is a finding.
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>

#include "setUserPassword/UserConfiguration.h"
#include "setUserPassword/UserSkim.h"
#include "tests/utils/json/MemoryStreams.h"

namespace {

using korvane::setUserPassword::UserTally;

constexpr std::string_view soughtName = "alice";

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

std::string outcomeOf(const UserTally& tally, const std::filesystem::path& path) {
  try {
    return "found " + tally.result(path).toString().str();
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

// The fast pass against the exact one on `content`.
void compareThePasses(const std::string& content) {
  const std::filesystem::path path = "users.json";
  std::optional<std::string> exact;  // only when the whole input was read
  try {
    korvane::utils::json::test::MemoryInputStream stream(content);
    exact = outcomeOf(korvane::setUserPassword::readUsers(stream, path, soughtName), path);
  } catch (const std::exception&) {
  }
  using korvane::utils::json::test::PieceReader;
  const auto whole = korvane::setUserPassword::UserSkim::run(PieceReader(content), soughtName);
  const std::size_t piece = 1 + content.size() % 7;
  const std::size_t window = 16 + content.size() % 61;
  const auto pieces = korvane::setUserPassword::UserSkim::run(PieceReader(content, piece, piece),
                                                              soughtName, window);
  if (whole) {
    if (!exact || outcomeOf(*whole, path) != *exact) __builtin_trap();
  }
  if (pieces) {
    if (!exact || outcomeOf(*pieces, path) != *exact) __builtin_trap();
    // A small window may give up where the usual one decides, never the
    // other way round.
    if (!whole) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  compareThePasses(std::string(reinterpret_cast<const char*>(data), size));
  if (!store(data, size)) __builtin_trap();
  static const std::filesystem::path path = "/proc/self/fd/" + std::to_string(memoryFile());
  try {
    const auto uuid = korvane::setUserPassword::findUser(path, soughtName);
    if (uuid.isNull()) __builtin_trap();
  } catch (const std::exception&) {
    // Every refusal is an exception of this kind.
  }
  return 0;
}
