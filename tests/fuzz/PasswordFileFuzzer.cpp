// Reads arbitrary bytes as a password file, sets or removes one entry,
// writes the file back through the real replacement (temporary file,
// rename) and reads it again: every entry must come back with its name and
// value, in order, and the changed UUID must have exactly one entry after a
// set and none after a removal.
//
// Before that, the fast pass of read() (skim) is compared with the exact
// one (readFrom) on the same bytes: where the skim reads the file, the exact
// pass must read it too, to the same entries. The skim runs on the whole
// input and on pieces of a few bytes in a small window (both chosen from
// the input's length); a small window may give up where the usual one
// reads, never the other way round.
//
// The files live in a directory under /dev/shm (memory) when there is one.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <exception>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "tests/utils/json/MemoryStreams.h"
#include "utils/core/Uuid.h"

namespace {

using korvane::setUserPassword::PasswordFile;
using korvane::utils::core::Uuid;

void check(bool condition) {
  if (!condition) __builtin_trap();
}

const std::filesystem::path& directory() {
  static const std::filesystem::path path = [] {
    const std::filesystem::path base = std::filesystem::is_directory("/dev/shm")
                                           ? "/dev/shm"
                                           : std::filesystem::temp_directory_path();
    std::string pattern = (base / "korvane-fuzz-XXXXXX").string();
    check(::mkdtemp(pattern.data()) != nullptr);
    std::atexit([] { std::filesystem::remove_all(directory()); });
    return std::filesystem::path(pattern);
  }();
  return path;
}

void store(const std::filesystem::path& path, const std::uint8_t* data, std::size_t size) {
  FILE* file = std::fopen(path.c_str(), "wb");
  check(file != nullptr);
  check(std::fwrite(data, 1, size, file) == size);
  check(std::fclose(file) == 0);
}

std::size_t count(const std::deque<PasswordFile::Entry>& entries, const Uuid& uuid) {
  std::size_t found = 0;
  for (const auto& entry : entries) found += entry.uuid() == uuid ? 1 : 0;
  return found;
}

// The UUID to change: one the file already has (chosen by the input's
// size), or a fixed one.
Uuid chooseUuid(const std::deque<PasswordFile::Entry>& entries, std::size_t size) {
  std::vector<Uuid> present;
  for (const auto& entry : entries) {
    if (!entry.uuid().isNull()) present.push_back(entry.uuid());
  }
  if (!present.empty() && size % 3 != 0) return present[size % present.size()];
  return *Uuid::fromString("3f2504e0-4f89-41d3-9a0c-0305e82c3301");
}

bool sameEntries(const PasswordFile& a, const PasswordFile& b) {
  if (a.entries().size() != b.entries().size()) return false;
  for (std::size_t i = 0; i < a.entries().size(); ++i) {
    const auto& x = a.entries()[i];
    const auto& y = b.entries()[i];
    if (x.name() != y.name() || x.value() != y.value() || !(x.uuid() == y.uuid())) return false;
  }
  return true;
}

void compareThePasses(const std::string& content) {
  using korvane::utils::json::test::PieceReader;
  PasswordFile exact("passwords.json");
  bool exactRead = true;
  try {
    korvane::utils::json::test::MemoryInputStream stream(content);
    exact.readFrom(stream);
  } catch (const std::exception&) {
    exactRead = false;
  }
  PasswordFile whole("passwords.json");
  const bool wholeRead = whole.skim(PieceReader(content));
  const std::size_t piece = 1 + content.size() % 7;
  PasswordFile pieces("passwords.json");
  const bool piecesRead = pieces.skim(PieceReader(content, piece, piece), 16 + content.size() % 61);
  if (wholeRead) check(exactRead && sameEntries(whole, exact));
  if (piecesRead) check(wholeRead && sameEntries(pieces, exact));
  if (!wholeRead) check(whole.entries().empty());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  compareThePasses(std::string(reinterpret_cast<const char*>(data), size));
  const std::filesystem::path path = directory() / "passwords.json";
  store(path, data, size);
  PasswordFile file(path);
  try {
    file.read();
  } catch (const std::exception&) {
    return 0;  // refused; nothing is written
  }
  const Uuid uuid = chooseUuid(file.entries(), size);
  const bool remove = size % 2 == 1;
  if (remove) {
    file.erase(uuid);
    check(count(file.entries(), uuid) == 0);
  } else {
    file.set(uuid, "$6$fuzz$" + std::to_string(size));
    check(count(file.entries(), uuid) == 1);
  }
  file.write();
  // Nothing but the password file is left in the directory.
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory())) {
    ++files;
  }
  check(files == 1);

  PasswordFile again(path);
  again.read();
  check(again.entries().size() == file.entries().size());
  for (std::size_t i = 0; i < file.entries().size(); ++i) {
    const auto& written = file.entries()[i];
    const auto& read = again.entries()[i];
    check(read.name() == written.name() && read.value() == written.value() &&
          read.uuid() == written.uuid());
  }
  return 0;
}
