#include "tests/hardening/Attacker.h"

#include <grp.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <stdexcept>

namespace korvane::hardening {

Attacker::Attacker(const std::function<void()>& prepare, const std::function<void()>& finish,
                   Account account) {
  int ready[2];
  int go[2];
  if (::pipe(ready) != 0 || ::pipe(go) != 0) throw std::runtime_error("pipe");
  std::fflush(nullptr);
  pid_ = ::fork();
  if (pid_ == 0) {
    // The test's failures before the fork are copied too: only new ones are
    // the attacker's.
    const bool failedBefore = ::testing::Test::HasFailure();
    ::close(ready[0]);
    ::close(go[1]);
    if (::setgroups(0, nullptr) != 0 || ::setgid(account.group) != 0 ||
        ::setuid(account.user) != 0) {
      ::_exit(4);
    }
    prepare();
    if (::write(ready[1], "R", 1) != 1) ::_exit(5);
    char byte = 0;
    // The go byte or the end of the pipe: either starts the second step.
    [[maybe_unused]] const ssize_t got = ::read(go[0], &byte, 1);
    finish();
    ::_exit(::testing::Test::HasFailure() && !failedBefore ? 1 : 0);
  }
  ::close(ready[1]);
  ::close(go[0]);
  readyFd_ = ready[0];
  goFd_ = go[1];
}

Attacker::~Attacker() {
  if (pid_ > 0) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  ::close(readyFd_);
  if (goFd_ >= 0) ::close(goFd_);
}

bool Attacker::ready() const {
  pollfd fd{readyFd_, POLLIN, 0};
  char byte = 0;
  return ::poll(&fd, 1, 10000) == 1 && ::read(readyFd_, &byte, 1) == 1 && byte == 'R';
}

int Attacker::finish() {
  ::close(goFd_);
  goFd_ = -1;
  int status = 0;
  ::waitpid(pid_, &status, 0);
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

void asAttacker(const std::function<void()>& act) {
  Attacker attacker(act);
  ASSERT_TRUE(attacker.ready());
  EXPECT_EQ(attacker.finish(), 0) << "the attacker's own steps failed";
}

void mustSucceed(int result, const char* what) {
  if (result != 0) {
    std::perror(what);
    ADD_FAILURE() << what;
  }
}

}  // namespace korvane::hardening
