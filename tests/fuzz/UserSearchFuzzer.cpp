// Feeds arbitrary bytes to the user search as the content of users.json.
//
// The search (readUsers) reads the same bytes twice, through the usual
// buffer and through one of a few bytes (chosen from the input's length),
// so that every token is cut by a refill somewhere: both must end alike
// (the same UUID, or the same error text with its line and column).
//
// It also runs in two halves, a worker reading from a boundary (past the
// middle where there is one): the outcome must be the same.
//
// Then the whole search runs on an in-memory file (memfd) that it opens by
// its /proc path, so no disk is touched. Every outcome is either a non-null
// UUID or an exception derived from std::exception; anything else (a crash,
// a sanitizer report, another exception type, a disagreement) is a finding.
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "setUserPassword/SecondHalfSearch.h"
#include "setUserPassword/UserConfiguration.h"
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

// The search's outcome over `content` read through a buffer of `buffer`
// bytes.
std::string searchOutcome(const std::string& content, std::size_t buffer) {
  const std::filesystem::path path = "users.json";
  try {
    korvane::utils::json::test::MemoryInputStream stream(content, buffer);
    return outcomeOf(korvane::setUserPassword::readUsers(stream, path, soughtName), path);
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

// The search's outcome with a worker reading `content` from `boundary` on.
std::string searchInHalves(const std::string& content, std::size_t boundary) {
  const std::filesystem::path path = "users.json";
  try {
    korvane::setUserPassword::SecondHalfSearch secondHalf(
        [rest = content.substr(boundary)](const std::atomic<bool>&) {
          return std::make_unique<korvane::utils::json::test::MemoryInputStream>(rest, 3);
        },
        boundary, soughtName, path);
    korvane::utils::json::test::MemoryInputStream stream(content);
    return outcomeOf(korvane::setUserPassword::readUsers(stream, path, soughtName, &secondHalf),
                     path);
  } catch (const std::exception& error) {
    return std::string("error ") + error.what();
  }
}

// A boundary: the first from the middle on, else just after the first '}'.
std::optional<std::size_t> boundaryOf(const std::string& content) {
  const std::size_t middle = content.size() / 2;
  const auto found = korvane::setUserPassword::SecondHalfSearch::findBoundary(
      std::string_view(content).substr(middle));
  if (found) return middle + *found;
  const std::size_t close = content.find('}');
  if (close == std::string::npos) return std::nullopt;
  return close + 1;
}

void compareBuffers(const std::string& content) {
  const std::size_t small = 1 + content.size() % 7;
  const std::string outcome = searchOutcome(content, 64 * 1024);
  if (outcome != searchOutcome(content, small)) __builtin_trap();
  const std::optional<std::size_t> boundary = boundaryOf(content);
  if (boundary && searchInHalves(content, *boundary) != outcome) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  compareBuffers(std::string(reinterpret_cast<const char*>(data), size));
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
