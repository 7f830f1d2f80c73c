// The process-wide scheduler. Created on first use, destroyed by the last ConcurrencyUninitialize().
//
// Threads: any.
// Errors: std::system_error (resource_unavailable_try_again) if the scheduler's thread cannot be started, and the next
//     call tries again; std::bad_alloc.
// Lifetime: do not insert while the last uninitialisation runs: a task inserted then may never run.
#pragma once

#include "concurrency/base/export.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane::Internal {

class ORVANE_CONCURRENCY_API GlobalScheduler {
  public:
    // Hands the task to the thread pool when its start has come, and again after every interval until it is cancelled.
    //
    // On purpose: nothing is reset here. A task runs once, however often it is handed over, unless each run ends with a
    // reset, as those of Schedule() do (TrackerImpl::UpdateWrapper).
    //
    // A run that would overlap the one before it is skipped, and a task that reports it is queued instead. Missed
    // periods are caught up.
    static void Insert(ScheduledTask task);
};

}  // namespace Orvane::Internal
