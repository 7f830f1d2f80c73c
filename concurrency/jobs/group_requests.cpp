// Requests for a group, and the failures that lead to one.
#include <new>
#include <utility>

#include "concurrency/jobs/group_core.h"

namespace Orvane::Internal {

// Needs m_mutex. After a failure.
void GroupCore::SpendByFailure() noexcept {
    if (m_reason.cause == CancelCause::None) {
        m_reason = {CancelCause::GroupFailure, m_results.First().name};
    }
}

void GroupCore::Fail(const std::shared_ptr<const JobName>& name, const std::exception_ptr& error) noexcept {
    const FailedJob failure{name, HeldError(error, m_library)};
    std::list<FailedJob> failed;
    try {
        failed.push_back(failure);
    } catch (const std::bad_alloc&) {
        // On purpose: without memory for the list, the first failure is kept all the same.
    }
    {
        const RankedLock lock(m_mutex);
        if (!failed.empty()) {
            m_results.AddFailure(failed);
        } else {
            m_results.AddFirstFailure(failure);
        }
        SpendByFailure();
    }
    AskAfterFailure();
}

void GroupCore::AskAfterFailure() noexcept {
    AskReason reason;
    {
        const RankedLock lock(m_mutex);
        reason = {CancelCause::GroupFailure, m_results.First().name};
    }
    AskToLeave(*this, reason);
}

void GroupCore::Ask(const AskReason& reason, AskedList& asked) noexcept {
    bool hasSchedules = false;
    {
        const RankedLock lock(m_mutex);
        if (m_reason.cause == CancelCause::None) {
            m_reason = reason;
        }
        for (const auto& schedule : m_schedules) {
            hasSchedules = true;
            EndSchedule(*schedule);
        }
    }
    AskJobs(reason, asked);
    if (hasSchedules) {
        asked.Add(shared_from_this());
    }
}

// Those that run first: they need time to leave.
void GroupCore::AskJobs(const AskReason& reason, AskedList& asked) noexcept {
    Entries waiting;
    RankedLock lock(m_mutex);
    m_beingAsked.TakeAll(m_running);
    TakeWaiting(waiting);
    while (GroupEntry* const entry = m_beingAsked.PopFront()) {
        m_running.PushBack(*entry);
        if (auto job = entry->m_job->Self()) {
            const ReleasedLock released(lock, m_mutex);
            job->Ask(reason, asked);
            job.reset();
        }
    }
    while (GroupEntry* const entry = waiting.PopFront()) {
        m_running.PushBack(*entry);  // it does not run, but a thread is about to end it
        auto job = entry->m_keptJob;
        const ReleasedLock released(lock, m_mutex);
        job->Ask(reason, asked);
        job.reset();
    }
}

void GroupCore::FinishAsking() noexcept {
    while (const auto ended = NextToCancel()) {
        CancelEnded(*ended);
    }
}

// Needs m_mutex. Moves all that wait, with and without a slot.
void GroupCore::TakeWaiting(Entries& taken) noexcept {
    taken.TakeAll(m_ready);
    taken.TakeAll(m_waiting);
}

void GroupCore::DropWaiting() noexcept {
    AskedList asked;
    Entries waiting;
    RankedLock lock(m_mutex);
    TakeWaiting(waiting);
    while (GroupEntry* const entry = waiting.PopFront()) {
        m_running.PushBack(*entry);
        auto job = entry->m_keptJob;
        const ReleasedLock released(lock, m_mutex);
        job->Ask({CancelCause::Group, m_name}, asked);
        job.reset();
    }
}

void GroupCore::CancelAfter(std::chrono::nanoseconds limit) {
    const auto when = DeadlineAfter(limit);
    if (when == kNoDeadline) {
        return;
    }
    const auto name = std::make_shared<const LimitName>(m_name->text.c_str(), limit);
    if (limit <= std::chrono::nanoseconds::zero()) {
        TimeIsUp(name);
        return;
    }
    TimeLimit fresh = AddTimeLimit(weak_from_this(), when, name);
    {
        const RankedLock lock(m_mutex);
        if (m_limit.number == 0 || when < m_limit.when) {
            std::swap(m_limit, fresh);
        }
    }
    RemoveTimeLimit(fresh);
}

void GroupCore::CancelWhen(HANDLE handle) {
    HandleWatches fresh = WatchHandle(handle, weak_from_this());
    const RankedLock lock(m_mutex);
    m_watches.splice(m_watches.end(), fresh);
}

AskReason GroupCore::DropReason() const noexcept {
    const bool isByOwner = m_owner && m_owner->IsRequestedOnThisThread();
    return isByOwner ? m_owner->ReasonForOwned() : AskReason{CancelCause::Dropped, m_name};
}

CancelReason GroupCore::Reason() const {
    AskReason reason;
    {
        const RankedLock lock(m_mutex);
        reason = m_reason;
    }
    return reason.ForCallers();
}

}  // namespace Orvane::Internal
