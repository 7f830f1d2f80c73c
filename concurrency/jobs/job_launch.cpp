#include "concurrency/jobs/job_launch.h"

#include "concurrency/jobs/virtual_run.h"
#include "concurrency/threadpool/global_pool_queue.h"

namespace Orvane::Internal {

bool Launch(const Task& task, Place place) {
    if (VirtualRun* const run = VirtualRun::OfThisThread()) {
        run->Start(task);
        return true;
    }
    switch (place) {
        case Place::PoolIfItHasRoom: return TryQueue(task);
        case Place::Pool: QueueOrFail(task); break;
        case Place::NewThread: LaunchForJob(task); break;
    }
    return true;
}

}  // namespace Orvane::Internal
