// Rewrites a password file again and again through PasswordFile::write, so
// that a test can kill it at any moment of a replacement.
//
//   PasswordFileRewriter <password file>
//
// The file's first and last entries hold "generation <n>". Each round
// stores the next generation in both and replaces the file, then prints
// "wrote <n>". "ready" is printed once the file has been read.
#include <charconv>
#include <cstdio>
#include <exception>
#include <string>

#include "setUserPassword/PasswordFile.h"

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
  PasswordFile file(path);
  file.read();
  const auto& entries = file.entries();
  if (entries.size() < 3) {
    std::fputs("the file needs at least two user entries after \"$schema\"\n", stderr);
    return 1;
  }
  const auto first = entries[1].uuid();
  const auto last = entries.back().uuid();
  std::printf("ready\n");
  std::fflush(stdout);
  for (unsigned long generation = generationOf(entries[1].value()) + 1;; ++generation) {
    const std::string value = "generation " + std::to_string(generation);
    file.set(first, value);
    file.set(last, value);
    file.write();
    std::printf("wrote %lu\n", generation);
    std::fflush(stdout);
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
