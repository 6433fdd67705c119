// WorkerThread: a thread that runs one task beside the main thread, joined
// when the object goes away.
//
// The thread starts with every signal blocked: a signal meant for the
// process (Ctrl+C, a hang-up, a termination request) is then handled by the
// main thread, whose handlers restore the console before the process ends.
//
// Thread safety: the object itself belongs to the thread that made it.
#pragma once

#include <functional>
#include <thread>

namespace korvane::utils::core {

class WorkerThread {
 public:
  // Starts `task`, which must not throw. Throws std::system_error when the
  // system cannot start a thread.
  explicit WorkerThread(std::function<void()> task);
  ~WorkerThread() { join(); }
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;

  // Waits until the task has returned. Joining twice does nothing.
  void join() {
    if (thread_.joinable()) thread_.join();
  }

 private:
  std::thread thread_;
};

}  // namespace korvane::utils::core
