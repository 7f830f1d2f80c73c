// How long an entry stands in the pool's queue, for the trace: from its making until a worker takes it. The time for which its
// caller waits to get it into the queue is part of it.
//
// Threads: one at a time.
// Errors: none.
#pragma once

#include "concurrency/base/trace.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

class TracedQueueTime {
  public:
    explicit TracedQueueTime(const Task& task) {
        if (IsTracing()) {
            Begin(task);
        }
    }
    TracedQueueTime(const TracedQueueTime&) = delete;
    TracedQueueTime& operator=(const TracedQueueTime&) = delete;

    // Not under a lock.
    void TakenByWorker(const Task& task) noexcept {
        if (m_isOpen) {
            End(task, L"taken");
        }
    }

    // Nothing if a worker has taken it.
    void Dropped(const Task& task) noexcept {
        if (m_isOpen) {
            End(task, L"dropped");
        }
    }

  private:
    void Begin(const Task& task);
    void End(const Task& task, const wchar_t* result);

    bool m_isOpen = false;
};

}  // namespace Orvane::Internal
