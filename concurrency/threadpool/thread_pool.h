// The pool of worker threads, and the dedicated threads beside it. Each part guards what it holds:
//
//   work_queue.h         the tasks, and the workers that take them
//   pool_growth.h        when and how workers are added
//   dedicated_threads.h  threads of their own for single tasks
//   pool_threads.h       the records of all threads that are to be joined
//
// ThreadPoolCore is these parts, shared by every thread of the pool and every caller inside an operation: a late caller, or
// a thread that was never joined, meets a stopped pool and not freed memory. ThreadPool is the one owner: it starts the
// workers and stops them.
#pragma once

#include <cstdint>
#include <memory>

#include "concurrency/base/last_words.h"
#include "concurrency/tasks/policies.h"
#include "concurrency/tasks/run_words.h"
#include "concurrency/tasks/task.h"
#include "concurrency/threadpool/dedicated_threads.h"
#include "concurrency/threadpool/pool_growth.h"
#include "concurrency/threadpool/pool_threads.h"
#include "concurrency/threadpool/work_queue.h"

namespace Orvane::Internal {

struct ThreadPoolCorePeer;

class ThreadPoolCore : public std::enable_shared_from_this<ThreadPoolCore> {
  public:
    // What a worker thread does: sets the thread up and calls RunWorker().
    using WorkerBody = void (*)(ThreadPoolCore& core, WorkerBatch& batch, TaskNote& note);

    ThreadPoolCore(bool growable, WorkerBody workerBody, const GrowthClock& clock = GrowthClock::Real());
    ThreadPoolCore(const ThreadPoolCore&) = delete;
    ThreadPoolCore& operator=(const ThreadPoolCore&) = delete;

    // Appends the task; adds workers first if few are spare. Blocks while workers are being added.
    //
    // Cancellation: may sleep up to 250 ms before it grows: then a cancellation point, and the task is not queued.
    // Errors: std::bad_alloc, std::system_error; the task is not queued.
    void Queue(const Task& task);

    // As Queue(), but throws where that waits because a growth has failed: see PoolGrowth::QueueOrFail().
    void QueueOrFail(const Task& task);

    // Appends the task if that needs no growth; returns false if it does.
    bool TryQueue(const Task& task);

    // Runs the task on a new thread that carries its name: see DedicatedThreads::Launch().
    void LaunchInNewThread(const Task& task);

    // Whether the task is queued or running on a worker.
    bool IsPresent(const Task& task) const;

    WorkQueue::Load GetLoad() const { return m_queue.GetLoad(); }

    // For clients that forcibly ended a worker: shutdown does not wait for it.
    void IncreaseKilledThreadCount();

    // Starts `count` workers. Errors: std::runtime_error "Failed to spawn thread, resource error".
    void SpawnThreads(std::uint64_t count);

    // Makes callers inside Queue() look again whether they have to wait.
    void WakeCallers() { m_growth.WakeCallers(); }

    // Shuts down: lets the workers finish what is queued for 30 s, then cancels, and joins every thread.
    //
    // Threads: not on a thread of this pool: std::runtime_error, nothing is changed.
    void Stop();

    // Lets workers leave when no caller will call Stop().
    void Abandon();

    void RunWorker(WorkerBatch& batch, TaskNote& note) { m_queue.RunWorker(batch, note); }

  private:
    friend struct ThreadPoolCorePeer;

    void CancelIfAllIs(const Task& task);
    void StartWorkers(std::uint64_t count);
    void RefuseOwnThreads();

    const WorkerBody m_workerBody;
    WorkQueue m_queue;
    PoolThreads m_threads;
    PoolGrowth m_growth;
    DedicatedThreads m_dedicatedThreads;
};

// Owns a pool: constructing it starts the workers, destroying it stops them.
//
// Threads: destroy it on a thread that is not the pool's; a failed shutdown ends the process.
// Errors: std::runtime_error "Failed to spawn thread, resource error" from the constructor.
template <typename ThreadPolicy>
class ThreadPool {
  public:
    // `threadCount` workers, or 8 and more as needed for 0.
    explicit ThreadPool(std::uint64_t threadCount, const GrowthClock& clock = GrowthClock::Real())
        : m_core(std::make_shared<ThreadPoolCore>(threadCount == 0, &RunWorker, clock)) {
        try {
            m_core->SpawnThreads(threadCount == 0 ? kGrowthBatch : threadCount);
        } catch (...) {
            m_core->Abandon();
            throw;
        }
    }

    ~ThreadPool() noexcept {
        try {
            m_core->Stop();
        } catch (...) {
            EndProcessInRun("the thread pool cannot be stopped");
        }
    }

    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    const std::shared_ptr<ThreadPoolCore>& Core() const { return m_core; }

  private:
    static void RunWorker(ThreadPoolCore& core, WorkerBatch& batch, TaskNote& note) {
        const PolicyScope<ThreadPolicy> threadPolicy;
        core.RunWorker(batch, note);
    }

    const std::shared_ptr<ThreadPoolCore> m_core;
};

}  // namespace Orvane::Internal
