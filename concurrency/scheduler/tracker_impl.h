// What the copies of a Tracker share: the tracked task, and UpdateWrapper(), through which its callable does its work.
//
// Not for callers.
//
// Threads: no lock guards the fields. Set the task before you share the impl or insert the task. Then any thread may call
//     Cancel() and Wait(). The run counters are for the runs alone: other threads may see old values.
// Waiting, cancellation, errors, lifetime: as with Tracker.
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

    // Tracks another task from now on. The task tracked before goes on, uncancelled.
    void SetTask(const ScheduledTask& task);

    // These do nothing before SetTask().
    void Cancel();
    void Wait();

    // Runs `work`. Then it resets a recurrent task, so that its next run can come, whether `work` returned or threw. A
    // Wait() that began before the reset waits for the old future: this run completes it. Instantiated for
    // std::function<void()>; an empty one throws std::bad_function_call.
    template <typename Work>
    void UpdateWrapper(Work work);  // NOLINT(performance-unnecessary-value-param): a copy for each run

  private:
    bool m_isTaskSet = false;
    std::uint32_t m_runsStarted = 0;  // changed by UpdateWrapper(), on the thread that runs the task
    std::uint32_t m_runsFinished = 0;  // those whose work returned
};

extern template void TrackerImpl::UpdateWrapper(std::function<void()> work);

}  // namespace Orvane::Internal
