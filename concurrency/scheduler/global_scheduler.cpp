#include "concurrency/scheduler/global_scheduler.h"

#include <atomic>
#include <memory>
#include <utility>

#include "concurrency/base/never_destroyed.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/scheduler/schedule_counts.h"
#include "concurrency/scheduler/scheduler.h"
#include "concurrency/scheduler/scheduler_teardown.h"

namespace Orvane::Internal {

namespace {

// On purpose without a destructor: a client that never uninitialises keeps its threads until the process ends, and
// nothing could be stopped then.
Scheduler* g_scheduler = nullptr;  // guarded by SchedulerLock()

// The same scheduler's queue for callers, who take no lock. Without a destructor: the end of the process may have killed a
// thread that was inside.
constinit NeverDestroyed<std::atomic<std::shared_ptr<ScheduledTaskQueue>>> g_queue;

std::shared_ptr<ScheduledTaskQueue> GetOrCreateQueue() {
    if (auto queue = g_queue->load()) {
        return queue;
    }
    const CriticalSectionLock lock(SchedulerLock());
    if (g_scheduler == nullptr) {
        g_scheduler = new Scheduler();
        g_queue->store(g_scheduler->Queue());
    }
    return g_scheduler->Queue();
}

}  // namespace

CriticalSection& SchedulerLock() {
    static CriticalSection lock;
    return lock;
}

void DestroyScheduler() noexcept {
    std::shared_ptr<ScheduledTaskQueue> queue;  // destroyed after the lock: what is left in it is user code
    const CriticalSectionLock lock(SchedulerLock());
    // Within the callers' reach until its thread has ended: a caller that inserts on that thread, as the destructor of a
    // callable may, would wait for this lock for ever.
    delete std::exchange(g_scheduler, nullptr);
    queue = g_queue->exchange(nullptr);
}

void GlobalScheduler::Insert(ScheduledTask task) {
    GetOrCreateQueue()->Push(std::move(task));
}

ScheduleLoad ReadSchedule() {
    const auto queue = g_queue->load();
    return queue ? queue->GetLoad() : ScheduleLoad();
}

GlobalScheduler& GlobalScheduler::operator=(const GlobalScheduler&) = default;
GlobalScheduler& GlobalScheduler::operator=(GlobalScheduler&&) noexcept = default;

}  // namespace Orvane::Internal
