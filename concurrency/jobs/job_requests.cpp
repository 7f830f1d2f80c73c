// Requests for a job to leave: what makes them, and what they reach.
#include <optional>
#include <utility>

#include "concurrency/base/thread_time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job_state.h"

namespace Orvane::Internal {

void JobState::Enlist() {
    m_traced.Begin(*this);
    Internal::Enlist(*this);
    if (!m_owner) {
        return;
    }
    const bool isOwnerAsked = !m_owner->Add(*this);
    if (!IsWaiting()) {
        m_owner->Remove(*this);  // the last uninitialisation has asked it, and it may have ended before it was there
    } else if (isOwnerAsked) {
        AskToLeave(*this, m_owner->ReasonForOwned());
    }
}

void JobState::GiveUp() noexcept {
    AskToLeave(*this, {CancelCause::Dropped, nullptr});
    AwaitedJob awaited(*this);
    static_cast<void>(WaitToTheEnd(awaited));
    m_isRead = true;  // the caller gets the exception of the start
    LetGo();
}

void JobState::Ask(const AskReason& reason, AskedList& asked) noexcept {
    const std::optional<AskReason> first = KeepFirst(reason);
    if (!first) {
        return;
    }
    if (Claim(Phase::Ending)) {
        m_time = ThreadNow();
        m_thread = ::GetCurrentThreadId();
        m_future.RequestCancelQuietly();  // its task does not say that it has started
        asked.Add(shared_from_this());
    } else {
        AskRun(*first, asked);
    }
}

// Returns the reason of the first request, which may be this one; nothing if the job has ended.
std::optional<AskReason> JobState::KeepFirst(const AskReason& reason) noexcept {
    AskReason first;
    bool isFirst = false;
    {
        const RankedLock lock(m_shard.mutex);
        if (m_phase == Phase::Ended) {
            return std::nullopt;
        }
        isFirst = m_cause == CancelCause::None;
        if (isFirst) {
            m_cause = reason.cause;
            m_askedBy = reason.by;
        }
        first = {m_cause, m_askedBy};
    }
    if (isFirst) {
        TraceJobAsked(*this, first);
    }
    return first;
}

// The run may be over as soon as it is asked, and its record out of reach; one that is made meanwhile is found behind the flag.
void JobState::AskRun(const AskReason& first, AskedList& asked) noexcept {
    auto record = Record();
    if (record) {
        // Before the run wakes: what it drops then is asked with this reason.
        record->KeepReason(first.ForOwned(record->Name()));
    }
    m_future.RequestCancelQuietly(first.Limit());
    asked.ReachesRun();
    if (!record) {
        record = Record();
    }
    if (record) {
        record->AskOwned(first.ForOwned(record->Name()), asked);
        // Not the job: by the second pass its run may be over, and the record with the tokens out of its reach.
        asked.Add(std::move(record));
    }
}

// Only for a job that never runs.
void JobState::FinishAsking() noexcept {
    m_traced.End(*this, L"cancelled");
    End(false);
}

// Of the run that is under way; empty if it has needed none.
std::shared_ptr<RunRecord> JobState::Record() {
    return std::static_pointer_cast<RunRecord>(m_future.GetCompanion());
}

// A request that came through the future, not through Ask(), has left no reason yet.
void JobState::KeepReason() noexcept {
    if (m_outcome != JobOutcome::Done) {
        const AskReason reason = Reason();
        const RankedLock lock(m_shard.mutex);
        m_cause = reason.cause;
        m_askedBy = reason.by;
    }
}

AskReason JobState::Reason() const {
    const bool isAsked = m_future.IsCancelling();
    const RankedLock lock(m_shard.mutex);
    if (m_cause == CancelCause::None && isAsked) {
        return {CancelCause::Task, nullptr};
    }
    return {m_cause, m_askedBy};
}

AskReason JobState::DropReason() const noexcept {
    const bool isByOwner = m_owner && m_owner->IsRequestedOnThisThread();
    return isByOwner ? m_owner->ReasonForOwned() : AskReason{CancelCause::Dropped, nullptr};
}

void JobState::CancelOn(const std::stop_token& token) {
    if (!token.stop_possible()) {
        return;
    }
    const auto link = std::make_shared<TokenLink>(weak_from_this());
    {
        const RankedLock lock(m_shard.mutex);
        if (m_phase.load() == Phase::Ended) {
            return;
        }
        NeedExtras().token = link;
    }
    link->Register(token);
}

JobExtras& JobState::NeedExtras() {
    if (!m_extras) {
        m_extras = std::make_unique<JobExtras>();
    }
    return *m_extras;
}

void JobState::CancelAfter(std::chrono::nanoseconds limit) {
    const auto when = DeadlineAfter(limit);
    if (when == kNoDeadline || IsEnded()) {
        return;
    }
    const auto name = std::make_shared<const LimitName>(Name(), limit);
    if (limit <= std::chrono::nanoseconds::zero()) {
        TimeIsUp(name);
        return;
    }
    auto extras = std::make_unique<JobExtras>();  // before the limit: nothing fails after it
    TimeLimit fresh = AddTimeLimit(weak_from_this(), when, name);
    {
        const RankedLock lock(m_shard.mutex);
        if (!m_extras) {
            m_extras.swap(extras);
        }
        const bool isEarlier = m_extras->limit.number == 0 || when < m_extras->limit.when;
        if (m_phase != Phase::Ended && isEarlier) {
            std::swap(m_extras->limit, fresh);
        }
    }
    RemoveTimeLimit(fresh);
}

void JobState::CancelWhen(HANDLE handle) {
    if (IsEnded()) {
        return;
    }
    auto extras = std::make_unique<JobExtras>();  // before the watch: nothing fails after it
    HandleWatches fresh = WatchHandle(handle, weak_from_this());
    {
        const RankedLock lock(m_shard.mutex);
        if (!m_extras) {
            m_extras.swap(extras);
        }
        if (m_phase != Phase::Ended) {
            m_extras->watches.splice(m_extras->watches.end(), fresh);
        }
    }
    RemoveHandleWatches(fresh);
}

// What was attached before the end was published: what comes later sees the end.
void JobState::TidyUp() noexcept {
    TimeLimit limit;
    HandleWatches watches;
    std::shared_ptr<TokenLink> token;
    {
        const RankedLock lock(m_shard.mutex);
        if (m_extras) {
            limit = std::exchange(m_extras->limit, {});
            watches.swap(m_extras->watches);
            token.swap(m_extras->token);
        }
    }
    RemoveTimeLimit(limit);
    RemoveHandleWatches(watches);
    DiscardIfUnread();
    if (token) {
        token->Remove();
    }
}

}  // namespace Orvane::Internal
