#include "concurrency/tasks/tracked_tasks.h"

#include <utility>

#include "concurrency/base/mutex.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/ranked_mutex.h"

namespace Orvane::Internal {

namespace {

struct Tracked {
    RankedMutex<RecursiveMutex, LockRank::Leaf> mutex;
    IntrusiveList<TrackedTask, TrackedTag> tasks ORVANE_GUARDED_BY(mutex);  // the newest last
    IntrusiveList<TrackedTask, TrackedTag> left ORVANE_GUARDED_BY(mutex);   // that a round has not come to yet
};

// Without a destructor: the end of the process may have killed a thread that held the lock.
Tracked& AllTracked() noexcept {
    static NeverDestroyed<Tracked> tracked;
    return *tracked;
}

}  // namespace

TrackedTask::TrackedTask(std::weak_ptr<TaskImpl> task) : m_task(std::move(task)) {
    Tracked& all = AllTracked();
    const RankedLock lock(all.mutex);
    all.tasks.PushBack(*this);
}

TrackedTask::~TrackedTask() {
    const RankedLock lock(AllTracked().mutex);
    Unlink();
}

void TrackedTask::BeginRound() {
    Tracked& all = AllTracked();
    const RankedLock lock(all.mutex);
    all.left.TakeAll(all.tasks);
}

// Puts the newest that is left back, and returns it. Null when the round is over.
std::shared_ptr<TaskImpl> TrackedTask::Next() {
    Tracked& all = AllTracked();
    const RankedLock lock(all.mutex);
    while (TrackedTask* const newest = all.left.PopBack()) {
        all.tasks.PushFront(*newest);
        if (auto task = newest->m_task.lock()) {
            return task;
        }
    }
    return nullptr;
}

}  // namespace Orvane::Internal
