// The scheduler's queue: a heap of scheduled tasks, the earliest start on top, and the condition its thread sleeps on.
//
// Threads: Push() and Stop() from any; PopExpired(), PutBack() and WaitForNextStart() on the scheduler's thread.
// Errors: std::system_error, std::bad_alloc from Push() (nothing inserted).
// Lifetime: shared with callers inside Push(); entries left at the end are reported, neither cancelled nor run.
#pragma once

#include <vector>

#include "concurrency/base/condition.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/scheduler/schedule_counts.h"
#include "concurrency/scheduler/scheduled_task.h"

namespace Orvane::Internal {

class ScheduledTaskQueue {
  public:
    ScheduledTaskQueue();
    ~ScheduledTaskQueue();
    ScheduledTaskQueue(const ScheduledTaskQueue&) = delete;
    ScheduledTaskQueue& operator=(const ScheduledTaskQueue&) = delete;

    void Push(ScheduledTask task);

    // Takes the earliest task out if it is due; once stopped, if it was due when Stop() was called. `due` must be empty:
    // what it held would be destroyed under the lock.
    bool PopExpired(ScheduledTask& due);

    // Puts a recurrent task back that PopExpired() has given out, with its next start. Once stopped, a task whose start
    // does not move on (negative intervals) is kept but not given out again.
    void PutBack(ScheduledTask task, const TimePoint& lastStart);

    ScheduleLoad GetLoad();

    // Sleeps until the earliest start, an earlier insert or Stop(), or for no reason at all. Returns false once stopped.
    bool WaitForNextStart();

    // Ends the waits, and bounds what is still given out: what falls due after this moment stays. Without the bound a
    // thread that needs longer for one turn than the interval lasts finds something due for ever.
    void Stop();

  private:
    ScheduledTask TakeTop() ORVANE_REQUIRES(m_lock);
    bool IsStopped();

    // Never held while something is signalled, queued on the pool or destroyed.
    RankedMutex<RecursiveMutex, LockRank::ScheduleQueue> m_lock;
    Condition m_wake;  // with m_lock: there is a new earliest entry, or stopped
    std::vector<ScheduledTask> m_heap ORVANE_GUARDED_BY(m_lock);  // heap order by operator>
    bool m_stop ORVANE_GUARDED_BY(m_lock) = false;
    TimePoint m_lastDue ORVANE_GUARDED_BY(m_lock) = (TimePoint::max)();  // the moment of the stop
};

}  // namespace Orvane::Internal
