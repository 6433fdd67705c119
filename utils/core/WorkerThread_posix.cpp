#include <pthread.h>
#include <signal.h>

#include <utility>

#include "utils/core/WorkerThread.h"

namespace korvane::utils::core {

namespace {

// Blocks every signal in the calling thread for its lifetime, then restores
// the mask it found; a thread started meanwhile inherits the full mask.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t previous_{};
};

}  // namespace

WorkerThread::WorkerThread(std::function<void()> task) {
  const AllSignalsBlocked blocked;
  thread_ = std::thread(std::move(task));
}

}  // namespace korvane::utils::core
