// A handle on a scheduled task: cancel it, wait for it, or let the last copy go, which does both.
//
// Threads: separate copies may be used from separate threads; one object must not be assigned on one thread while it is
//     used on another. Set the task before you share copies or insert it.
// Cancellation: Wait() is a cancellation point of the calling thread's own task.
// Errors: what the task's operations throw. In the destructor a failure ends the process, and so does a run that does
//     not answer its cancellation for 30 s.
// Lifetime: drop the last copy anywhere but inside the tracked task's own run, where cancelling would have to stop the
//     destructor itself: the process ends then. A callable that holds a Tracker of its own task keeps both for ever. A
//     moved-from Tracker may only be assigned or destroyed.
#pragma once

#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/base/time.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane {

namespace Internal {
class TrackerImpl;
}  // namespace Internal

class ORVANE_CONCURRENCY_API Tracker {
  public:
    // Tracks nothing until SetTask().
    Tracker();
    Tracker(const Tracker&);
    Tracker(Tracker&&) noexcept;
    Tracker& operator=(const Tracker&);
    Tracker& operator=(Tracker&&) noexcept;
    ~Tracker();

    // Tracks `task` from now on, for all copies. The one before goes on, uncancelled. Hand the same scheduled task to
    // GlobalScheduler::Insert. It runs once, unless its callable does its work through TrackerImpl::UpdateWrapper(), as
    // the one that Schedule() makes does.
    void SetTask(const Internal::ScheduledTask& task);

    // Cancels the task and its schedule; nothing before SetTask(). In the task's own run it throws
    // CancelRequestedException.
    void Cancel();

    // Waits for the run that is under way or, between runs, for the next one, however far away that is; nothing before
    // SetTask(). Afterwards the task is cancelled: a wait ends a recurrent schedule.
    void Wait();

  private:
    friend class ScheduleAccess;

    std::shared_ptr<Internal::TrackerImpl> m_impl;
};

}  // namespace Orvane
