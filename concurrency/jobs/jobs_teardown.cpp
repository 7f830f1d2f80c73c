#include "concurrency/jobs/jobs_teardown.h"

#include "concurrency/jobs/handle_watch.h"
#include "concurrency/jobs/job_registry.h"
#include "concurrency/jobs/pool_starter.h"
#include "concurrency/jobs/time_limits.h"

namespace Orvane::Internal {

void BeginJobsTeardown() noexcept {
    CloseJobs();
    CloseStarter();
}

// The starter's thread may have waited for a growth until the pool let it pass.
void EndJobsTeardown() noexcept {
    JoinStarter();
    StopTimeLimits();
    StopHandleWatches();
}

void AllowJobs() noexcept {
    ReopenJobs();
}

}  // namespace Orvane::Internal
