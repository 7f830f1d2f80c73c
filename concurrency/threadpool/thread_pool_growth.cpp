#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>

#include "concurrency/base/clock.h"
#include "concurrency/base/pause.h"
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

// How long a queuing caller lets the workers take what is queued before it believes that they are all busy: without it
// a burst of tasks of a few microseconds would add workers in batches. It spins, yields, and then sleeps.
constexpr Duration kSettleTime = std::chrono::milliseconds(1);

// The same while tasks stand untaken although workers are on their way to them, as on a machine with other work.
constexpr Duration kLongestSettleTime = std::chrono::milliseconds(20);

constexpr Duration kSpinTime = std::chrono::microseconds(20);

// How long a caller that finds room again waits for the queue to be empty: room for one task would fill up at once.
constexpr Duration kMoreRoomTime = std::chrono::microseconds(50);

// Between two looks of one that spins.
constexpr int kPauses = 64;

// A std::runtime_error for the pool's creator, and cloneable, so that the growth task's future can keep it.
class SpawnError : public std::runtime_error, public virtual CloneableException {
  public:
    // Copies of it share its text, which needs memory: there may be none left when it is thrown.
    static const SpawnError& Original() {
        static const SpawnError original;
        return original;
    }

    std::shared_ptr<CloneableException> Clone() const override {
        return std::shared_ptr<CloneableException>(new SpawnError(*this));
    }
    void Rethrow() const override { throw SpawnError(*this); }

  private:
    SpawnError() : std::runtime_error("Failed to spawn thread, resource error") {}
};

}  // namespace

// Needs m_mutex. On purpose unsigned: with more work than workers the difference wraps, and the pool does not grow.
bool ThreadPoolCore::IsFull() const {
    const std::uint64_t busy = m_queue.size() + m_running.size();
    return m_growable && !m_growthIsOver && m_threadCount - busy <= kSpareWorkers;
}

// Needs m_mutex. Whether there are queued tasks and workers who will take them next.
bool ThreadPoolCore::IsBeingTaken() const {
    return !m_queue.empty() && m_running.size() < m_threadCount;
}

void ThreadPoolCore::AppendAfterGrowth(TaskList& entry) {
    RankedLock spawnLock(m_spawnMutex);
    m_spawnDone.wait(spawnLock, [this] { return !m_spawnInProgress || m_stopping; });
    RankedLock lock(m_mutex);
    if (StaysFull(lock)) {
        lock.unlock();
        RequestGrowth(spawnLock);
        lock.lock();
    }
    Append(entry, lock);
}

// Needs `lock` on m_mutex, which it lets go of in between. The answer is that of the moment in which it returns.
bool ThreadPoolCore::StaysFull(RankedLock<PoolMutex>& lock) {
    const auto start = MonotonicClock::now();
    while (!m_stopping) {
        const auto waited = std::chrono::duration_cast<Duration>(MonotonicClock::now() - start);
        const bool isBeingTaken = IsBeingTaken();
        if (!IsFull() && (!isBeingTaken || waited >= kMoreRoomTime)) {
            return false;
        }
        if (waited >= (isBeingTaken ? kLongestSettleTime : kSettleTime)) {
            return IsFull();
        }
        LetWorkersTake(lock, waited);
    }
    return false;
}

void ThreadPoolCore::LetWorkersTake(RankedLock<PoolMutex>& lock, Duration waited) {
    if (waited >= kSettleTime) {
        m_allTaken.wait_for(lock, kSettleTime);
        return;
    }
    lock.unlock();
    if (waited >= kSpinTime) {
        std::this_thread::yield();
    } else {
        for (int i = 0; i < kPauses && m_untaken.load(std::memory_order_relaxed) != 0; ++i) {
            Pause();
        }
    }
    lock.lock();
}

// Puts a task that starts the next batch in front of all others, so that the caller creates no threads itself. Lets go
// of `spawnLock` once other callers wait for the growth.
void ThreadPoolCore::RequestGrowth(RankedLock<SpawnMutex>& spawnLock) {
    // Built before anything is announced: without memory for it, every later caller would wait for a growth that
    // nobody runs. Bound to `this` alone: only this pool's workers, which hold the pool, run it.
    TaskList growth;
    growth.emplace_back(
        MakeTask(L"ThreadPool worker thread", std::bind(&ThreadPoolCore::SpawnThreads, this, kGrowthBatch)));
    // Before the pause: from now on every caller comes this way, and waits, instead of going past.
    SetGrowing(true);
    try {
        if (const DWORD elapsed = GetTickCount() - m_lastSpawnTick; elapsed < kGrowthPeriod) {
            CancellableSleep(kGrowthPeriod - elapsed);
        }
    } catch (...) {
        SetGrowing(false);
        throw;
    }
    m_lastSpawnTick = GetTickCount();
    spawnLock.unlock();
    const RankedLock lock(m_mutex);
    if (!m_stopping) {
        Insert(m_queue.begin(), growth);
    }
}

// Needs m_spawnMutex.
void ThreadPoolCore::SetGrowing(bool growing) {
    const RankedLock lock(m_mutex);
    m_spawnInProgress = growing;
}

void ThreadPoolCore::GiveUpFailedGrowth() {
    {
        const RankedLock spawnLock(m_spawnMutex);
        m_givesUpFailedGrowth = true;
        EndGrowthIfFailed();
    }
    m_spawnDone.notify_all();
}

// Needs m_spawnMutex.
void ThreadPoolCore::EndGrowthIfFailed() {
    if (m_growthFailed && m_givesUpFailedGrowth) {
        const RankedLock lock(m_mutex);
        m_growthIsOver = true;
        m_spawnInProgress = false;
    }
}

void ThreadPoolCore::SpawnThreads(std::uint64_t count) {
    const SpawnError& failure = SpawnError::Original();
    try {
        StartBatch(count);
    } catch (...) {
        // On purpose: a failed growth is not taken back, so later callers of Queue() wait until GiveUpFailedGrowth().
        {
            const RankedLock spawnLock(m_spawnMutex);
            m_growthFailed = true;
            EndGrowthIfFailed();
        }
        m_spawnDone.notify_all();
        throw SpawnError(failure);
    }
}

void ThreadPoolCore::StartBatch(std::uint64_t count) {
    RankedLock spawnLock(m_spawnMutex);
    const auto batch = std::make_shared<WorkerBatch>();
    ThreadList started;
    for (std::uint64_t i = 0; i < count; ++i) {
        started.emplace_back();
        started.back() = NativeThread::Start([core = shared_from_this(), batch] { core->m_workerBody(*core, *batch); });
    }
    {
        const RankedLock lock(m_mutex);
        m_threads.splice(m_threads.end(), started);
        m_threadCount += count - batch->leftEarly;
        batch->counted = true;
        m_spawnInProgress = false;
    }
    spawnLock.unlock();
    m_spawnDone.notify_all();
}

}  // namespace Orvane::Internal
