// Reads arbitrary bytes as a password file and sets or removes one entry
// by every way the tool has, each compared with the reference (the text
// decoded whole by the exact decoder, changed in memory and encoded again,
// tests/support/PasswordFileReference.h):
//   - the streamed copy (PasswordFile::copy), through the usual buffer and
//     through one of a few bytes (chosen from the input's length), writes
//     the reference's bytes, or both refuse the text with the same
//     message;
//   - the check-only copy agrees the same way;
//   - rewrite() through a real file writes the reference's bytes, or throws
//     where the reference refuses and leaves the file as it was, and in
//     both cases leaves no other file beside it.
// The change is to the UUID of a member of the file (chosen by the input's
// size) or to a fixed one; odd sizes remove, even ones set.
//
// The files live in a directory under /dev/shm (memory) when there is one.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/PasswordFileReference.h"
#include "utils/core/Uuid.h"

namespace {

using korvane::setUserPassword::PasswordChange;
using korvane::setUserPassword::PasswordFile;
using korvane::testing::copyPass;
using korvane::testing::PassOutcome;
using korvane::testing::referencePass;
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

void store(const std::filesystem::path& path, const std::string& content) {
  FILE* file = std::fopen(path.c_str(), "wb");
  check(file != nullptr);
  check(std::fwrite(content.data(), 1, content.size(), file) == content.size());
  check(std::fclose(file) == 0);
}

std::string load(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  check(file.good());
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The UUID to change: one the file has (chosen by the input's size), or a
// fixed one. The tool never changes the nil UUID (users.json may not hold
// it), so neither does this.
Uuid chooseUuid(const std::string& content, std::size_t size) {
  std::vector<Uuid> present;
  try {
    for (const auto& member : korvane::testing::decodePasswordFile(content)) {
      if (member.uuid && !member.uuid->isNull()) present.push_back(*member.uuid);
    }
  } catch (const std::runtime_error&) {
    // Refused: the fixed UUID.
  }
  if (!present.empty() && size % 3 != 0) return present[size % present.size()];
  return *Uuid::fromString("3f2504e0-4f89-41d3-9a0c-0305e82c3301");
}

void comparePasses(const std::string& content, const PasswordChange& change) {
  const PassOutcome reference = referencePass(content, &change);
  const PassOutcome referenceCheck = referencePass(content);
  check(reference.accepted == referenceCheck.accepted);

  const std::size_t buffer = 1 + content.size() % 7;
  check(copyPass(content, &change) == reference);
  check(copyPass(content, &change, buffer) == reference);
  check(copyPass(content) == referenceCheck);
  check(copyPass(content, nullptr, buffer) == referenceCheck);
}

void compareRewrite(const std::string& content, const PasswordChange& change) {
  const PassOutcome reference = referencePass(content, &change);
  const std::filesystem::path path = directory() / "passwords.json";
  store(path, content);
  const PasswordFile file(path);
  bool checked = true;
  try {
    file.check();
  } catch (const std::runtime_error&) {
    checked = false;
  }
  check(checked == reference.accepted);
  bool rewritten = true;
  try {
    file.rewrite(change);
  } catch (const std::runtime_error&) {
    rewritten = false;
  }
  check(rewritten == reference.accepted);
  check(load(path) == (rewritten ? reference.text : content));
  // Nothing but the password file is left in the directory.
  std::size_t files = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(directory())) {
    ++files;
  }
  check(files == 1);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string content(reinterpret_cast<const char*>(data), size);
  const std::string hash = "$6$fuzz$" + std::to_string(size);
  const PasswordChange change{chooseUuid(content, size),
                              size % 2 == 1 ? std::nullopt : std::optional<std::string_view>(hash)};
  comparePasses(content, change);
  compareRewrite(content, change);
  return 0;
}
