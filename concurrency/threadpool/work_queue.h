// The pool's tasks, queued and running, and the workers that take them.
//
// Each task that is queued wakes an idle worker, unless a worker that is just looking for a task stands for it. A worker
// that was woken and leaves tasks behind wakes another. So a worker that is suspended or killed delays one task at most,
// the one that relied on it.
//
// Threads: any. RunWorker() is a worker's whole life.
// Errors: std::system_error if the lock fails.
// Lifetime: must outlive its workers. What is left in it is destroyed with it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <list>

#include "concurrency/base/adaptive_mutex.h"
#include "concurrency/base/clock.h"
#include "concurrency/base/condition.h"
#include "concurrency/base/last_words.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/tasks/task.h"
#include "concurrency/threadpool/traced_queue_time.h"

namespace Orvane::Internal {

struct WorkQueuePeer;

// The workers that one growth started. They count only once all of them exist. Guarded by the queue's mutex.
struct WorkerBatch {
    bool counted = false;
    std::uint64_t leftEarly = 0;  // workers that left a stopping pool before they were counted
};

class WorkQueue {
  public:
    struct Entry {
        explicit Entry(const Task& queued);
        ~Entry() { queueTime.Dropped(task); }
        Entry(const Entry&) = delete;
        Entry& operator=(const Entry&) = delete;

        Task task;
        std::uint64_t queuedAt = 0;  // a tick of CoarseClock; written under the lock
        TracedQueueTime queueTime;
        bool isAsked = false;  // CancelAll() has come to it
    };

    // Callers make an entry before they take a lock and hand it over as a list of one.
    using Entries = std::list<Entry>;

    struct Load {
        std::uint64_t queued = 0;
        std::uint64_t running = 0;
        std::uint64_t workers = 0;
        std::uint64_t oldestAt = 0;  // of those that are queued; a tick of CoarseClock, 0 if there are none
    };

    WorkQueue() = default;
    WorkQueue(const WorkQueue&) = delete;
    WorkQueue& operator=(const WorkQueue&) = delete;

    void Append(Entries& entry);

    // Returns false, and leaves `entry`, if at most `spare` workers are spare. A pool that stops is never full.
    bool AppendUnlessFull(Entries& entry, std::uint64_t spare);

    // In front of all others. Nothing once the pool stops.
    void PrependUnlessStopping(Entries& entry);

    Load GetLoad() const;

    // Waits until it is worth trying AppendUnlessFull() again, or for `timeout`. One caller at a time.
    void WaitForRoom(std::uint64_t spare, MonotonicClock::duration timeout);

    // Whether the task is queued or running.
    bool IsPresent(const Task& task) const;

    // Whether CancelAll() was called: nothing is taken off the queue any more.
    bool IsAllCancelled() const noexcept { return m_allCancelled; }

    // `note` gets the name of the task that an exception leaves.
    void RunWorker(WorkerBatch& batch, TaskNote& note);
    void CountWorkers(WorkerBatch& batch, std::uint64_t started);

    // For clients that forcibly ended a worker: WorkersLeave() does not wait for it.
    void IncreaseKilledThreadCount();

    // From now on workers leave when they find the queue empty.
    void Stop();
    bool IsStopping() const noexcept { return m_stopping; }

    // Waits until all workers but the killed ones have left. Returns false if they have not by `deadline`.
    bool WorkersLeave(MonotonicClock::time_point deadline);

    // Cancels what runs, the newest first, then what is queued, and keeps the workers from taking more.
    void CancelAll();

  private:
    friend struct WorkQueuePeer;

    using PoolMutex = RankedMutex<AdaptiveMutex, LockRank::Pool>;

    bool IsFull(std::uint64_t spare) const ORVANE_REQUIRES(m_mutex);
    bool Put(Entries::iterator before, Entries& entry) ORVANE_REQUIRES(m_mutex);
    std::uint64_t OldestAt() const ORVANE_REQUIRES(m_mutex);
    void PublishCounts() ORVANE_REQUIRES(m_mutex);
    bool WaitForTask(RankedLock<PoolMutex>& lock, bool& wasIdle) ORVANE_REQUIRES(m_mutex);
    void LookForTask(RankedLock<PoolMutex>& lock) ORVANE_REQUIRES(m_mutex);
    bool EndTask(Entries& ended, Entries::iterator task) ORVANE_REQUIRES(m_mutex);
    bool AskNextRunning(Task& next) ORVANE_REQUIRES(m_mutex);

    mutable PoolMutex m_mutex;
    Condition m_workAvailable;  // with m_mutex: the queue is not empty, or stopping
    Condition m_workerExited;  // with m_mutex: threadCount has sunk
    Condition m_roomMade;  // with m_mutex: a task has ended, and a caller waits for room

    Entries m_queue ORVANE_GUARDED_BY(m_mutex);
    Entries m_running ORVANE_GUARDED_BY(m_mutex);
    std::uint64_t m_threadCount ORVANE_GUARDED_BY(m_mutex) = 0;
    std::uint64_t m_killedCount ORVANE_GUARDED_BY(m_mutex) = 0;

    // Workers that look for a task before they sleep, and the tasks that rely on them instead of on a wake-up.
    std::uint32_t m_looking ORVANE_GUARDED_BY(m_mutex) = 0;
    std::uint32_t m_claimed ORVANE_GUARDED_BY(m_mutex) = 0;

    // Of the caller in WaitForRoom().
    std::uint64_t m_wantedSpare ORVANE_GUARDED_BY(m_mutex) = 0;

    // The fewest tasks that it saw, or the one before it: so many run for long. Used by that one caller alone.
    std::uint64_t m_lasting = 0;

    // Written under m_mutex. Read without it as a hint, and judged under it.
    std::atomic<std::uint64_t> m_queued = 0;
    std::atomic<std::uint64_t> m_busy = 0;

    // Written under m_mutex, read without it by callers who hold another lock.
    std::atomic<bool> m_stopping = false;
    std::atomic<bool> m_allCancelled = false;
};

}  // namespace Orvane::Internal
