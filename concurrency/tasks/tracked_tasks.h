// The tasks that trackers hold, so that all of them can be cancelled at once.
//
// Threads: any.
// Errors: std::system_error if a lock fails.
#pragma once

#include <memory>

#include "concurrency/base/intrusive_list.h"

namespace Orvane::Internal {

class TaskImpl;
struct TrackedTag;

// A task's entry in the list.
class TrackedTask : public ListHook<TrackedTag> {
  public:
    explicit TrackedTask(std::weak_ptr<TaskImpl> task);
    ~TrackedTask();
    TrackedTask(const TrackedTask&) = delete;
    TrackedTask& operator=(const TrackedTask&) = delete;

    // Calls `action` for each task that lives, the newest first, without a lock.
    template <typename Action>
    static void ForEach(Action action);

  private:
    static std::shared_ptr<TaskImpl> Next();
    static void BeginRound();

    const std::weak_ptr<TaskImpl> m_task;
};

template <typename Action>
void TrackedTask::ForEach(Action action) {
    BeginRound();
    while (const std::shared_ptr<TaskImpl> task = Next()) {
        action(*task);
    }
}

}  // namespace Orvane::Internal
