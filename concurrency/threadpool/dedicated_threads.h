// Threads that run one task each, beside the pool's workers.
//
// Locks: the launch mutex, then those of the records and the promises. None is held while a task runs or is destroyed.
//
// Threads: any.
// Errors: std::system_error if a lock fails.
#pragma once

#include <cstdint>
#include <future>
#include <map>
#include <memory>

#include "concurrency/base/last_words.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/native_thread.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/win32.h"
#include "concurrency/tasks/task.h"
#include "concurrency/threadpool/pool_threads.h"

namespace Orvane::Internal {

struct DedicatedThreadsPeer;

class DedicatedThreads {
  public:
    explicit DedicatedThreads(PoolThreads& threads) : m_threads(threads) {}
    DedicatedThreads(const DedicatedThreads&) = delete;
    DedicatedThreads& operator=(const DedicatedThreads&) = delete;

    // Runs the task on a new thread that carries its name. The thread keeps `owner`, to which this object belongs.
    //
    // Blocks: joins the threads of earlier launches that have ended, and waits up to 200 ms for each that is ending.
    // Errors: std::system_error (resource_unavailable_try_again) if the thread cannot be started, std::bad_alloc; nothing is
    //     changed then.
    void Launch(const Task& task, std::shared_ptr<void> owner);

    // Returns when no launch is under way that has started its thread and not put it on record yet.
    void AwaitLaunch();

    // Joins the threads whose tasks have returned, without limit.
    void JoinFinished();

  private:
    friend struct DedicatedThreadsPeer;

    using LaunchMutex = RankedMutex<RecursiveMutex, LockRank::Launch>;
    using ExitMutex = RankedMutex<RecursiveMutex, LockRank::Leaf>;
    using Records = PoolThreads::Records;
    using PromiseMap = std::map<DWORD, std::promise<int>>;

    void Run(std::uint32_t number, Task& task, PromiseMap::node_type promise, TaskNote& note);
    void MarkFinished(std::uint32_t number);
    void JoinEnded() ORVANE_REQUIRES(m_launchMutex);
    bool Ends(const NativeThread& thread) ORVANE_REQUIRES(m_launchMutex);
    void JoinAndForget(Records::iterator record) ORVANE_REQUIRES(m_launchMutex);

    PoolThreads& m_threads;

    LaunchMutex m_launchMutex;  // one launch, one end of a dedicated thread or one reaping at a time
    std::map<std::uint32_t, Records::iterator> m_dedicatedThreads ORVANE_GUARDED_BY(m_launchMutex);
    Records m_finishedThreads ORVANE_GUARDED_BY(m_launchMutex);
    std::map<DWORD, std::future<int>> m_completionFutures ORVANE_GUARDED_BY(m_launchMutex);
    std::uint32_t m_nextDedicatedNumber ORVANE_GUARDED_BY(m_launchMutex) = 0;

    ExitMutex m_exitMutex;
    PromiseMap m_exitedPromises ORVANE_GUARDED_BY(m_exitMutex);
};

}  // namespace Orvane::Internal
