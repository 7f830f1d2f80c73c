#pragma once

#include "concurrency/base/export.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

// The process-wide thread pool. The first call of any member creates it with 8 workers. It grows by 8 when fewer than 3
// are spare, without a ceiling, and never shrinks. The last ConcurrencyUninitialize() destroys it. Every worker lives
// in the COM multithreaded apartment.
//
// Threads: any.
// Cancellation: Queue() is a cancellation point when it must wait before it adds workers; nothing else here is.
// Memory: everything before Queue() or LaunchInNewThread() is visible to the run. Everything in the run is visible
//     after Task::Wait(), and after an IsPresent() that no longer finds the task.
// Errors: std::runtime_error "Failed to spawn thread, resource error" if the pool cannot be created; the next call
//     tries again. std::system_error if a lock fails; std::bad_alloc.
// Lifetime: do not use it while the last uninitialisation runs: a task queued then may never run.
class ORVANE_CONCURRENCY_API GlobalThreadPool {
  public:
    // Queues the task: first in, first out. Everything before the call is visible to the run.
    //
    // Blocks while workers are being added, at most one batch per 250 ms, and up to 20 ms while a pool that looks full is
    // still taking what is queued. N long tasks take about N threads and N/8 of these times: bound what you queue.
    //
    // A task that is queued twice is called twice, at the same time if two workers take it. A run that begins after the
    // first has returned does nothing. Once a shutdown has cancelled what was there, it cancels what is queued later, too.
    //
    // Cancellation: a cancellation point when it must wait before it adds workers; the task is not queued then.
    static void Queue(const Task& task);

    // Runs the task on a thread of its own that carries the task's name. The thread enters no COM apartment; give the
    // task a threading policy if it needs one. Shutdown waits for it without limit and does not cancel it.
    //
    // Blocks: it joins the threads of earlier launches that have ended, and waits up to 200 ms for each that is just
    // ending. Other launches wait meanwhile.
    //
    // Cancellation: not a cancellation point.
    // Errors: also std::system_error (resource_unavailable_try_again) if the thread cannot be started.
    static void LaunchInNewThread(const Task& task);

    // Whether the task is queued or running on a worker.
    static bool IsPresent(const Task& task);

    // For clients that forcibly ended a pool worker, once for each: shutdown does not wait for it then.
    static void IncreaseKilledThreadCount();
};

}  // namespace Orvane::Internal
