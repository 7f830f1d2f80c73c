#include "concurrency/jobs/job_launch.h"

#include "concurrency/jobs/virtual_run.h"
#include "concurrency/threadpool/global_pool_queue.h"

namespace Orvane::Internal {

bool Launch(const Task& task, LaunchOn where) {
    if (VirtualRun* const run = VirtualRun::OfThisThread()) {
        run->Start(task);
        return true;
    }
    switch (where) {
        case LaunchOn::PoolIfItHasRoom: return TryQueue(task);
        case LaunchOn::Pool: QueueOrFail(task); break;
        case LaunchOn::NewThread: LaunchForJob(task); break;
    }
    return true;
}

}  // namespace Orvane::Internal
