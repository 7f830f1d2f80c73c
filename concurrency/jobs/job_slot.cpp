#include "concurrency/jobs/job_slot.h"

#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_future.h"
#include "concurrency/jobs/job_state.h"

namespace Orvane::Internal {

JobSlot* JobSlot::OfThisThread() {
    const auto future = GetFutureObject();
    const JobFuture* const job = future ? JobFuture::Of(*future) : nullptr;
    return job != nullptr ? job->Job().Slot() : nullptr;
}

}  // namespace Orvane::Internal
