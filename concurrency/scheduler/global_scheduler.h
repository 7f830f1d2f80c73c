#pragma once

#include "concurrency/base/export.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane::Internal {

// The process-wide scheduler. Created on first use, destroyed by the last ConcurrencyUninitialize().
//
// Threads: any.
// Cancellation: no cancellation points.
// Errors: std::system_error (resource_unavailable_try_again) if the scheduler's thread cannot be started, and the next
//     call tries again; std::bad_alloc.
// Memory: everything before Insert() is visible to the runs.
// Lifetime: do not insert while the last uninitialisation runs: a task inserted then may never run.
class ORVANE_CONCURRENCY_API GlobalScheduler {
  public:
    // Hands the task to the thread pool at its start, and again after every interval until it is cancelled.
    //
    // If the run before is still under way or queued, the scheduler skips the period and queues a task that reports it.
    // Missed periods are caught up, each with a run or a report.
    //
    // The last uninitialisation still hands over what was due when it began, missed periods included. Tasks that fall due
    // later stay in the schedule and are reported there.
    //
    // On purpose: the scheduler resets no task. A task runs once, however often it is handed over, unless each run ends
    // with a reset, as those of Schedule() do (TrackerImpl::UpdateWrapper).
    static void Insert(ScheduledTask task);

    // Does nothing. On purpose: there is nothing to assign, but both are part of the exported interface.
    GlobalScheduler& operator=(const GlobalScheduler&);
    GlobalScheduler& operator=(GlobalScheduler&&) noexcept;
};

}  // namespace Orvane::Internal
