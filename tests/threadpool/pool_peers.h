// A look into a pool, for tests that are linked to the library's objects.
//
// Threads: any; each call takes the pool's own locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <future>
#include <iterator>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/base/native_thread.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/task.h"
#include "concurrency/threadpool/thread_pool.h"

namespace Zarvo::Test {

struct PoolCounts {
    bool growable = false;
    std::uint64_t threadCount = 0;
    std::uint64_t killedCount = 0;
    std::size_t queue = 0;
    std::size_t running = 0;
    std::size_t threads = 0;
    std::size_t finishedThreads = 0;
    std::size_t dedicatedThreads = 0;
    std::size_t completionFutures = 0;
    std::size_t exitedPromises = 0;
    std::uint32_t nextDedicatedNumber = 0;

    friend bool operator==(const PoolCounts&, const PoolCounts&) = default;

    friend std::ostream& operator<<(std::ostream& stream, const PoolCounts& counts) {
        return stream << "growable " << counts.growable << ", threadCount " << counts.threadCount << ", killed "
                      << counts.killedCount << ", queue " << counts.queue << ", running " << counts.running
                      << ", threads " << counts.threads << ", finished " << counts.finishedThreads << ", dedicated "
                      << counts.dedicatedThreads << ", futures " << counts.completionFutures << ", promises "
                      << counts.exitedPromises << ", next number " << counts.nextDedicatedNumber;
    }
};

}  // namespace Zarvo::Test

namespace Orvane::Internal {

struct WorkQueuePeer {
    static WorkQueue::Load CountsAndKilled(WorkQueue& queue, std::uint64_t& killed) {
        const std::lock_guard lock(queue.m_mutex);
        killed = queue.m_killedCount;
        return {queue.m_queue.size(), queue.m_running.size(), queue.m_threadCount};
    }

    template <typename Change>
    static void WakeShutdown(WorkQueue& queue, Change change) {
        const std::lock_guard lock(queue.m_mutex);
        change();
        queue.m_workerExited.notify_all();
    }

    static void AppendWithoutWakeUp(WorkQueue& queue, const Task& task) {
        const std::lock_guard lock(queue.m_mutex);
        queue.m_queue.emplace_back(task);
    }

    static std::vector<std::wstring> Names(WorkQueue& queue) {
        const std::lock_guard lock(queue.m_mutex);
        std::vector<std::wstring> names;
        for (WorkQueue::Entry& entry : queue.m_queue) {
            names.emplace_back(entry.task.GetName());
        }
        return names;
    }

    static std::uint32_t IdleWorkers(WorkQueue& queue) {
        const std::lock_guard lock(queue.m_mutex);
        return queue.m_workAvailable.Waiters();
    }

    // That sleep until there is room.
    static std::uint32_t CallersWithoutRoom(WorkQueue& queue) {
        const std::lock_guard lock(queue.m_mutex);
        return queue.m_roomMade.Waiters();
    }

    // What is read without the lock: how many are queued, and how many queued or running.
    static std::pair<std::uint64_t, std::uint64_t> Hints(const WorkQueue& queue) {
        return {queue.m_queued.load(), queue.m_busy.load()};
    }

    // Workers that look for a task, and tasks that rely on them.
    static std::pair<std::uint32_t, std::uint32_t> LookingAndClaimed(WorkQueue& queue) {
        const std::lock_guard lock(queue.m_mutex);
        return {queue.m_looking, queue.m_claimed};
    }
};

struct PoolThreadsPeer {
    static std::size_t Count(PoolThreads& threads) {
        const std::lock_guard lock(threads.m_mutex);
        return threads.m_threads.size();
    }

    static HANDLE Handle(PoolThreads& threads, std::size_t index) {
        const std::lock_guard lock(threads.m_mutex);
        return std::next(threads.m_threads.begin(), static_cast<std::ptrdiff_t>(index))->GetHandle();
    }
};

struct PoolGrowthPeer {
    static bool IsGrowable(const PoolGrowth& growth) { return growth.m_growable; }
    static bool CallersWait(PoolGrowth& growth) {
        const std::lock_guard lock(growth.m_mutex);
        return growth.CallersWait(PoolGrowth::OnFailure::Wait);
    }

    // That sleep until the growth is over.
    static std::uint32_t SleepingCallers(PoolGrowth& growth) {
        const std::lock_guard lock(growth.m_mutex);
        return growth.m_done.Waiters();
    }

    static bool StaysFull(PoolGrowth& growth, MonotonicClock::duration waited) {
        const std::lock_guard lock(growth.m_mutex);
        return growth.StaysFull(waited);
    }
};

struct DedicatedThreadsPeer {
    static void Count(DedicatedThreads& threads, Zarvo::Test::PoolCounts& counts) {
        const std::lock_guard launchLock(threads.m_launchMutex);
        const std::lock_guard exitLock(threads.m_exitMutex);
        counts.finishedThreads = threads.m_finishedThreads.size();
        counts.dedicatedThreads = threads.m_dedicatedThreads.size();
        counts.completionFutures = threads.m_completionFutures.size();
        counts.exitedPromises = threads.m_exitedPromises.size();
        counts.nextDedicatedNumber = threads.m_nextDedicatedNumber;
    }

    static void AddFinished(DedicatedThreads& threads, NativeThread thread, std::future<int> completion) {
        const std::lock_guard launchLock(threads.m_launchMutex);
        threads.m_completionFutures.emplace(thread.GetId(), std::move(completion));
        threads.m_finishedThreads.push_back(std::move(thread));
    }

    static void SetNextNumber(DedicatedThreads& threads, std::uint32_t number) {
        const std::lock_guard launchLock(threads.m_launchMutex);
        threads.m_nextDedicatedNumber = number;
    }

    static void ForgetCompletions(DedicatedThreads& threads) {
        const std::lock_guard launchLock(threads.m_launchMutex);
        threads.m_completionFutures.clear();
    }
};

struct ThreadPoolCorePeer {
    static WorkQueue& Queue(ThreadPoolCore& core) { return core.m_queue; }
    static PoolThreads& Threads(ThreadPoolCore& core) { return core.m_threads; }
    static PoolGrowth& Growth(ThreadPoolCore& core) { return core.m_growth; }
    static DedicatedThreads& Dedicated(ThreadPoolCore& core) { return core.m_dedicatedThreads; }
};

}  // namespace Orvane::Internal

namespace Zarvo::Test {

inline PoolCounts CountsOf(Orvane::Internal::ThreadPoolCore& core) {
    using Peer = Orvane::Internal::ThreadPoolCorePeer;
    PoolCounts counts;
    Orvane::Internal::DedicatedThreadsPeer::Count(Peer::Dedicated(core), counts);
    const auto load = Orvane::Internal::WorkQueuePeer::CountsAndKilled(Peer::Queue(core), counts.killedCount);
    counts.growable = Orvane::Internal::PoolGrowthPeer::IsGrowable(Peer::Growth(core));
    counts.threadCount = load.workers;
    counts.queue = load.queued;
    counts.running = load.running;
    counts.threads = Orvane::Internal::PoolThreadsPeer::Count(Peer::Threads(core));
    return counts;
}

template <typename Policy>
PoolCounts CountsOf(const Orvane::Internal::ThreadPool<Policy>& pool) {
    return CountsOf(*pool.Core());
}

// Whether a growth is decided whose workers are not there yet.
inline bool SpawnIsInProgress(Orvane::Internal::ThreadPoolCore& core) {
    return Orvane::Internal::PoolGrowthPeer::CallersWait(Orvane::Internal::ThreadPoolCorePeer::Growth(core));
}

template <typename Policy>
bool SpawnIsInProgress(const Orvane::Internal::ThreadPool<Policy>& pool) {
    return SpawnIsInProgress(*pool.Core());
}

inline bool IsStopping(Orvane::Internal::ThreadPoolCore& core) {
    return Orvane::Internal::ThreadPoolCorePeer::Queue(core).IsStopping();
}

// As the end of a worker does. `change` is called while shutdown sleeps.
template <typename Change>
void WakeShutdown(Orvane::Internal::ThreadPoolCore& core, Change change) {
    Orvane::Internal::WorkQueuePeer::WakeShutdown(Orvane::Internal::ThreadPoolCorePeer::Queue(core), change);
}

// Past the pool's own rules and without waking a worker.
inline void AppendToQueue(Orvane::Internal::ThreadPoolCore& core, const Orvane::Internal::Task& task) {
    Orvane::Internal::WorkQueuePeer::AppendWithoutWakeUp(Orvane::Internal::ThreadPoolCorePeer::Queue(core), task);
}

inline std::vector<std::wstring> QueuedNames(Orvane::Internal::ThreadPoolCore& core) {
    return Orvane::Internal::WorkQueuePeer::Names(Orvane::Internal::ThreadPoolCorePeer::Queue(core));
}

// Of the worker that was started as number `index`.
inline HANDLE WorkerHandle(Orvane::Internal::ThreadPoolCore& core, std::size_t index) {
    return Orvane::Internal::PoolThreadsPeer::Handle(Orvane::Internal::ThreadPoolCorePeer::Threads(core), index);
}

// As the pool keeps a dedicated thread whose task has returned and which waits to be joined.
template <typename Policy>
void AddFinishedThread(const Orvane::Internal::ThreadPool<Policy>& pool, Orvane::Internal::NativeThread thread,
                       std::future<int> completion) {
    Orvane::Internal::DedicatedThreadsPeer::AddFinished(Orvane::Internal::ThreadPoolCorePeer::Dedicated(*pool.Core()),
                                                        std::move(thread), std::move(completion));
}

template <typename Policy>
void ForgetCompletions(const Orvane::Internal::ThreadPool<Policy>& pool) {
    Orvane::Internal::DedicatedThreadsPeer::ForgetCompletions(
        Orvane::Internal::ThreadPoolCorePeer::Dedicated(*pool.Core()));
}

template <typename Policy>
void SetNextDedicatedNumber(const Orvane::Internal::ThreadPool<Policy>& pool, std::uint32_t number) {
    Orvane::Internal::DedicatedThreadsPeer::SetNextNumber(Orvane::Internal::ThreadPoolCorePeer::Dedicated(*pool.Core()),
                                                          number);
}

// Workers that sleep until there is a task, killed ones included.
inline std::uint32_t IdleWorkers(Orvane::Internal::ThreadPoolCore& core) {
    return Orvane::Internal::WorkQueuePeer::IdleWorkers(Orvane::Internal::ThreadPoolCorePeer::Queue(core));
}

// The pool's Queue() as a callable.
template <typename Policy>
auto QueueOf(const Orvane::Internal::ThreadPool<Policy>& pool) {
    return [core = pool.Core()](const Orvane::Internal::Task& task) { core->Queue(task); };
}

}  // namespace Zarvo::Test
