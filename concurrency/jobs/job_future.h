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
    JobFuture(JobState& job, std::shared_ptr<const JobName> name) : m_job(job), m_name(std::move(name)) {
        MarkAsAttachedToTask();
    }

    // Null if the future is not a job's.
    static JobFuture* Of(FutureState& future) noexcept {
        return typeid(future) == typeid(JobFuture) ? static_cast<JobFuture*>(&future) : nullptr;
    }

    JobState& Job() const noexcept { return m_job; }
    const std::shared_ptr<const JobName>& Name() const noexcept { return m_name; }

    // The job's slot in its group; null if it has none.
    JobSlot* Slot() const noexcept { return m_slot; }
    void SetSlot(JobSlot* slot) noexcept { m_slot = slot; }

    using FutureState::Complete;
    using FutureState::RequestCancelQuietly;

    // Ends the run as Error.
    void Fail();

  private:
    JobState& m_job;
    const std::shared_ptr<const JobName> m_name;
    JobSlot* m_slot = nullptr;  // constant once the job can run
};

}  // namespace Orvane::Internal
