#include <utility>

#include "utils/core/WorkerThread.h"

namespace korvane::utils::core {

// Windows delivers console events (Ctrl+C, a closed console) on a thread of
// their own: there is no signal mask to set.
WorkerThread::WorkerThread(std::function<void()> task) : thread_(std::move(task)) {}

}  // namespace korvane::utils::core
