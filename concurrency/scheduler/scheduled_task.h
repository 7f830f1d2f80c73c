// A task, the time its next run is due, and the period of its runs.
//
// Threads: a plain value; copies share the task, which is thread-safe.
// Cancellation: Wait() is a cancellation point of the calling thread's own task.
// Errors: what the task's operations throw; nothing of its own. Nothing is checked: a start in the past is due at once.
// Units: ticks of 100 ns of the system clock. Interval 0 means once.
//
// On purpose: any interval but 0 is recurrent. A negative one moves the start into the past, so the task stays due.
#pragma once

#include "concurrency/base/export.h"
#include "concurrency/base/time.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

class ORVANE_CONCURRENCY_API ScheduledTask {
  public:
    // An empty task, due since 1970, once.
    ScheduledTask();
    ScheduledTask(const Task& task, const TimePoint& start, const Duration& interval);
    ScheduledTask(const ScheduledTask&);
    ScheduledTask(ScheduledTask&&) noexcept;  // leaves the source with an empty task, its times as they were
    ScheduledTask& operator=(const ScheduledTask&);
    ScheduledTask& operator=(ScheduledTask&&) noexcept;
    ~ScheduledTask();

    Task GetTask() const;
    TimePoint GetStartTime() const;

    // Whether the start has come.
    bool IsExpired() const;
    bool IsRecurrent() const;
    bool IsCancelled() const;

    // Cancels the task, in all copies. In the task's own run it throws CancelRequestedException.
    void Cancel();

    // Waits for the run that is under way or, if there is none, for the next one. Afterwards the task is cancelled: a
    // recurrent one is not run again.
    void Wait();

    // Moves the start on by one interval, whatever the time is now: periods that were missed fall due at once. Returns
    // false and changes nothing for a task that runs once or is cancelled.
    bool Reschedule();

    // Whether this start is later than the other's.
    bool operator>(const ScheduledTask& other) const;

  private:
    friend struct FieldOrder;

    Task m_task;
    TimePoint m_start;
    Duration m_interval;
};

}  // namespace Orvane::Internal
