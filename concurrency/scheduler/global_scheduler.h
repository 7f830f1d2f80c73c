// The process-wide scheduler. Created on first use, destroyed by the last ConcurrencyUninitialize().
//
// Threads: any.
// Errors: std::system_error (resource_unavailable_try_again) if the scheduler's thread cannot be started, and the next
//     call tries again; std::bad_alloc.
// Lifetime: do not insert while the last uninitialisation runs: a task inserted then is never run.
#pragma once

#include "concurrency/base/export.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane::Internal {

class ORVANE_CONCURRENCY_API GlobalScheduler {
  public:
    // Hands the task to the thread pool when its start has come, and again after every interval. A task that has run does
    // nothing then, unless it was reset: Schedule() sees to that.
    //
    // A run that would overlap the one before it is skipped, and a task that reports it is queued instead. Missed
    // periods are caught up.
    static void Insert(ScheduledTask task);
};

}  // namespace Orvane::Internal
