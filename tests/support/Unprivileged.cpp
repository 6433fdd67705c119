#include "tests/support/Unprivileged.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

namespace korvane::testing {

namespace {

constexpr uid_t nobodyUser = 65534;
constexpr gid_t nobodyGroup = 65534;

}  // namespace

void runUnprivileged(const std::function<void()>& body,
                     const std::vector<std::filesystem::path>& ownedPaths) {
  if (::geteuid() != 0) {
    body();
    return;
  }
  std::fflush(nullptr);
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (const auto& path : ownedPaths) {
      if (::chown(path.c_str(), nobodyUser, nobodyGroup) != 0) ::_exit(3);
    }
    if (::setgroups(0, nullptr) != 0 || ::setgid(nobodyGroup) != 0 || ::setuid(nobodyUser) != 0) {
      ::_exit(4);
    }
    body();
    std::fflush(nullptr);
    ::_exit(::testing::Test::HasFailure() ? 1 : 0);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status)) << "the unprivileged part died";
  EXPECT_EQ(WEXITSTATUS(status), 0) << "the unprivileged part failed (3, 4: could not drop rights)";
}

}  // namespace korvane::testing
