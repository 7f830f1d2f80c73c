#include "concurrency/threadpool/thread_pool.h"

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "concurrency/base/clock.h"
#include "concurrency/base/wait.h"
#include "concurrency/errors/exceptions.h"

namespace Orvane::Internal {

namespace {

// How long shutdown lets the workers finish before it cancels what is left.
constexpr std::chrono::seconds kStopGrace{30};

}  // namespace

ThreadPoolCore::ThreadPoolCore(bool growable, WorkerBody workerBody) : m_growable(growable), m_workerBody(workerBody) {}

ThreadPoolCore::~ThreadPoolCore() = default;

void ThreadPoolCore::Queue(const Task& task) {
    std::list<Task> entry(1, task);
    Guard spawnLock(m_spawnMutex);
    m_spawnDone.wait(spawnLock, [this]() ORVANE_REQUIRES(m_spawnMutex) { return !m_spawnInProgress || m_stopping; });
    Guard lock(m_mutex);
    if (StaysFull(lock)) {
        lock.unlock();
        RequestGrowth(spawnLock);
        lock.lock();
    }
    m_queue.splice(m_queue.end(), entry);
    lock.unlock();
    m_workAvailable.notify_one();
}

bool ThreadPoolCore::IsPresent(const Task& task) {
    const Guard lock(m_mutex);
    const auto holds = [&task](const std::list<Task>& tasks) {
        return std::find(tasks.begin(), tasks.end(), task) != tasks.end();
    };
    return holds(m_queue) || holds(m_running);
}

void ThreadPoolCore::IncreaseKilledThreadCount() {
    const Guard lock(m_mutex);
    ++m_killedCount;
}

void ThreadPoolCore::RunWorker(WorkerBatch& batch) {
    std::list<Task> done;
    Guard lock(m_mutex);
    for (;;) {
        while (m_queue.empty()) {
            if (m_stopping) {
                if (batch.counted) {
                    --m_threadCount;
                } else {
                    ++batch.leftEarly;
                }
                lock.unlock();
                m_workerExited.notify_one();
                return;
            }
            m_workAvailable.wait(lock);
        }
        m_running.splice(m_running.begin(), m_queue, m_queue.begin());
        const auto task = m_running.begin();
        lock.unlock();
        (*task)();
        lock.lock();
        done.splice(done.begin(), m_running, task);
        lock.unlock();
        done.clear();  // may destroy the user's callable
        lock.lock();
    }
}

void ThreadPoolCore::Abandon() {
    {
        const Guard lock(m_mutex);
        m_stopping = true;
    }
    m_workAvailable.notify_all();
}

void ThreadPoolCore::Stop() {
    RefuseOwnThreads();
    Abandon();
    // Once through the mutex: no caller of Queue() stands between its test of m_stopping and its sleep any more.
    {
        const Guard spawnLock(m_spawnMutex);
    }
    m_spawnDone.notify_all();
    std::list<Task> removed;
    {
        Guard lock(m_mutex);
        const auto deadline = MonotonicClock::now() + kStopGrace;
        if (!WaitUntil<MonotonicClock>(m_workerExited, lock, deadline,
                                       [this]() ORVANE_REQUIRES(m_mutex) { return m_threadCount == m_killedCount; })) {
            CancelAll(removed);
        }
    }
    removed.clear();
    JoinThreads();
    const Guard launchLock(m_launchMutex);
    ReapFinished(Reap::kWait);
}

void ThreadPoolCore::RefuseOwnThreads() {
    const Guard lock(m_mutex);
    if (std::any_of(m_threads.begin(), m_threads.end(), [](const NativeThread& t) { return t.IsCurrentThread(); })) {
        throw std::runtime_error("Trying to call destructor in thread from thread pool causes deadlock!");
    }
}

// Needs m_mutex. The queued tasks go to `removed`, to be destroyed when the lock is free.
void ThreadPoolCore::CancelAll(std::list<Task>& removed) {
    for (Task& task : m_running) {
        task.Cancel();
    }
    for (Task& task : m_queue) {
        task.Cancel();
    }
    removed.splice(removed.end(), m_queue);
}

// One record at a time and without a lock: ending threads take the locks, and growth may still add records.
void ThreadPoolCore::JoinThreads() {
    for (;;) {
        ThreadList ending;
        {
            const Guard lock(m_mutex);
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
