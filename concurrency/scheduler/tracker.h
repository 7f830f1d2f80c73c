#pragma once

#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/base/time.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane {

namespace Internal {
class TrackerImpl;
}  // namespace Internal
class ScheduleAccess;

// A handle on a scheduled task. Cancel it, wait for it, or drop the last copy, which does both.
//
// After the destructor of the last copy has returned, no run of a task that Schedule() made is under way, and none will
// come.
//
// Threads: separate copies may be used from separate threads. Do not assign one object on one thread while another thread
//     uses it. Set the task before you share copies or insert the task.
// Memory: everything in the runs is visible after the destructor of the last copy, and after Wait(), unless it threw or the
//     job had cancelled itself.
// Blocks: Wait() and the destructor pump no messages. If the job calls back into the thread that waits for it (its
//     window, its COM apartment), both hang. Wait on another thread.
// Cancellation: Wait() is a cancellation point of the calling thread's own task.
// Errors: what the task's operations throw. An error in the destructor ends the process, and so does a run that does not
//     answer its cancellation in time (Task::Wait).
// Lifetime: do not drop the last copy inside the tracked task's own run: the process ends. A callable that holds a Tracker
//     of its own task keeps both for ever. A moved-from Tracker may only be assigned or destroyed.
class ORVANE_CONCURRENCY_API Tracker {
  public:
    // Tracks nothing until SetTask().
    Tracker();

    // Copies share what is tracked.
    Tracker(const Tracker&);
    Tracker(Tracker&&) noexcept;
    Tracker& operator=(const Tracker&);
    Tracker& operator=(Tracker&&) noexcept;

    // Of the last copy: cancels and waits.
    ~Tracker();

    // Tracks `task` from now on, for all copies. The task tracked before goes on, uncancelled. Hand the same scheduled task
    // to GlobalScheduler::Insert(). It runs once, unless its callable works through TrackerImpl::UpdateWrapper(), as those
    // of Schedule() do.
    void SetTask(const Internal::ScheduledTask& task);

    // Cancels the task and its schedule. Does nothing before SetTask(). In the task's own run it throws
    // CancelRequestedException. A run that has done its work, and has reset the task for the next one, is not asked.
    void Cancel();

    // Waits for the run that is under way. Between two runs it waits for the next one, however far away that is. Does
    // nothing before SetTask(). Afterwards the task is cancelled: a wait ends a recurrent schedule.
    void Wait();

  private:
    friend class ScheduleAccess;

    std::shared_ptr<Internal::TrackerImpl> m_impl;
};

}  // namespace Orvane
