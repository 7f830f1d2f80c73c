#include "concurrency/jobs/job_state.h"

#include <bit>
#include <cstddef>
#include <stdexcept>

#include "concurrency/base/thread_time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/cancellation/run.h"
#include "concurrency/tasks/failure_handler.h"
#include "concurrency/tasks/run_counts.h"
#include "concurrency/tasks/task_wrapper.h"

namespace Orvane::Internal {

namespace {

const std::shared_ptr<const JobName>& NobodysName() noexcept {
    static const std::shared_ptr<const JobName> none;
    return none;
}

}  // namespace

JobState::JobState(const wchar_t* name, const JobBodyType& type, ModuleLedger& module)
    : m_alignmentBits(static_cast<std::uint8_t>(std::countr_zero(type.alignment))),
      m_shard(ShardOf(*this)),
      m_module(&module),
      m_future(*this),
      m_block(type, name),
      m_name(m_block.Name()) {}

JobState::~JobState() {
    m_traced.End(*this, L"never started");
    if (m_group) {
        m_group->LetGo();
    }
    Discard();
    DestroyCall();
    static_cast<void>(TakeError());
    m_block.Free(std::size_t{1} << m_alignmentBits);
    Unpin();
}

void JobState::PinModule() {
    Module().Pin(&m_block.Type());
    m_isPinned = true;
}

// Last: the code of the module may be gone after it.
void JobState::Unpin() noexcept {
    if (std::exchange(m_isPinned, false)) {
        m_block.Type().module().Unpin();
    }
}

void JobState::MarkBuilt() noexcept {
    m_isBuilt = true;
    Module().Add(ModuleLedger::Callables);
}

void JobState::SetOwner(std::shared_ptr<RunRecord> owner) noexcept {
    m_owner = std::move(owner);
}

void JobState::SetGroup(std::shared_ptr<JobGroupLink> group) noexcept {
    m_group = std::move(group);
}

const std::shared_ptr<const JobName>& JobState::Above() const noexcept {
    if (m_group) {
        return m_group->GroupName();
    }
    return m_owner ? m_owner->Name() : NobodysName();
}

void JobState::SetReader(Reader reader) noexcept {
    const RankedLock lock(m_shard.mutex);
    m_reader = reader;
}

std::shared_ptr<IFutureState> JobState::GetFuture() {
    return {shared_from_this(), &m_future};
}

// The thread that moves it out of Waiting owns the next steps.
bool JobState::Claim(Phase to) noexcept {
    Phase waiting = Phase::Waiting;
    return m_phase.compare_exchange_strong(waiting, to);
}

void JobState::operator()() {
    const auto self = shared_from_this();
    if (!Claim(Phase::Running)) {
        return;
    }
    m_time = ThreadNow();
    m_thread = ::GetCurrentThreadId();
    m_traced.End(*this, L"started");
    TracedRun traced;
    TraceJobBegins(traced, *this);
    ModuleLedger* const moduleOfFailure = Call();
    m_phase = Phase::Ending;
    DestroyCall();
    if (moduleOfFailure != nullptr) {
        m_module = moduleOfFailure;
    }
    TraceJobEnds(traced, *this);
    End(true);
}

// Returns the module of the exception with which it failed, where that is counted; null if it did not fail.
ModuleLedger* JobState::Call() noexcept {
    try {
        if (!m_future.Start()) {
            CountUnbegun(Name());
            return nullptr;  // asked between the claim and here
        }
        const CurrentFutureScope current(std::shared_ptr<FutureState>(shared_from_this(), &m_future));
        try {
            m_block.Type().invoke(Body());
            if (m_block.Type().hasResult) {
                Module().Add(ModuleLedger::Results);
                m_hasResult = true;
            }
            m_outcome = JobOutcome::Done;
        } catch (const CancelRequestedException&) {
            // Carried over from another run it is a failure like others.
            if (!m_future.IsCancelling()) {
                throw;
            }
        } catch (const CancelledException&) {
            if (!m_future.IsCancelling()) {
                throw;
            }
        }
    } catch (...) {
        ModuleLedger& module = LedgerOfException(Module());
        m_error = std::current_exception();
        module.Add(ModuleLedger::Failures);
        m_outcome = JobOutcome::Failed;
        return &module;
    }
    return nullptr;
}

void JobState::DestroyCall() noexcept {
    if (m_isBuilt) {
        m_isBuilt = false;
        try {
            m_block.Type().destroyCall(Body());
        } catch (...) {
            EndProcess("the destructor of a job's callable has thrown");
        }
        Module().Subtract(ModuleLedger::Callables);
    }
}

void JobState::Discard() noexcept {
    if (m_hasResult) {
        m_hasResult = false;
        try {
            m_block.Type().destroyResult(Body());
        } catch (...) {
            EndProcess("the destructor of a job's result has thrown");
        }
        Module().Subtract(ModuleLedger::Results);
    }
}

HeldError JobState::TakeError() noexcept {
    if (m_outcome != JobOutcome::Failed) {
        return {};
    }
    const RankedLock lock(m_shard.mutex);
    return HeldError::Counted(std::exchange(m_error, nullptr), Module());
}

bool JobState::IsKeptByHandle() const noexcept {
    if (!m_hasResult && m_outcome != JobOutcome::Failed) {
        return false;
    }
    const RankedLock lock(m_shard.mutex);
    return m_reader == Reader::Handle;
}

void JobState::End(bool hasRun) noexcept {
    DestroyCall();
    if (!hasRun) {
        CountUnbegun(Name());
    }
    if (m_owner) {
        m_owner->Remove(*this);
    }
    DiscardIfUnread();
    KeepReason();
    if (const auto record = Record()) {
        record->LetGoOfModules();
    }
    switch (m_outcome) {
        case JobOutcome::Done: m_future.Complete(); break;
        case JobOutcome::Failed: m_future.Fail(); break;
        case JobOutcome::Cancelled: m_future.ConfirmCancel(); break;
    }
    m_future.RequestCancelQuietly();  // makes the future of a run that has not started final, too
    if (!m_group) {
        EndWithoutGroup();
        return;
    }
    Departure departure;
    m_group->Publish(*this, hasRun, departure);
    TidyUp();
    m_group->GoOn(departure);
}

void JobState::EndWithoutGroup() noexcept {
    Departure departure;
    ModuleLedger& module = m_block.Type().module();
    module.BeginDeparture(departure, m_future);
    PublishEnd();
    TidyUp();
    bool isUnread = false;
    {
        const RankedLock lock(m_shard.mutex);
        m_isBehind = true;
        isUnread = m_reader == Reader::Nobody;
    }
    if (isUnread) {
        Unpin();
    }
    module.EndDeparture(departure);
}

void JobState::PublishEnd() noexcept {
    const RankedLock lock(m_shard.mutex);
    Delist(*this);
    m_thread = 0;
    m_time = ThreadNow();
    m_phase = Phase::Ended;
    if (m_extras && m_extras->ended) {
        SetEvent(m_extras->ended->Handle());
    }
    SignalAll(m_listeners);
}

void JobState::DiscardIfUnread() noexcept {
    {
        const RankedLock lock(m_shard.mutex);
        if (m_reader != Reader::Nobody) {
            return;
        }
    }
    Discard();
    if (m_group && !IsEnded()) {
        return;  // the group takes a copy of the failure when the end is published
    }
    const HeldError error = TakeError();
    if (m_group) {
        m_group->LetGo();
    } else if (error) {
        ReportUnreadFailure(Name(), error.Get());
    }
}

bool JobState::IsOnThisThread() const noexcept {
    return m_thread == ::GetCurrentThreadId();
}

HANDLE JobState::EndEvent() {
    auto extras = std::make_unique<JobExtras>();
    auto fresh = std::make_unique<ManualEvent>();
    const RankedLock lock(m_shard.mutex);
    if (!m_extras) {
        m_extras.swap(extras);
    }
    if (!m_extras->ended) {
        m_extras->ended.swap(fresh);
        if (m_phase == Phase::Ended) {
            SetEvent(m_extras->ended->Handle());
        }
    }
    return m_extras->ended->Handle();
}

void JobState::Attach(JobListener& listener) noexcept {
    const RankedLock lock(m_shard.mutex);
    m_listeners.PushBack(listener);
}

void JobState::Detach(JobListener& listener) noexcept {
    const RankedLock lock(m_shard.mutex);
    listener.Unlink();
}

std::exception_ptr JobState::CopyError() const noexcept {
    const RankedLock lock(m_shard.mutex);
    return m_error;
}

void JobState::RethrowFailure() {
    m_isRead = true;
    if (m_outcome == JobOutcome::Failed) {
        const std::exception_ptr error = CopyError();
        if (!error) {
            throw std::logic_error("the group of the job has left, and what the job failed with is gone");
        }
        std::rethrow_exception(error);
    }
    if (m_outcome == JobOutcome::Cancelled) {
        if (const auto limit = Reason().Limit()) {
            throw TimeLimitException(limit);
        }
        throw CancelledException();
    }
}

void JobState::Release() noexcept {
    Discard();
    const HeldError error = TakeError();
    if (m_group) {
        m_group->LetGo();  // which has a copy, and may still hand it out
    } else if (error && !m_isRead) {
        ReportUnreadFailure(Name(), error.Get());
    }
}

void JobState::LetGo() noexcept {
    if (m_owner && !IsEnded()) {
        m_owner->Remove(*this);
    }
    {
        const RankedLock lock(m_shard.mutex);
        if (m_phase != Phase::Ended) {
            m_reader = Reader::Nobody;
            return;
        }
    }
    Release();
    if (!m_isPinned) {
        return;
    }
    bool isBehind = false;
    {
        const RankedLock lock(m_shard.mutex);
        m_reader = Reader::Nobody;
        isBehind = m_isBehind;
    }
    if (isBehind) {
        Unpin();
    }
}

}  // namespace Orvane::Internal
