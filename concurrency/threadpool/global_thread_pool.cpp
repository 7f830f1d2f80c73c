#include "concurrency/threadpool/global_thread_pool.h"

#include <atomic>
#include <memory>
#include <utility>

#include "concurrency/base/never_destroyed.h"
#include "concurrency/errors/exceptions.h"
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

std::shared_ptr<ThreadPoolCore> GetOrCreate() {
    if (auto core = g_core->load()) {
        return core;
    }
    const CriticalSectionLock lock(ThreadPoolLock());
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
    PoolGrowth::SetFailureIsFinal(false);
}

void GlobalThreadPool::Queue(const Task& task) {
    GetOrCreate()->Queue(task);
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
