#pragma once

#include <memory>
#include <mutex>

#include "concurrency/base/export.h"
#include "concurrency/tasks/itask_state.h"

namespace Orvane::Internal {

class TaskImpl;
struct TaskAccess;

// A named unit of work. Copies of a handle share one task; two handles built alike are two tasks.
//
// Threads: every member may be called from any thread. The work runs, and Wait() blocks, outside the task's lock.
// Cancellation: Cancel() is cooperative: it wakes the run out of the cancellable wait it is blocked in, and the run
//     ends when it lets CancelRequestedException go. On the run's own thread Cancel() throws that exception itself.
//     Wait() is a cancellation point of the calling thread's own task.
// Memory: everything before the task is queued, launched or scheduled is visible to its run. Everything in the run is
//     visible after EndRun(), and after Wait(), unless Wait() threw or the task had cancelled itself. Everything before
//     Cancel() is visible to the run once it finds the request.
// Errors: std::system_error if a lock fails; std::bad_alloc.
// Lifetime: the task lives as long as its last handle. Once it has been waited for, it releases the callable and the
//     future; keep the future (MakeTask's second form) to read the outcome.
class ORVANE_CONCURRENCY_API Task {
  public:
    // An empty handle: as a task it is cancelled, not busy, has the name L"", and running it does nothing.
    Task();

    // At most 29 characters of `name` are kept; null is an empty name. A null `wrapper` makes an empty task.
    Task(const wchar_t* name, std::shared_ptr<ITaskState> wrapper);

    // Copies and moves. A handle that was moved from may only be assigned or destroyed.
    Task(const Task&);
    Task(Task&&) noexcept;
    Task& operator=(const Task&);
    Task& operator=(Task&&) noexcept;
    ~Task();

    // Whether both handles share one task.
    bool operator==(const Task& other) const;

    // Runs the work on the calling thread and logs that it started and stopped; nothing if it was cancelled before.
    // What the wrapper lets pass leaves here, without a stop record. While another thread runs the task, the work is
    // called a second time beside it.
    void operator()();

    // Requests cancellation. A task that has not started will not run. After a Reset() during a run, the run under way
    // is not asked, only the next one; EndRun() cancels it.
    void Cancel();

    // Lives as long as the task: keep a handle while using it.
    const wchar_t* GetName() const;

    // What the task runs.
    std::shared_ptr<ITaskState> GetWrapper();

    // Whether the run is under way and not being cancelled.
    bool IsBusy() const;

    // Whether cancellation was requested, or the task was waited for.
    bool IsCancelled() const;

    // Makes the task runnable once more, with a new future. Nothing for a cancelled task, or if the work is gone. A
    // Wait() that began before still waits for the old future: for ever, if nothing runs it.
    void Reset();

    // Waits until the run has ended, then releases the callable and the future: from then on the task is cancelled.
    // If Reset() came in between and that run is under way, waits for it as well. A run that the wait finds being
    // cancelled has 30 s to end; after that the process is ended. Neither the task's exception nor its cancellation is
    // thrown here. A task whose run has cancelled itself is empty already: returns at once, although that run may not
    // be over yet.
    //
    // Pumps no messages: a window or STA thread that waits here for a task which calls back into it hangs.
    void Wait();

    // Cancels the run that is under way on another thread and waits for it, also if it has reset the task or cancelled
    // itself: Cancel() and Wait() no longer reach it then. Returns at once if there is none, or if it is the caller's
    // own. It has 30 s to end, as in Wait(). Not a cancellation point.
    void EndRun();

  private:
    friend struct TaskAccess;

    explicit Task(std::shared_ptr<TaskImpl> impl) noexcept;

    std::shared_ptr<TaskImpl> m_impl;
};

}  // namespace Orvane::Internal
