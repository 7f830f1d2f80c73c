#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

#include "concurrency/base/clock.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cloneable_exception.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool.h"

namespace Orvane::Internal {

namespace {

// The pool grows when this many workers or fewer are spare.
constexpr std::uint64_t kSpareWorkers = 2;

// At most one growth per this many milliseconds.
constexpr DWORD kGrowthPeriod = 250;

// How long a queuing caller lets workers that are already awake take what is queued, before it believes that they are
// all busy. Without it a burst of tasks of a few microseconds would add workers in batches.
constexpr std::chrono::milliseconds kSettleTime{1};

// A std::runtime_error for the pool's creator, and cloneable, so that the growth task's future can keep it.
class SpawnError : public std::runtime_error, public virtual CloneableException {
  public:
    SpawnError() : std::runtime_error("Failed to spawn thread, resource error") {}

    std::shared_ptr<CloneableException> Clone() const override {
        return std::shared_ptr<CloneableException>(new SpawnError(*this));
    }
    void Rethrow() const override { throw SpawnError(*this); }
};

}  // namespace

// Needs m_mutex. On purpose unsigned: with more work than workers the difference wraps, and the pool does not grow.
bool ThreadPoolCore::IsFull() const {
    const std::uint64_t busy = m_queue.size() + m_running.size();
    return m_growable && m_threadCount - busy <= kSpareWorkers;
}

// Needs `lock` on m_mutex, which it lets go of in between.
bool ThreadPoolCore::StaysFull(Guard<PoolMutex>& lock) {
    if (!IsFull()) {
        return false;
    }
    const auto deadline = MonotonicClock::now() + kSettleTime;
    while (IsFull()) {
        if (m_stopping || MonotonicClock::now() >= deadline) {
            return !m_stopping;
        }
        lock.unlock();
        std::this_thread::yield();
        lock.lock();
    }
    return false;
}

// Puts a task that starts the next batch in front of all others, so that the caller creates no threads itself. Lets go
// of `spawnLock` once other callers wait for the growth.
void ThreadPoolCore::RequestGrowth(Guard<SpawnMutex>& spawnLock) {
    // Built before anything is announced: without memory for it, every later caller would wait for a growth that
    // nobody runs. Bound to `this` alone: only this pool's workers, which hold the pool, run it.
    std::list<Task> growth(
        1, MakeTask(L"ThreadPool worker thread", std::bind(&ThreadPoolCore::SpawnThreads, this, kGrowthBatch)));
    if (const DWORD elapsed = GetTickCount() - m_lastSpawnTick; elapsed < kGrowthPeriod) {
        CancellableSleep(kGrowthPeriod - elapsed);
    }
    m_lastSpawnTick = GetTickCount();
    m_spawnInProgress = true;
    spawnLock.unlock();
    const Guard lock(m_mutex);
    if (!m_stopping) {
        m_queue.splice(m_queue.begin(), growth);
    }
}

void ThreadPoolCore::SpawnThreads(std::uint64_t count) {
    try {
        StartBatch(count);
    } catch (...) {
        // On purpose: a failed growth is not taken back, so later callers of Queue() wait until the pool stops.
        m_spawnDone.notify_all();
        throw SpawnError();
    }
}

void ThreadPoolCore::StartBatch(std::uint64_t count) {
    Guard spawnLock(m_spawnMutex);
    const auto batch = std::make_shared<WorkerBatch>();
    ThreadList started;
    for (std::uint64_t i = 0; i < count; ++i) {
        started.emplace_back();
        started.back() = NativeThread::Start([core = shared_from_this(), batch] { core->m_workerBody(*core, *batch); });
    }
    {
        const Guard lock(m_mutex);
        m_threads.splice(m_threads.end(), started);
        m_threadCount += count - batch->leftEarly;
        batch->counted = true;
    }
    m_spawnInProgress = false;
    spawnLock.unlock();
    m_spawnDone.notify_all();
}

}  // namespace Orvane::Internal
