#include "concurrency/threadpool/global_thread_pool.h"

#include <atomic>
#include <memory>
#include <utility>

#include "concurrency/base/never_destroyed.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/errors/misuse.h"
#include "concurrency/threadpool/global_pool_queue.h"
#include "concurrency/threadpool/thread_pool.h"
#include "concurrency/threadpool/thread_pool_teardown.h"

namespace Orvane::Internal {

namespace {

using ProcessPool = ThreadPool<ComPolicyMTA>;

// On purpose without a destructor: a client that never uninitialises keeps its threads until the process ends, and
// nothing could be stopped then.
ProcessPool* g_pool = nullptr;  // guarded by ThreadPoolLock()

// The same pool for callers, who take no lock. A caller that comes too late holds the stopped body. Without a destructor:
// the end of the process may have killed a thread that was inside.
constinit NeverDestroyed<std::atomic<std::shared_ptr<ThreadPoolCore>>> g_core;

// Since the last uninitialisation has destroyed the pool. Guarded by ThreadPoolLock().
bool g_hasEnded = false;

enum class AfterTheEnd { Create, Throw };

std::shared_ptr<ThreadPoolCore> GetOrCreate(AfterTheEnd afterTheEnd = AfterTheEnd::Create) {
    if (auto core = g_core->load()) {
        return core;
    }
    const CriticalSectionLock lock(ThreadPoolLock());
    if (g_pool == nullptr && g_hasEnded && afterTheEnd == AfterTheEnd::Throw) {
        ThrowUninitializing();
    }
    if (g_pool == nullptr) {
        g_pool = new ProcessPool(0);
        g_core->store(g_pool->Core());
    }
    return g_pool->Core();
}

}  // namespace

CriticalSection& ThreadPoolLock() {
    static CriticalSection lock;
    return lock;
}

void GiveUpFailedGrowth() noexcept {
    PoolGrowth::SetFailureIsFinal(true);
    if (const auto core = g_core->load()) {
        core->WakeCallers();
    }
}

void DestroyThreadPool() noexcept {
    std::shared_ptr<ThreadPoolCore> core;  // destroyed after the lock: what is left in its queue is user code
    const CriticalSectionLock lock(ThreadPoolLock());
    // Not to be found while it stops: what its shutdown destroys may come back here.
    delete std::exchange(g_pool, nullptr);
    core = g_core->exchange(nullptr);
    g_hasEnded = true;
    PoolGrowth::SetFailureIsFinal(false);
}

void AllowThreadPool() noexcept {
    const CriticalSectionLock lock(ThreadPoolLock());
    g_hasEnded = false;
}

void GlobalThreadPool::Queue(const Task& task) {
    GetOrCreate()->Queue(task);
}

void QueueOrFail(const Task& task) {
    GetOrCreate(AfterTheEnd::Throw)->QueueOrFail(task);
}

bool TryQueue(const Task& task) {
    return GetOrCreate(AfterTheEnd::Throw)->TryQueue(task);
}

std::optional<WorkQueue::Load> ReadPool() {
    const auto core = g_core->load();
    return core ? std::optional(core->GetLoad()) : std::nullopt;
}

void LaunchForJob(const Task& task) {
    GetOrCreate(AfterTheEnd::Throw)->LaunchInNewThread(task);
}

void GlobalThreadPool::LaunchInNewThread(const Task& task) {
    GetOrCreate()->LaunchInNewThread(task);
}

bool GlobalThreadPool::IsPresent(const Task& task) {
    return GetOrCreate()->IsPresent(task);
}

void GlobalThreadPool::IncreaseKilledThreadCount() {
    GetOrCreate()->IncreaseKilledThreadCount();
}

}  // namespace Orvane::Internal
