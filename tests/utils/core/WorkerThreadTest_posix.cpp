#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>

#include "utils/core/WorkerThread.h"

namespace korvane::utils::core {
namespace {

sigset_t currentMask() {
  sigset_t mask;
  sigemptyset(&mask);
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  return mask;
}

TEST(WorkerThreadTest, TheTaskRunsWithEverySignalBlockedAndTheCallersMaskIsKept) {
  const sigset_t before = currentMask();
  ASSERT_EQ(sigismember(&before, SIGINT), 0);
  sigset_t seen;
  sigemptyset(&seen);
  {
    WorkerThread worker([&] { seen = currentMask(); });
  }
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGPIPE, SIGTSTP, SIGWINCH}) {
    EXPECT_EQ(sigismember(&seen, signal), 1) << signal;
  }
  const sigset_t after = currentMask();
  for (int signal = 1; signal < NSIG; ++signal) {
    EXPECT_EQ(sigismember(&after, signal), sigismember(&before, signal)) << signal;
  }
}

TEST(WorkerThreadTest, JoinWaitsForTheTaskAndMayBeRepeated) {
  std::atomic<int> runs{0};
  WorkerThread worker([&] { ++runs; });
  worker.join();
  EXPECT_EQ(runs.load(), 1);
  worker.join();
  EXPECT_EQ(runs.load(), 1);
}

}  // namespace
}  // namespace korvane::utils::core
