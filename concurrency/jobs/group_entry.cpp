// What a group knows of one job.
#include <utility>

#include "concurrency/base/report.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/jobs/group_core.h"
#include "concurrency/tasks/failure_handler.h"

namespace Orvane::Internal {

GroupEntry::GroupEntry(std::shared_ptr<GroupCore> core, std::shared_ptr<const JobName> name)
    : m_core(std::move(core)), m_name(std::move(name)), m_endedNode(1), m_failedNode(1) {}

const void* GroupEntry::OwnerOfGroup() const noexcept {
    return m_core->m_owner ? static_cast<const RunCompanion*>(&m_core->m_owner->Whole()) : nullptr;
}

const std::shared_ptr<const JobName>& GroupEntry::GroupName() const noexcept {
    return m_core->Name();
}

void GroupEntry::Publish(JobState& job, bool hasRun, Departure& departure) noexcept {
    GroupCore& core = *m_core;
    const RankedLock lock(core.m_mutex);
    departure.name = m_name;
    core.m_departures.PushBack(departure);
    --(m_isWaiting ? core.m_counts.waiting : core.m_counts.running);
    core.m_readyCount -= m_isWaiting && m_hasSlot ? 1 : 0;
    Unlink();
    m_isWaiting = false;
    m_keptJob = nullptr;  // the thread that ends the job holds it, too
    m_job = nullptr;
    if (!m_isWithdrawn) {
        Count(job);
        m_isOneOfMany = core.m_results.AddRecord(m_endedNode, {m_index, job.Outcome(), {m_name, job.Error()}});
    } else if (m_index + 1 == core.m_added) {
        --core.m_added;  // the next job gets its number
    }
    if (std::exchange(m_hasSlot, false)) {
        core.m_slots.Free();
    }
    if (job.IsKeptByHandle()) {
        m_job = &job;
        m_hasHandle = true;  // before the handle can find the job ended
        core.m_withHandle.PushBack(*this);
    }
    job.PublishEnd();
    departure.since = job.EndTime();
    SignalAll(core.m_readers);
    if (core.Left() == 0) {
        SignalAll(core.m_listeners);
    }
    m_mayStartAnother = !hasRun;  // else the runner takes the next job itself
}

// Within Publish().
void GroupEntry::Count(const JobState& job) noexcept {
    GroupCore& core = *m_core;
    const bool hasFailed = job.Outcome() == JobOutcome::Failed;
    m_failed = hasFailed ? FailedJob{m_name, job.Error()} : FailedJob{};
    switch (job.Outcome()) {
        case JobOutcome::Done: ++core.m_counts.done; break;
        case JobOutcome::Failed: ++core.m_counts.failed; break;
        case JobOutcome::Cancelled:
            ++core.m_counts.cancelled;
            // The last uninitialisation asks the job and the group one after the other.
            core.m_wasCancelled = core.m_wasCancelled || core.m_reason.cause != CancelCause::None ||
                                  job.Reason().cause == CancelCause::Shutdown;
            break;
    }
    if (hasFailed && (!m_schedule || m_schedule->onFailure == OnFailure::FailGroup)) {
        m_failedNode.front() = std::exchange(m_failed, {});
        m_failsGroup = core.m_results.AddFailure(m_failedNode);
        core.SpendByFailure();
    }
    if (m_schedule) {
        m_schedule->isUnderWay = false;
        if (!m_schedule->isRecurrent || (hasFailed && m_schedule->onFailure == OnFailure::Stop)) {
            core.EndSchedule(*m_schedule);
        }
    }
}

void GroupEntry::LetGo() noexcept {
    if (m_hasHandle) {
        m_hasHandle = false;
        const RankedLock lock(m_core->m_mutex);
        Unlink();
        m_job = nullptr;
    }
}

void GroupEntry::GoOn(Departure& departure) noexcept {
    if (m_isOneOfMany) {
        ReportNoThrow(4, 16, L"Concurrency.Job",
                      L"Group [%s] keeps the records of %d ended jobs that no iteration has taken: see ForgetEnded()",
                      m_core->m_name->text.c_str(), static_cast<int>(GroupResults::kMany));
    }
    if (m_failed.error) {
        ReportUnreadFailure(m_failed.name->text.c_str(), m_failed.error.Get());
        m_failed.error.Drop();
    }
    if (m_failsGroup) {
        m_core->AskAfterFailure();
    }
    if (m_schedule) {
        m_core->ForgetIfEnded(m_schedule);
    }
    if (m_mayStartAnother) {
        m_core->StartRunner();
    }
    m_core->Departs(departure);
}

void GroupEntry::GiveBack() noexcept {
    {
        const RankedLock lock(m_core->m_mutex);
        if (!m_hasSlot) {
            return;
        }
        m_hasSlot = false;
        m_wantsSlot = true;
        --m_core->m_runners;
        m_core->HandOver();
    }
    m_core->StartRunner();
}

bool GroupEntry::TakeAgain(JobWaiter& waiter, CancellationObject& run) {
    GroupCore& core = *m_core;
    JobListener listener;
    listener.waiter = &waiter;
    {
        const RankedLock lock(core.m_mutex);
        if (!std::exchange(m_wantsSlot, false)) {
            return true;
        }
        core.m_slots.BeginToRetake(listener);
    }
    for (;;) {
        const std::uint32_t seen = waiter.Signals();
        const bool isAsked = run.IsRequested();
        {
            const RankedLock lock(core.m_mutex);
            if (isAsked || core.m_slots.IsOneFree()) {
                core.m_slots.EndToRetake(listener);
                ++core.m_runners;
                m_hasSlot = !isAsked;
                if (m_hasSlot) {
                    core.m_slots.Take();
                }
                break;
            }
        }
        waiter.Sleep(seen, kNoDeadline);
    }
    if (!m_hasSlot) {
        core.StartRunner();  // what was kept for this job is free
    }
    return m_hasSlot;
}

void GroupEntry::TakeAgainAtOnce() noexcept {
    GroupCore& core = *m_core;
    const RankedLock lock(core.m_mutex);
    if (!std::exchange(m_wantsSlot, false)) {
        return;
    }
    ++core.m_runners;
    if (core.m_slots.IsOneFree()) {
        core.m_slots.Take();
        m_hasSlot = true;
    }
}

}  // namespace Orvane::Internal
