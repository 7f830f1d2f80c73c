#include "concurrency/jobs/job_slot.h"

#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_future.h"

namespace Orvane::Internal {

JobSlot* JobSlot::OfThisThread() {
    const auto future = GetFutureObject();
    const JobFuture* const job = future ? JobFuture::Of(*future) : nullptr;
    return job != nullptr ? job->Slot() : nullptr;
}

}  // namespace Orvane::Internal
