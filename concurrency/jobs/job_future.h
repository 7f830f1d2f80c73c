// The future of a job: its run's place in the thread's slot, and the way in which the pool, the scheduler and the cancellable
// waits see the run. The outcome itself is the job's (job_state.h).
//
// Threads, errors: as FutureState.
// Lifetime: a part of its job.
#pragma once

#include <memory>
#include <typeinfo>

#include "concurrency/jobs/job_name.h"
#include "concurrency/tasks/future_state.h"

namespace Orvane::Internal {

class JobSlot;
class JobState;

class JobFuture final : public FutureState {
  public:
    explicit JobFuture(JobState& job) : m_job(job) { MarkAsAttachedToTask(); }

    // Null if the future is not a job's.
    static JobFuture* Of(FutureState& future) noexcept {
        return typeid(future) == typeid(JobFuture) ? static_cast<JobFuture*>(&future) : nullptr;
    }

    JobState& Job() const noexcept { return m_job; }

    // Of the job, with those of the runs that own it. Errors: std::bad_alloc.
    std::shared_ptr<const JobName> MakeName() const;

    // With those of the runs that own it.
    void NameRun(LastWords& words) const noexcept override;

    // The job's slot in its group; null if it has none.
    JobSlot* Slot() const noexcept;

    using FutureState::Complete;
    using FutureState::RequestCancelQuietly;

    // Ends the run as Error.
    void Fail();

  private:
    JobState& m_job;
};

}  // namespace Orvane::Internal
