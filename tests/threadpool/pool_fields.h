// A look into a pool, for tests that are linked to the library's objects.
//
// Threads: any; each call takes the pool's own locks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <future>
#include <mutex>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/base/native_thread.h"
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

// The pool's friend.
struct FieldOrder {
    using Core = ThreadPoolCore;

    static Zarvo::Test::PoolCounts Counts(Core& core) {
        const std::lock_guard launchLock(core.m_launchMutex);
        const std::lock_guard lock(core.m_mutex);
        const std::lock_guard exitLock(core.m_exitMutex);
        return {core.m_growable,
                core.m_threadCount,
                core.m_killedCount,
                core.m_queue.size(),
                core.m_running.size(),
                core.m_threads.size(),
                core.m_finishedThreads.size(),
                core.m_dedicatedThreads.size(),
                core.m_completionFutures.size(),
                core.m_exitedPromises.size(),
                core.m_nextDedicatedNumber};
    }

    static bool SpawnInProgress(Core& core) {
        const std::lock_guard lock(core.m_spawnMutex);
        return core.m_spawnInProgress;
    }

    static bool Stopping(Core& core) { return core.m_stopping; }

    template <typename Change>
    static void WakeStop(Core& core, Change change) {
        const std::lock_guard lock(core.m_mutex);
        change();
        core.m_workerExited.notify_all();
    }

    static void Append(Core& core, const Task& task) {
        const std::lock_guard lock(core.m_mutex);
        ThreadPoolCore::TaskList entry;
        entry.emplace_back(task);
        core.Insert(core.m_queue.end(), entry);
    }

    static std::vector<std::wstring> Names(Core& core) {
        const std::lock_guard lock(core.m_mutex);
        std::vector<std::wstring> names;
        for (PooledTask& task : core.m_queue) {
            names.emplace_back(task.Get().GetName());
        }
        return names;
    }

    static void AddFinished(Core& core, NativeThread thread, std::future<int> completion) {
        const std::lock_guard launchLock(core.m_launchMutex);
        core.m_completionFutures.emplace(thread.GetId(), std::move(completion));
        const std::lock_guard lock(core.m_mutex);
        core.m_finishedThreads.push_back(std::move(thread));
    }

    static void SetNextDedicatedNumber(Core& core, std::uint32_t number) {
        const std::lock_guard launchLock(core.m_launchMutex);
        core.m_nextDedicatedNumber = number;
    }

    static void ForgetCompletions(Core& core) {
        const std::lock_guard launchLock(core.m_launchMutex);
        core.m_completionFutures.clear();
    }

    // The addresses of the fields, in the order that they must have.
    static std::vector<const void*> Addresses(const Core& core) {
        return {&core.m_mutex,
                &core.m_exitMutex,
                &core.m_workAvailable,
                &core.m_workerExited,
                &core.m_growable,
                &core.m_queue,
                &core.m_running,
                &core.m_launchMutex,
                &core.m_dedicatedThreads,
                &core.m_finishedThreads,
                &core.m_nextDedicatedNumber,
                &core.m_stopping,
                &core.m_threads,
                &core.m_completionFutures,
                &core.m_exitedPromises,
                &core.m_threadCount,
                &core.m_lastSpawnTick,
                &core.m_killedCount,
                &core.m_spawnMutex,
                &core.m_spawnDone,
                &core.m_spawnInProgress};
    }
};

}  // namespace Orvane::Internal

namespace Zarvo::Test {

inline PoolCounts CountsOf(Orvane::Internal::ThreadPoolCore& core) {
    return Orvane::Internal::FieldOrder::Counts(core);
}

template <typename Policy>
PoolCounts CountsOf(const Orvane::Internal::ThreadPool<Policy>& pool) {
    return CountsOf(*pool.Core());
}

// Whether a growth is decided whose workers are not there yet.
inline bool SpawnIsInProgress(Orvane::Internal::ThreadPoolCore& core) {
    return Orvane::Internal::FieldOrder::SpawnInProgress(core);
}

template <typename Policy>
bool SpawnIsInProgress(const Orvane::Internal::ThreadPool<Policy>& pool) {
    return SpawnIsInProgress(*pool.Core());
}

inline bool IsStopping(Orvane::Internal::ThreadPoolCore& core) {
    return Orvane::Internal::FieldOrder::Stopping(core);
}

// As the end of a worker does. `change` is called while shutdown sleeps.
template <typename Change>
void WakeShutdown(Orvane::Internal::ThreadPoolCore& core, Change change) {
    Orvane::Internal::FieldOrder::WakeStop(core, change);
}

// Past the pool's own rules and without waking a worker.
inline void AppendToQueue(Orvane::Internal::ThreadPoolCore& core, const Orvane::Internal::Task& task) {
    Orvane::Internal::FieldOrder::Append(core, task);
}

inline std::vector<std::wstring> QueuedNames(Orvane::Internal::ThreadPoolCore& core) {
    return Orvane::Internal::FieldOrder::Names(core);
}

// As the pool keeps a dedicated thread whose task has returned and which waits to be joined.
template <typename Policy>
void AddFinishedThread(const Orvane::Internal::ThreadPool<Policy>& pool, Orvane::Internal::NativeThread thread,
                       std::future<int> completion) {
    Orvane::Internal::FieldOrder::AddFinished(*pool.Core(), std::move(thread), std::move(completion));
}

template <typename Policy>
void ForgetCompletions(const Orvane::Internal::ThreadPool<Policy>& pool) {
    Orvane::Internal::FieldOrder::ForgetCompletions(*pool.Core());
}

template <typename Policy>
void SetNextDedicatedNumber(const Orvane::Internal::ThreadPool<Policy>& pool, std::uint32_t number) {
    Orvane::Internal::FieldOrder::SetNextDedicatedNumber(*pool.Core(), number);
}

// The pool's Queue() as a callable.
template <typename Policy>
auto QueueOf(const Orvane::Internal::ThreadPool<Policy>& pool) {
    return [core = pool.Core()](const Orvane::Internal::Task& task) { core->Queue(task); };
}

}  // namespace Zarvo::Test
