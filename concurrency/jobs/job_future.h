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
    std::shared_ptr<const JobName> MakeName() const { return std::make_shared<const JobName>(m_name, *m_above); }

    // The characters and the pointer must live as long as the job.
    void SetName(const wchar_t* name, const std::shared_ptr<const JobName>& above) noexcept {
        m_name = name;
        m_above = &above;
    }
    const wchar_t* Name() const noexcept { return m_name; }
    const std::shared_ptr<const JobName>& Above() const noexcept { return *m_above; }

    // With those of the runs that own it.
    void NameRun(LastWords& words) const noexcept override;

    // The job's slot in its group; null if it has none.
    JobSlot* Slot() const noexcept { return m_slot; }
    void SetSlot(JobSlot* slot) noexcept { m_slot = slot; }

    using FutureState::Complete;
    using FutureState::RequestCancelQuietly;

    // Ends the run as Error.
    void Fail();

  private:
    JobState& m_job;
    const wchar_t* m_name = L"";
    const std::shared_ptr<const JobName>* m_above = nullptr;
    JobSlot* m_slot = nullptr;  // constant once the job can run
};

}  // namespace Orvane::Internal
