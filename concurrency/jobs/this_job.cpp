#include "concurrency/jobs/this_job.h"

#include "concurrency/jobs/job_state.h"
#include "concurrency/jobs/run_record.h"
#include "concurrency/jobs/this_run.h"

namespace Orvane {

std::stop_token StopTokenOfThisJob() {
    const auto run = Internal::RecordOfThisRun();
    return run ? run->Token() : std::stop_token();
}

CancelReason CancelReasonOfThisJob() {
    const auto job = Internal::JobOfThisThread();
    return job ? job->Reason().ForCallers() : CancelReason();
}

}  // namespace Orvane
