#include "concurrency/threadpool/thread_pool.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "concurrency/base/clock.h"
#include "concurrency/base/wait.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"

namespace Orvane::Internal {

namespace {

// How long shutdown lets the workers finish before it cancels what is left.
constexpr std::chrono::seconds kStopGrace{30};

// How long a worker that was woken may take to come in before the next one is woken, in milliseconds.
constexpr std::uint64_t kWakePatience = 50;

constinit std::atomic<std::uint32_t> g_poolsSoFar = 0;

}  // namespace

ThreadPoolCore::ThreadPoolCore(bool growable, WorkerBody workerBody)
    : m_growable(growable), m_workerBody(workerBody), m_number(++g_poolsSoFar) {}

ThreadPoolCore::~ThreadPoolCore() = default;

void ThreadPoolCore::Queue(const Task& task) {
    TaskList entry;
    entry.emplace_back(task);
    if (!AppendUnlessFull(entry)) {
        AppendAfterGrowth(entry);
    }
    if (m_allCancelled) {
        Task(task).Cancel();  // nobody will run it: whoever waits for it shall not wait for ever
    }
}

// The usual way in, past the callers that add workers. Returns false, and leaves `entry`, if the pool looks full or a
// growth is under way.
bool ThreadPoolCore::AppendUnlessFull(TaskList& entry) {
    RankedLock lock(m_mutex);
    if (m_spawnInProgress || IsFull()) {
        return false;
    }
    Append(entry, lock);
    return true;
}

// Lets go of `lock` on m_mutex.
void ThreadPoolCore::Append(TaskList& entry, RankedLock<PoolMutex>& lock) {
    Insert(m_queue.end(), entry);
    const bool wake = ClaimWakeUp();
    lock.unlock();
    if (wake) {
        m_workAvailable.notify_one();
    }
}

// Needs m_mutex. `entry` holds one task.
void ThreadPoolCore::Insert(TaskList::iterator before, TaskList& entry) {
    entry.front().Enter(m_number);
    m_queue.splice(before, entry);
    m_untaken.store(m_queue.size(), std::memory_order_relaxed);
}

// Whether the caller is to wake a worker, after the lock. One at a time: whoever comes in and leaves tasks behind wakes
// the next, and a burst of tasks does not raise more workers than are needed. While one is on its way no other is woken
// for what is queued meanwhile: it looks at the queue before it sleeps again. But not for ever: it may have a priority at
// which it gets no processor, and so may the caller who was to wake it.
bool ThreadPoolCore::ClaimWakeUp() {
    if (m_queue.empty() || !m_workAvailable.HasWaiters()) {
        return false;
    }
    const std::uint64_t now = ::GetTickCount64();
    if (m_isWaking && now - m_wakingSince < kWakePatience) {
        return false;
    }
    m_isWaking = true;
    m_wakingSince = now;
    return true;
}

bool ThreadPoolCore::IsPresent(const Task& task) {
    return PooledTask::IsIn(m_number, task);
}

void ThreadPoolCore::IncreaseKilledThreadCount() {
    const RankedLock lock(m_mutex);
    ++m_killedCount;
}

void ThreadPoolCore::RunWorker(WorkerBatch& batch) {
    TaskList taken;
    RankedLock lock(m_mutex);
    while (WaitForWork(lock)) {
        const auto task = TakeFirst();
        const bool wake = ClaimWakeUp();
        lock.unlock();
        if (wake) {
            m_workAvailable.notify_one();
        }
        task->Get()();
        lock.lock();
        taken.splice(taken.begin(), m_running, task);
        lock.unlock();
        taken.clear();  // may destroy the user's callable
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

// Returns false once the pool stops and nothing is queued, or all was cancelled.
bool ThreadPoolCore::WaitForWork(RankedLock<PoolMutex>& lock) {
    while (m_queue.empty() || m_allCancelled) {
        if (m_stopping) {
            return false;
        }
        m_workAvailable.wait(lock);
        m_isWaking = false;  // whoever was woken
    }
    return true;
}

// Moves the first queued task to the running ones.
ThreadPoolCore::TaskList::iterator ThreadPoolCore::TakeFirst() {
    m_running.splice(m_running.begin(), m_queue, m_queue.begin());
    m_untaken.store(m_queue.size(), std::memory_order_relaxed);
    if (m_queue.empty()) {
        m_allTaken.notify_all();
    }
    return m_running.begin();
}

void ThreadPoolCore::Abandon() {
    {
        const RankedLock lock(m_mutex);
        m_stopping = true;
    }
    m_workAvailable.notify_all();
}

void ThreadPoolCore::Stop() {
    RefuseOwnThreads();
    Abandon();
    // Once through the mutex: no caller of Queue() stands between its test of m_stopping and its sleep any more.
    {
        const RankedLock spawnLock(m_spawnMutex);
    }
    m_spawnDone.notify_all();
    if (!WorkersLeave()) {
        CancelAll();
    }
    JoinThreads();
    const RankedLock launchLock(m_launchMutex);
    ReapFinished(Reap::kWait);
}

void ThreadPoolCore::RefuseOwnThreads() {
    // Once through the mutexes under which threads are started: whoever has started this one has put it on record then.
    // One after the other: an end of a dedicated thread need not wait for a growth.
    {
        const RankedLock launchLock(m_launchMutex);
    }
    {
        const RankedLock spawnLock(m_spawnMutex);
    }
    const RankedLock lock(m_mutex);
    if (std::any_of(m_threads.begin(), m_threads.end(), [](const NativeThread& t) { return t.IsCurrentThread(); })) {
        throw std::runtime_error("Trying to call destructor in thread from thread pool causes deadlock!");
    }
}

// Waits until all that count have left; returns false if they have not within kStopGrace.
bool ThreadPoolCore::WorkersLeave() {
    const auto deadline = MonotonicClock::now() + kStopGrace;
    RankedLock lock(m_mutex);
    return WaitUntil<MonotonicClock>(m_workerExited, lock, deadline,
                                     [this]() ORVANE_REQUIRES(m_mutex) { return m_threadCount == m_killedCount; });
}

// What runs, the newest first, then what is queued; from now on nothing is taken off the queue. One at a time and without
// the lock: a request runs what the task has registered for it, which may wait for somebody who is about to queue.
void ThreadPoolCore::CancelAll() {
    TaskList queued;
    RankedLock lock(m_mutex);
    m_allCancelled = true;
    queued.splice(queued.end(), m_queue);
    m_untaken.store(0, std::memory_order_relaxed);
    for (;;) {
        const auto next =
            std::find_if(m_running.begin(), m_running.end(), [](PooledTask& task) { return task.Mark(); });
        if (next == m_running.end()) {
            break;
        }
        Task task = next->Get();
        lock.unlock();
        task.Cancel();
        task = Task();  // may be the last handle by now
        lock.lock();
    }
    lock.unlock();
    for (PooledTask& task : queued) {
        task.Get().Cancel();
    }
}

// One record at a time and without a lock: ending threads take the locks, and growth may still add records.
void ThreadPoolCore::JoinThreads() {
    for (;;) {
        ThreadList ending;
        {
            const RankedLock lock(m_mutex);
            if (m_threads.empty()) {
                return;
            }
            ending.splice(ending.end(), m_threads, m_threads.begin());
        }
        if (ending.front().IsJoinable()) {
            ending.front().Join();
        }
    }
}

}  // namespace Orvane::Internal
