#include "concurrency/jobs/this_run.h"

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/jobs/job_future.h"
#include "concurrency/jobs/job_state.h"
#include "concurrency/jobs/run_record.h"

namespace Orvane::Internal {

std::shared_ptr<RunRecord> RecordOfThisRun() {
    const auto future = CurrentFuture();
    const auto run = future ? future->GetCancellationObject() : nullptr;
    if (!run) {
        return nullptr;
    }
    // Only this room installs companions.
    if (auto companion = future->GetCompanion()) {
        return std::static_pointer_cast<RunRecord>(std::move(companion));
    }
    const JobFuture* const job = JobFuture::Of(*future);
    auto fresh = std::make_shared<RunRecord>(job != nullptr ? job->MakeName() : nullptr);
    fresh->SetRun(run);
    auto record = std::static_pointer_cast<RunRecord>(future->InstallCompanion(std::move(fresh)));
    if (!record) {
        return nullptr;
    }
    // A request sets its flag first and looks for the companion second.
    if (run->IsRequested() || future->IsCancelling()) {
        AskedList asked;
        record->AskOwned((job != nullptr ? job->Job().Reason() : AskReason()).ForOwned(record->Name()), asked);
        record->StopTokens();
    }
    return record;
}

std::shared_ptr<JobState> JobOfThisThread() {
    const auto future = GetFutureObject();
    JobFuture* const job = future ? JobFuture::Of(*future) : nullptr;
    return job != nullptr ? std::shared_ptr<JobState>(future, &job->Job()) : nullptr;
}

}  // namespace Orvane::Internal
