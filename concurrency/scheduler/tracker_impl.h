// What the copies of a Tracker share: the tracked task, and the run-time companion of its work.
//
// Threads: the fields are not locked: set the task before the impl is shared or the task is inserted. Cancel() and
//     Wait() may then be called from any thread.
// Cancellation: Wait() is a cancellation point of the calling thread's own task.
// Errors: what the task's operations throw.
// Lifetime: the destructor cancels the task and waits for its run. It must not run inside that very run: the process
//     ends then (see Tracker).
#pragma once

#include <cstdint>
#include <functional>

#include "concurrency/base/export.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane::Internal {

class ORVANE_CONCURRENCY_API TrackerImpl : private ScheduledTask {
  public:
    TrackerImpl();
    TrackerImpl(const TrackerImpl&);
    TrackerImpl& operator=(const TrackerImpl&);
    ~TrackerImpl();

    using ScheduledTask::GetTask;
    using ScheduledTask::IsRecurrent;

    // Tracks another task from now on. The one before is let go, not cancelled.
    void SetTask(const ScheduledTask& task);

    // Nothing before SetTask().
    void Cancel();
    void Wait();

    // Runs `work` on behalf of the tracked task and makes a recurrent task runnable once more, whether `work` returned
    // or threw. Instantiated for std::function<void()>, whose empty value throws std::bad_function_call.
    template <typename Work>
    void UpdateWrapper(Work work);  // NOLINT(performance-unnecessary-value-param): a copy for each run

  private:
    friend struct FieldOrder;

    bool m_isTaskSet = false;
    std::uint32_t m_runsStarted = 0;  // by UpdateWrapper(), on the thread that runs the task
    std::uint32_t m_runsFinished = 0;  // the runs among them whose work returned
};

extern template void TrackerImpl::UpdateWrapper(std::function<void()> work);

}  // namespace Orvane::Internal
