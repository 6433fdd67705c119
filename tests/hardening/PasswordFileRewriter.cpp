// Rewrites a password file again and again through PasswordFile::rewrite,
// so that a test can kill it at any moment of a replacement.
//
//   PasswordFileRewriter <password file>
//
// The file's first and last entries hold "generation <n>". Each round
// stores the next generation in the first entry (one replacement), then in
// the last (another), and prints "wrote <n>". So a whole file holds the
// same generation at both ends, or in the first entry the one after that
// of the last; a file left so is finished first. "ready" is printed once
// the file has been read.
#include <charconv>
#include <cstdio>
#include <exception>
#include <string>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/PasswordFileReference.h"
#include "utils/io/ReplacementLock.h"

namespace {

using korvane::setUserPassword::PasswordFile;

unsigned long generationOf(std::string_view value) {
  constexpr std::string_view prefix = "generation ";
  unsigned long generation = 0;
  if (value.starts_with(prefix)) {
    std::from_chars(value.data() + prefix.size(), value.data() + value.size(), generation);
  }
  return generation;
}

int rewrite(const char* path) {
  const korvane::testing::PasswordMembers members = korvane::testing::readPasswordFile(path);
  if (members.size() < 3 || !members[1].uuid || !members.back().uuid ||
      *members[1].uuid == *members.back().uuid) {
    std::fputs("the file needs two user entries after \"$schema\", first and last\n", stderr);
    return 1;
  }
  const auto first = *members[1].uuid;
  const auto last = *members.back().uuid;
  const PasswordFile file(path);
  // Each replacement as a run makes it, under the lock.
  const auto replace = [&](const korvane::utils::core::Uuid& uuid, unsigned long generation) {
    const korvane::utils::io::ReplacementLock lock(file.target());
    file.rewrite({uuid, "generation " + std::to_string(generation)});
  };
  const auto report = [](unsigned long generation) {
    std::printf("wrote %lu\n", generation);
    std::fflush(stdout);
  };
  std::printf("ready\n");
  std::fflush(stdout);
  unsigned long generation = generationOf(members[1].value);
  // A round that was cut short is finished first.
  if (generationOf(members.back().value) != generation) {
    replace(last, generation);
    report(generation);
  }
  for (++generation;; ++generation) {
    replace(first, generation);
    replace(last, generation);
    report(generation);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fputs("usage: PasswordFileRewriter <password file>\n", stderr);
    return 1;
  }
  try {
    return rewrite(argv[1]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "ERROR: %s\n", error.what());
    return 1;
  }
}
