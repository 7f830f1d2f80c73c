#include "concurrency/jobs/this_job.h"

#include "concurrency/jobs/job_state.h"
#include "concurrency/jobs/run_record.h"
#include "concurrency/jobs/this_run.h"

namespace Orvane {

std::stop_token Internal::TokenOfThisRun(StopInModule stop, ModuleLedger& module) {
    const auto run = RecordOfThisRun();
    return run ? run->Token(stop, module) : std::stop_token();
}

CancelReason CancelReasonOfThisJob() {
    const auto job = Internal::JobOfThisThread();
    return job ? job->Reason().ForCallers() : CancelReason();
}

}  // namespace Orvane
