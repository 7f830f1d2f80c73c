#include "concurrency/jobs/this_job.h"

#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/jobs/job_state.h"
#include "concurrency/jobs/run_record.h"

namespace Orvane {

std::stop_token StopTokenOfThisJob() {
    const auto run = Internal::RunRecord::OfThisThread();
    return run ? run->Token() : std::stop_token();
}

CancelReason CancelReasonOfThisJob() {
    const auto future = Internal::CurrentFuture();
    const Internal::JobFuture* const job = future ? Internal::JobFuture::Of(*future) : nullptr;
    return job != nullptr ? job->Job().Reason().ForCallers() : CancelReason();
}

}  // namespace Orvane
