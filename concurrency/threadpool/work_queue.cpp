#include "concurrency/threadpool/work_queue.h"

#include <algorithm>
#include <iterator>
#include <thread>

#include "concurrency/base/wait.h"
#include "concurrency/tasks/noted_run.h"
#include "concurrency/tasks/task_access.h"
#include "concurrency/tasks/traced_run.h"

namespace Orvane::Internal {

namespace {

// How often a worker that finds the queue empty looks again before it sleeps. It yields in between: a sleep and a wake-up
// cost more than most short tasks. However many workers look, fewer would cost more: a task that no looking worker stands
// for pays for a wake-up.
constexpr int kLooksForTask = 40;

// The same for a caller that waits for room. It looks until only the tasks are left that run for long: room for one short
// task would fill up at once. When it sleeps, any room will do.
constexpr int kLooksForRoom = 200;

}  // namespace

WorkQueue::Entry::Entry(const Task& queued) : task(queued), queueTime(queued) {
    TaskAccess::NoteQueued(task);
}

void WorkQueue::Append(Entries& entry) {
    bool wake = false;
    {
        const RankedLock lock(m_mutex);
        wake = Put(m_queue.end(), entry);
    }
    if (wake) {
        m_workAvailable.notify_one();
    }
}

bool WorkQueue::AppendUnlessFull(Entries& entry, std::uint64_t spare) {
    bool wake = false;
    {
        const RankedLock lock(m_mutex);
        if (IsFull(spare)) {
            return false;
        }
        wake = Put(m_queue.end(), entry);
    }
    if (wake) {
        m_workAvailable.notify_one();
    }
    return true;
}

void WorkQueue::PrependUnlessStopping(Entries& entry) {
    bool wake = false;
    {
        const RankedLock lock(m_mutex);
        if (m_stopping) {
            return;
        }
        wake = Put(m_queue.begin(), entry);
    }
    if (wake) {
        m_workAvailable.notify_one();
    }
}

// Returns whether an idle worker is to be woken. Each worker that looks for a task stands for one task, once: if it is
// suspended just then, that task may be late, but no later one.
bool WorkQueue::Put(Entries::iterator before, Entries& entry) {
    entry.front().queuedAt = CoarseClock::Ticks();
    m_queue.splice(before, entry);
    PublishCounts();
    if (m_claimed < m_looking) {
        ++m_claimed;
        return false;
    }
    return true;
}

void WorkQueue::PublishCounts() {
    m_queued.store(m_queue.size(), std::memory_order_relaxed);
    m_busy.store(m_queue.size() + m_running.size(), std::memory_order_relaxed);
}

// On purpose unsigned: with more work than workers the difference wraps, and the pool is not full.
bool WorkQueue::IsFull(std::uint64_t spare) const {
    return !m_stopping && m_threadCount - (m_queue.size() + m_running.size()) <= spare;
}

WorkQueue::Load WorkQueue::GetLoad() const {
    const RankedLock lock(m_mutex);
    return {m_queue.size(), m_running.size(), m_threadCount, OldestAt()};
}

// Those that were appended stand in the order in which they came. One may stand before them, that came later: a growth.
std::uint64_t WorkQueue::OldestAt() const {
    if (m_queue.empty()) {
        return 0;
    }
    const auto first = m_queue.begin();
    const auto second = std::next(first);
    return second == m_queue.end() ? first->queuedAt : std::min(first->queuedAt, second->queuedAt);
}

void WorkQueue::WaitForRoom(std::uint64_t spare, MonotonicClock::duration timeout) {
    std::uint64_t fewest = m_busy.load(std::memory_order_relaxed);
    for (int i = 0; i < kLooksForRoom && fewest > m_lasting; ++i) {
        std::this_thread::yield();
        fewest = std::min(fewest, m_busy.load(std::memory_order_relaxed));
    }
    m_lasting = fewest;
    RankedLock lock(m_mutex);
    if (IsFull(spare)) {
        m_wantedSpare = spare;
        m_roomMade.wait_for(lock, timeout);
    }
}

bool WorkQueue::IsPresent(const Task& task) const {
    const auto isIt = [&task](const Entry& entry) { return entry.task == task; };
    const RankedLock lock(m_mutex);
    return std::any_of(m_queue.begin(), m_queue.end(), isIt) || std::any_of(m_running.begin(), m_running.end(), isIt);
}

void WorkQueue::RunWorker(WorkerBatch& batch, TaskNote& note) {
    const TracedWorker traced;
    Entries ended;
    bool wasIdle = false;
    RankedLock lock(m_mutex);
    while (WaitForTask(lock, wasIdle)) {
        m_running.splice(m_running.begin(), m_queue, m_queue.begin());
        PublishCounts();
        const auto task = m_running.begin();
        const bool wakeAnother = wasIdle && !m_queue.empty();
        lock.unlock();
        if (wakeAnother) {
            m_workAvailable.notify_one();
        }
        task->queueTime.TakenByWorker(task->task);
        WithNote(task->task, note, [&] { task->task(); });
        lock.lock();
        const bool wakeCaller = EndTask(ended, task);
        lock.unlock();
        if (wakeCaller) {
            m_roomMade.notify_all();
        }
        ended.clear();  // may destroy the user's callable
        lock.lock();
    }
    if (batch.counted) {
        --m_threadCount;
    } else {
        ++batch.leftEarly;
    }
    lock.unlock();
    m_workerExited.notify_one();
}

// Returns false once the pool stops and nothing is queued, or all was cancelled. `wasIdle` is whether the worker slept.
bool WorkQueue::WaitForTask(RankedLock<PoolMutex>& lock, bool& wasIdle) {
    wasIdle = false;
    bool hasLooked = false;
    while (m_queue.empty() || m_allCancelled) {
        if (m_stopping) {
            return false;
        }
        if (!hasLooked) {
            hasLooked = true;
            LookForTask(lock);
        } else {
            m_workAvailable.wait(lock);
            wasIdle = true;
        }
    }
    return true;
}

void WorkQueue::LookForTask(RankedLock<PoolMutex>& lock) {
    ++m_looking;
    {
        const ReleasedLock released(lock, m_mutex);
        for (int i = 0; i < kLooksForTask && m_queued.load(std::memory_order_relaxed) == 0; ++i) {
            std::this_thread::yield();
        }
    }
    --m_looking;
    if (m_claimed != 0) {
        --m_claimed;  // by looking at the queue now
    }
}

// Returns whether the caller in WaitForRoom() is to be woken, after the lock.
bool WorkQueue::EndTask(Entries& ended, Entries::iterator task) {
    ended.splice(ended.begin(), m_running, task);
    PublishCounts();
    return m_roomMade.HasWaiters() && !IsFull(m_wantedSpare);
}

void WorkQueue::CountWorkers(WorkerBatch& batch, std::uint64_t started) {
    const RankedLock lock(m_mutex);
    m_threadCount += started - batch.leftEarly;
    batch.counted = true;
    m_roomMade.notify_all();
}

void WorkQueue::IncreaseKilledThreadCount() {
    const RankedLock lock(m_mutex);
    ++m_killedCount;
}

void WorkQueue::Stop() {
    {
        const RankedLock lock(m_mutex);
        m_stopping = true;
    }
    m_workAvailable.notify_all();
    m_roomMade.notify_all();
}

bool WorkQueue::WorkersLeave(MonotonicClock::time_point deadline) {
    RankedLock lock(m_mutex);
    return WaitUntil<MonotonicClock>(m_workerExited, lock, deadline,
                                     [this]() ORVANE_REQUIRES(m_mutex) { return m_threadCount == m_killedCount; });
}

// One task at a time and without the lock: a request runs what the task has registered for it, which may wait for a thread
// that is about to queue.
void WorkQueue::CancelAll() {
    Entries queued;
    RankedLock lock(m_mutex);
    m_allCancelled = true;
    queued.splice(queued.end(), m_queue);
    PublishCounts();
    for (Task next; AskNextRunning(next);) {
        const ReleasedLock released(lock, m_mutex);
        next.Cancel();
        next = Task();  // may be the last handle by now
    }
    lock.unlock();
    for (Entry& entry : queued) {
        entry.task.Cancel();
    }
}

// Returns false when every running task has been asked.
bool WorkQueue::AskNextRunning(Task& next) {
    const auto found =
        std::find_if(m_running.begin(), m_running.end(), [](const Entry& entry) { return !entry.isAsked; });
    if (found == m_running.end()) {
        return false;
    }
    found->isAsked = true;
    next = found->task;
    return true;
}

}  // namespace Orvane::Internal
