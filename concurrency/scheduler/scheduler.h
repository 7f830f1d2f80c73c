// Hands scheduled tasks to the thread pool when they are due. Never runs task code on its own thread.
//
// Threads: one thread of its own. Destroy it on another.
// Errors: std::system_error (resource_unavailable_try_again) if the thread cannot be started. An exception on the
//     scheduler's thread ends the process.
// Lifetime: the destructor hands over what was due when it began, periods that were missed included, ends the thread and
//     reports what is left in the queue.
#pragma once

#include <memory>

#include "concurrency/base/last_words.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/scheduler/delay_report.h"
#include "concurrency/scheduler/scheduled_task_queue.h"

namespace Orvane::Internal {

class Scheduler {
  public:
    Scheduler();
    ~Scheduler() noexcept;
    Scheduler(const Scheduler&) = delete;
    Scheduler& operator=(const Scheduler&) = delete;

    // Where to insert. Shared, so that a late insert lands in a stopped queue and not in freed memory.
    const std::shared_ptr<ScheduledTaskQueue>& Queue() const { return m_queue; }

  private:
    void Run(TaskNote& note);
    void Dispatch(const Task& task, TaskNote& note);
    void HandOver(const Task& task);
    void StopAndJoin();

    const std::shared_ptr<ScheduledTaskQueue> m_queue;
    NativeThread m_thread;
    std::shared_ptr<DelayReport> m_delayReport;
};

}  // namespace Orvane::Internal
