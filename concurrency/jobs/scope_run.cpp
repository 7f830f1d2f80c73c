#include "concurrency/jobs/scope_run.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include "concurrency/base/initialization_count.h"
#include "concurrency/base/last_words.h"
#include "concurrency/base/report.h"
#include "concurrency/base/thread_time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/errors/misuse.h"
#include "concurrency/jobs/job_wait.h"
#include "concurrency/jobs/this_run.h"

namespace Orvane::Internal {

namespace {

const wchar_t* NameOf(const wchar_t* name, const std::shared_ptr<RunRecord>& outer) noexcept {
    if (name != nullptr) {
        return name;
    }
    return outer && outer->Name() ? outer->Name()->text.c_str() : L"";
}

}  // namespace

void ScopeFuture::Link(std::shared_ptr<CancellationObject> run, std::weak_ptr<ScopeFuture> self) {
    m_outer = std::move(run);
    auto before = m_outer->ExchangeNotifier(std::move(self));
    const RankedLock lock(m_linkMutex);
    m_before = std::move(before);
}

void ScopeFuture::Unlink() noexcept {
    if (!m_outer) {
        return;
    }
    std::weak_ptr<AbstractCancelNotifier> before;
    {
        const RankedLock lock(m_linkMutex);
        before.swap(m_before);
    }
    try {
        m_outer->RestoreNotifier(std::move(before));
    } catch (...) {
        // On purpose nothing: the request has been made; only passing it on has failed.
    }
}

void ScopeFuture::Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) {
    std::atomic_ref(requested).store(true);
    lock.unlock();
    if (!m_isHiding) {
        RequestCancelQuietly();
    }
    std::shared_ptr<AbstractCancelNotifier> before;
    {
        const RankedLock own(m_linkMutex);
        before = m_before.lock();
    }
    if (before) {
        lock.lock();
        before->Notify(lock, requested);
    }
}

ScopeRun::ScopeRun(Kind kind, const wchar_t* name, std::chrono::nanoseconds duration, std::shared_ptr<RunRecord> outer)
    : RunRecord(outer ? outer->Name() : nullptr),
      m_kind(kind),
      m_outer(std::move(outer)),
      m_limit(std::make_shared<const LimitName>(NameOf(name, m_outer), duration)),
      m_future(std::make_shared<ScopeFuture>(kind == Kind::CleanUp)) {}

ScopeRun::~ScopeRun() {
    RemoveTimeLimit(m_timeLimit);
    if (m_outer) {
        m_outer->Remove(*this);
    }
}

std::shared_ptr<ScopeRun> ScopeRun::Enter(Kind kind, const wchar_t* name, std::chrono::nanoseconds duration) {
    if (g_publishedInitializationCount.load(std::memory_order_acquire) <= 0) {
        ThrowNotInitialized();
    }
    auto scope = std::make_shared<ScopeRun>(kind, name, duration, RecordOfThisRun());
    scope->Begin(duration);
    return scope;
}

void ScopeRun::Begin(std::chrono::nanoseconds duration) {
    const auto outer = CurrentFuture();
    m_future->StartNestedIn(outer);
    SetRun(m_future->GetCancellationObject());
    const auto outerHides = m_outer ? m_outer->HiddenUntil() : kNoDeadline;
    const auto end = DeadlineAfter(duration);
    const auto when = m_kind == Kind::CleanUp ? (std::min)(end, outerHides) : end;
    m_hiddenUntil = m_kind == Kind::CleanUp ? when : outerHides;
    const bool isOver = when <= ThreadNow();
    if (!isOver && when != kNoDeadline) {
        m_timeLimit = AddTimeLimit(weak_from_this(), when, m_limit);
    }
    // Can only fail on a thread that has no run.
    m_previous = ExchangeCurrentFuture(m_future);
    if (CurrentFuture() != m_future) {
        throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), "TlsSetValue");
    }
    m_future->InstallCompanion(std::shared_ptr<RunCompanion>(shared_from_this(), this));
    bool isOuterAsked = false;
    if (m_outer) {
        m_future->Link(outer->GetCancellationObject(), m_future);
        isOuterAsked = !m_outer->Add(*this) || m_future->IsOuterRequested();
    }
    if (isOuterAsked) {
        AskToLeave(*this, m_outer->ReasonForOwned());
    }
    if (isOver) {
        TimeIsUp(m_limit);
    }
}

void ScopeRun::Leave() noexcept {
    const auto current = CurrentFuture();
    const bool isOwnThread = m_future->GetCancellationObject()->GetThreadId() == ::GetCurrentThreadId();
    if (!isOwnThread || (current && current != m_future)) {
        ReportNoThrow(8, 16, L"Concurrency.Job",
                      L"A Within or CleanUpScope ends on another thread than its own, or before one inside it");
        LastWords words("a Within or CleanUpScope ends on another thread than its own, or before one inside it");
        if (const auto run = FutureState::TaskOf(current)) {
            run->NameRun(words);
        }
        words.AddThread(::GetCurrentThreadId());
        words.EndProcess();
    }
    if (current) {  // else the last uninitialisation has taken the slot
        ExchangeCurrentFuture(std::move(m_previous));
    }
    m_future->Unlink();
    m_future->EndNested();
}

void ScopeRun::Ask(const AskReason& reason, AskedList& asked) noexcept {
    if (m_future->IsHiding()) {
        return;  // TimeIsUp() looks for it
    }
    m_future->RequestCancelQuietly(m_kind == Kind::Limit && reason.by == m_limit ? reason.Limit() : nullptr);
    AskOwned(reason, asked);
    asked.Add(std::shared_ptr<RunRecord>(shared_from_this()));
}

void ScopeRun::TimeIsUp(const std::shared_ptr<const LimitName>& limit) noexcept {
    if (m_kind == Kind::Limit) {
        AskToLeave(*this, {CancelCause::Limit, limit});
        return;
    }
    m_future->StopHiding();
    if (m_outer && (m_outer->IsRequested() || m_future->IsOuterRequested())) {
        AskToLeave(*this, m_outer->ReasonForOwned());
    }
}

}  // namespace Orvane::Internal
