// A rewrite holds none of the file: a password file with one value of
// 64 MiB is rewritten while the process's peak resident memory grows by
// far less than the value. The peak is measured in a child process, whose
// peak starts at what it has when it is forked, so that nothing the test
// program did before counts.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <string>

#include "setUserPassword/PasswordFile.h"
#include "tests/support/ChildProcess.h"

namespace korvane::setUserPassword {
namespace {

using utils::core::Uuid;

constexpr std::size_t valueMiB = 64;
constexpr long growthLimitKiB = 16 * 1024;

// The process's peak resident size in KiB.
long peakKiB() {
  struct rusage usage {};
  ::getrusage(RUSAGE_SELF, &usage);
#if defined(__APPLE__)
  return usage.ru_maxrss / 1024;  // bytes there
#else
  return usage.ru_maxrss;
#endif
}

TEST(PasswordFileMemoryTest, AHugeValueIsRewrittenInLittleMemory) {
  korvane::testing::TemporaryDirectory directory;
  const std::filesystem::path path = directory.path() / "passwords.json";
  const std::string head = "{\n  \"$schema\": \"s\",\n  \"big\": \"";
  const std::string tail = "\",\n  \"11111111-2222-4333-8444-555555555555\": \"old\"\n}\n";
  const std::string chunk(1024 * 1024, 'v');
  {
    std::ofstream file(path, std::ios::binary);
    file << head;
    for (std::size_t i = 0; i < valueMiB; ++i) file << chunk;
    file << tail;
    ASSERT_TRUE(file.good());
  }

  int ends[2];
  ASSERT_EQ(::pipe(ends), 0);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    ::close(ends[0]);
    const long before = peakKiB();
    long growth = -1;
    try {
      PasswordFile(path).rewrite(
          {*Uuid::fromString("11111111-2222-4333-8444-555555555555"), std::string_view("new")});
      growth = peakKiB() - before;
    } catch (...) {
    }
    const bool sent = ::write(ends[1], &growth, sizeof growth) == sizeof growth;
    ::_exit(sent ? 0 : 1);
  }
  ::close(ends[1]);
  long growth = -2;
  const bool received = ::read(ends[0], &growth, sizeof growth) == sizeof growth;
  ::close(ends[0]);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ASSERT_TRUE(received);
  ASSERT_GE(growth, 0) << "the rewrite failed";
  EXPECT_LT(growth, growthLimitKiB) << "peak resident memory grew by " << growth << " KiB";
  ::testing::Test::RecordProperty("peakGrowthKiB", static_cast<int>(growth));

  // The file is the old one with the one value changed, read back in
  // pieces.
  std::ifstream file(path, std::ios::binary);
  std::string piece(head.size(), '\0');
  ASSERT_TRUE(file.read(piece.data(), static_cast<std::streamsize>(piece.size())));
  EXPECT_EQ(piece, head);
  piece.assign(chunk.size(), '\0');
  for (std::size_t i = 0; i < valueMiB; ++i) {
    ASSERT_TRUE(file.read(piece.data(), static_cast<std::streamsize>(piece.size())));
    ASSERT_EQ(piece, chunk) << "MiB " << i;
  }
  const std::string expectedTail = "\",\n  \"11111111-2222-4333-8444-555555555555\": \"new\"\n}\n";
  piece.assign(expectedTail.size() + 1, '\0');
  file.read(piece.data(), static_cast<std::streamsize>(piece.size()));
  EXPECT_EQ(piece.substr(0, static_cast<std::size_t>(file.gcount())), expectedTail);
}

}  // namespace
}  // namespace korvane::setUserPassword
