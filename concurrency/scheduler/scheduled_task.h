#pragma once

#include "concurrency/base/export.h"
#include "concurrency/base/time.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

// A task, the time its next run is due, and the period of its runs.
//
// Threads: a plain value. Copies share the task, which is thread-safe.
// Blocks: Wait() pumps no messages. If the task calls back into the thread that waits (its window, its COM apartment),
//     both hang.
// Cancellation: Wait() is a cancellation point of the calling thread's own task.
// Memory: as with Task: everything in the run is visible after Wait(), unless it threw.
// Lifetime: the task lives as long as its last handle.
// Errors: what the task's operations throw. Nothing is checked here: a start in the past is due at once.
// Units: ticks of 100 ns of the system clock. Interval 0 means once.
//
// On purpose: every interval but 0 is recurrent. A negative one moves the start into the past, so the task stays due, and
// the scheduler comes to no later task until it is cancelled.
class ORVANE_CONCURRENCY_API ScheduledTask {
  public:
    // An empty task, due since 1970, once.
    ScheduledTask();

    // The task at that start, and then after every interval.
    ScheduledTask(const Task& task, const TimePoint& start, const Duration& interval);

    // Copies share the task. A move leaves an empty task behind, its times as they were.
    ScheduledTask(const ScheduledTask&);
    ScheduledTask(ScheduledTask&&) noexcept;
    ScheduledTask& operator=(const ScheduledTask&);
    ScheduledTask& operator=(ScheduledTask&&) noexcept;
    ~ScheduledTask();

    // The task, which all copies share.
    Task GetTask() const;

    // When the next run is due.
    TimePoint GetStartTime() const;

    // Whether the start has come.
    bool IsExpired() const;

    // Whether there is an interval.
    bool IsRecurrent() const;

    // Whether the task was cancelled or waited for.
    bool IsCancelled() const;

    // Cancels the task, in all copies. In the task's own run it throws CancelRequestedException.
    void Cancel();

    // Waits for the run that is under way. Between two runs it waits for the next one. Afterwards the task is cancelled: a
    // recurrent one does not run again.
    void Wait();

    // Moves the start on by one interval, no matter what time it is: missed periods fall due at once. Returns false and
    // changes nothing if the task runs once or is cancelled.
    bool Reschedule();

    // Whether this start is later than the other's.
    bool operator>(const ScheduledTask& other) const;

  private:
    Task m_task;
    TimePoint m_start;
    Duration m_interval;
};

}  // namespace Orvane::Internal
