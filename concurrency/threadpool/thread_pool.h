// The pool of worker threads, and the dedicated threads beside it.
//
// The pool's body, ThreadPoolCore, is shared: every thread and every caller inside an operation holds it, so a late
// caller or a thread that was never joined meets a stopped pool, not freed memory. ThreadPool is the one owner: it
// starts the workers and stops them.
//
//   room                         thread_pool.cpp           queue, workers, stop
//                                thread_pool_growth.cpp    when and how workers are added
//                                thread_pool_dedicated.cpp threads of their own for single tasks
//
// Locks: launchMutex -> spawnMutex -> mutex; launchMutex -> exitMutex. None is held while a task runs or is destroyed.
#pragma once

#include <atomic>
#include <cstdint>
#include <future>
#include <list>
#include <map>
#include <memory>
#include <mutex>

#include "concurrency/base/condition.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/base/adaptive_mutex.h"
#include "concurrency/base/win32.h"
#include "concurrency/tasks/policies.h"
#include "concurrency/tasks/pooled_task.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

inline constexpr std::uint64_t kGrowthBatch = 8;

class ThreadPoolCore : public std::enable_shared_from_this<ThreadPoolCore> {
  public:
    // What a worker thread does: sets the thread up and calls RunWorker().
    struct WorkerBatch;
    using WorkerBody = void (*)(ThreadPoolCore& core, WorkerBatch& batch);

    // The workers that one SpawnThreads() started. They count only once all of them exist. Guarded by the pool's mutex.
    struct WorkerBatch {
        bool counted = false;
        std::uint64_t leftEarly = 0;  // workers that left a stopping pool before they were counted
    };

    ThreadPoolCore(bool growable, WorkerBody workerBody);
    ~ThreadPoolCore();
    ThreadPoolCore(const ThreadPoolCore&) = delete;
    ThreadPoolCore& operator=(const ThreadPoolCore&) = delete;

    // Appends the task; adds workers first if few are spare. Blocks while workers are being added.
    //
    // Cancellation: may sleep up to 250 ms before it grows: then a cancellation point, and the task is not queued.
    // Errors: std::bad_alloc, std::system_error; the task is not queued.
    void Queue(const Task& task);

    // Runs the task on a new thread that carries its name.
    //
    // Errors: std::system_error (resource_unavailable_try_again) if the thread cannot be started, std::bad_alloc;
    //     nothing is changed.
    void LaunchInNewThread(const Task& task);

    // Whether the task is queued or running on a worker. Takes no lock, whatever is queued.
    bool IsPresent(const Task& task);

    // For clients that forcibly ended a worker: shutdown does not wait for it.
    void IncreaseKilledThreadCount();

    // Starts `count` workers. Errors: std::runtime_error "Failed to spawn thread, resource error".
    void SpawnThreads(std::uint64_t count);

    // From now on nobody waits for a growth that has failed, and none is tried after one: for who is about to stop threads
    // that queue, and waits for them before he stops the pool.
    void GiveUpFailedGrowth();

    // Shuts down: lets the workers finish what is queued for 30 s, then cancels, and joins every thread.
    //
    // Threads: not on a thread of this pool: std::runtime_error, nothing is changed.
    void Stop();

    // Lets workers leave when nobody will call Stop().
    void Abandon();

    void RunWorker(WorkerBatch& batch);

  private:
    friend struct FieldOrder;

    using LaunchMutex = RankedMutex<std::recursive_mutex, LockRank::Launch>;
    using SpawnMutex = RankedMutex<std::recursive_mutex, LockRank::Spawn>;
    using PoolMutex = RankedMutex<AdaptiveMutex, LockRank::Pool>;
    using ExitMutex = RankedMutex<std::recursive_mutex, LockRank::Leaf>;

    using TaskList = std::list<PooledTask>;
    using ThreadList = std::list<NativeThread>;
    using PromiseMap = std::map<DWORD, std::promise<int>>;

    enum class Reap { kIfEnded, kWait };

    bool AppendUnlessFull(TaskList& entry);
    void Append(TaskList& entry, RankedLock<PoolMutex>& lock) ORVANE_REQUIRES(m_mutex) ORVANE_NO_THREAD_SAFETY_ANALYSIS;
    void Insert(TaskList::iterator before, TaskList& entry) ORVANE_REQUIRES(m_mutex);
    bool ClaimWakeUp() ORVANE_REQUIRES(m_mutex);
    bool WaitForWork(RankedLock<PoolMutex>& lock) ORVANE_REQUIRES(m_mutex);
    TaskList::iterator TakeFirst() ORVANE_REQUIRES(m_mutex);

    void AppendAfterGrowth(TaskList& entry);
    bool IsFull() const ORVANE_REQUIRES(m_mutex);
    bool IsBeingTaken() const ORVANE_REQUIRES(m_mutex);
    bool StaysFull(RankedLock<PoolMutex>& lock) ORVANE_REQUIRES(m_mutex) ORVANE_NO_THREAD_SAFETY_ANALYSIS;
    void LetWorkersTake(RankedLock<PoolMutex>& lock, Duration waited) ORVANE_NO_THREAD_SAFETY_ANALYSIS;
    void SetGrowing(bool growing) ORVANE_REQUIRES(m_spawnMutex);
    void EndGrowthIfFailed() ORVANE_REQUIRES(m_spawnMutex);
    void RequestGrowth(RankedLock<SpawnMutex>& spawnLock) ORVANE_REQUIRES(m_spawnMutex) ORVANE_NO_THREAD_SAFETY_ANALYSIS;
    void StartBatch(std::uint64_t count);

    void RunDedicated(std::uint32_t number, Task task, PromiseMap::node_type promise) noexcept;
    void MarkFinished(std::uint32_t number);
    void ReapFinished(Reap mode) ORVANE_REQUIRES(m_launchMutex);
    bool HasEnded(const NativeThread& thread) ORVANE_REQUIRES(m_launchMutex);

    void RefuseOwnThreads();
    bool WorkersLeave() ORVANE_NO_THREAD_SAFETY_ANALYSIS;
    void CancelAll() ORVANE_NO_THREAD_SAFETY_ANALYSIS;
    void JoinThreads();

    PoolMutex m_mutex;
    ExitMutex m_exitMutex;
    Condition m_workAvailable;  // with m_mutex: the queue is not empty, or stopping
    Condition m_workerExited;  // with m_mutex: threadCount has sunk
    const bool m_growable;
    TaskList m_queue ORVANE_GUARDED_BY(m_mutex);
    TaskList m_running ORVANE_GUARDED_BY(m_mutex);
    LaunchMutex m_launchMutex;  // one launch, one end of a dedicated thread or one reaping at a time
    std::map<std::uint32_t, ThreadList::iterator> m_dedicatedThreads ORVANE_GUARDED_BY(m_launchMutex);
    ThreadList m_finishedThreads;  // changed under m_launchMutex and m_mutex, read under one
    std::uint32_t m_nextDedicatedNumber ORVANE_GUARDED_BY(m_launchMutex) = 0;
    std::atomic<bool> m_stopping = false;  // written under m_mutex
    ThreadList m_threads ORVANE_GUARDED_BY(m_mutex);
    std::map<DWORD, std::future<int>> m_completionFutures ORVANE_GUARDED_BY(m_launchMutex);
    PromiseMap m_exitedPromises ORVANE_GUARDED_BY(m_exitMutex);
    std::uint64_t m_threadCount ORVANE_GUARDED_BY(m_mutex) = 0;
    DWORD m_lastSpawnTick ORVANE_GUARDED_BY(m_spawnMutex) = 0;
    std::uint64_t m_killedCount ORVANE_GUARDED_BY(m_mutex) = 0;
    SpawnMutex m_spawnMutex;
    Condition m_spawnDone;  // with m_spawnMutex: no growth in progress, or stopping
    bool m_spawnInProgress = false;  // changed under m_spawnMutex and m_mutex, read under one
    bool m_growthFailed ORVANE_GUARDED_BY(m_spawnMutex) = false;
    bool m_givesUpFailedGrowth ORVANE_GUARDED_BY(m_spawnMutex) = false;
    bool m_growthIsOver ORVANE_GUARDED_BY(m_mutex) = false;  // it failed, and is not waited for
    bool m_isWaking ORVANE_GUARDED_BY(m_mutex) = false;  // a worker was woken and has not come in yet
    std::uint64_t m_wakingSince ORVANE_GUARDED_BY(m_mutex) = 0;
    std::atomic<bool> m_allCancelled = false;  // written under m_mutex
    std::atomic<std::size_t> m_untaken = 0;  // the size of m_queue, written under m_mutex
    Condition m_allTaken;  // with m_mutex: the queue has become empty
    const WorkerBody m_workerBody;
    const std::uint32_t m_number;  // for the entries
};

// Owns a pool: constructing it starts the workers, destroying it stops them.
//
// Threads: destroy it on a thread that is not the pool's; a failed shutdown ends the process.
// Errors: std::runtime_error "Failed to spawn thread, resource error" from the constructor.
template <typename ThreadPolicy>
class ThreadPool {
  public:
    // `threadCount` workers, or 8 and more as needed for 0.
    explicit ThreadPool(std::uint64_t threadCount)
        : m_core(std::make_shared<ThreadPoolCore>(threadCount == 0, &RunWorker)) {
        try {
            m_core->SpawnThreads(threadCount == 0 ? kGrowthBatch : threadCount);
        } catch (...) {
            m_core->Abandon();
            throw;
        }
    }

    ~ThreadPool() noexcept { m_core->Stop(); }

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    const std::shared_ptr<ThreadPoolCore>& Core() const { return m_core; }

  private:
    static void RunWorker(ThreadPoolCore& core, ThreadPoolCore::WorkerBatch& batch) {
        const PolicyScope<ThreadPolicy> threadPolicy;
        core.RunWorker(batch);
    }

    const std::shared_ptr<ThreadPoolCore> m_core;
};

}  // namespace Orvane::Internal
