// A scope of code as a nested run: what Within and CleanUpScope (within.h) put around a part of the calling thread's run.
//
// The scope's future takes the place of the run's in the thread's slot. So all waits, tokens and children in it find a run that
// can be asked apart from the one around it. A request for the outer run reaches it in two ways, as it reaches a job. The flag
// comes through the outer run's notifier, which wakes the thread. The reason, and the request to the children, come through the
// outer run's record.
//
//   kind      a request for the outer run           its time
//   -------   -----------------------------------   --------------------------------------------
//   Limit     asks it                               asks it with CancelCause::Limit
//   CleanUp   waits until the time is over          from now on requests for the outer run reach it
//
// A request for the outer run sets its flag and its record first and looks whether the scope hides second. The end of the
// hiding does both in the other order. So one of them sees the other, and the request is not lost.
//
// Threads: Enter() and Leave() on the scope's own; requests from any.
// Lifetime: shared by the scope and by what is started in it, for which the limit stays.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "concurrency/base/clock.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/jobs/cancellable.h"
#include "concurrency/jobs/run_record.h"
#include "concurrency/jobs/time_limits.h"
#include "concurrency/tasks/future_state.h"

namespace Orvane::Internal {

// The scope's place in the thread's slot, and the notifier of the run around it.
class ScopeFuture final : public FutureState, public AbstractCancelNotifier {
  public:
    explicit ScopeFuture(bool isHiding) : m_isHiding(isHiding) {}

    using FutureState::EndNested;
    using FutureState::RequestCancelQuietly;
    using FutureState::StartNestedIn;

    // From now on a request for `run` reaches it, and the notifier that `run` had.
    void Link(std::shared_ptr<CancellationObject> run, std::weak_ptr<ScopeFuture> self);

    // Puts the notifier back. Nothing if it is not linked.
    void Unlink() noexcept;

    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override;

    bool IsHiding() const noexcept { return m_isHiding; }
    void StopHiding() noexcept { m_isHiding = false; }

    // Whether the run around it was asked.
    bool IsOuterRequested() const { return m_outer && m_outer->IsRequested(); }

  private:
    std::atomic<bool> m_isHiding;
    std::shared_ptr<CancellationObject> m_outer;  // constant once it is linked

    RankedMutex<RecursiveMutex, LockRank::Leaf> m_linkMutex;
    std::weak_ptr<AbstractCancelNotifier> m_before ORVANE_GUARDED_BY(m_linkMutex);  // of the outer run
};

class ScopeRun final : public RunRecord, public Cancellable, public std::enable_shared_from_this<ScopeRun> {
  public:
    enum class Kind { Limit, CleanUp };

    // Null `name`: that of the run. Errors: Unexpected if the library is not initialised; std::bad_alloc; std::system_error if
    // the thread of the limits cannot be started, or the thread's slot cannot be written. Nothing is changed then.
    static std::shared_ptr<ScopeRun> Enter(Kind kind, const wchar_t* name, std::chrono::nanoseconds duration);

    // Ends the process if the calling thread is not in this very scope.
    void Leave() noexcept;

    // For Enter().
    ScopeRun(Kind kind, const wchar_t* name, std::chrono::nanoseconds duration, std::shared_ptr<RunRecord> outer);
    ~ScopeRun() override;
    ScopeRun(const ScopeRun&) = delete;
    ScopeRun& operator=(const ScopeRun&) = delete;

    void Ask(const AskReason& reason, AskedList& asked) noexcept override;
    void FinishAsking() noexcept override { StopTokens(); }
    void NameWhatItHolds(const ModuleLedger&, std::vector<std::wstring>&) override {}  // it has no code of a module
    std::shared_ptr<Cancellable> Self() noexcept override { return weak_from_this().lock(); }
    void TimeIsUp(const std::shared_ptr<const LimitName>& limit) noexcept override;

    MonotonicClock::time_point HiddenUntil() const noexcept override { return m_hiddenUntil; }
    const RunRecord& Whole() const noexcept override { return m_outer ? m_outer->Whole() : *this; }

  private:
    void Begin(std::chrono::nanoseconds duration);

    // All constant once the thread is in the scope.
    const Kind m_kind;
    const std::shared_ptr<RunRecord> m_outer;  // null outside a run
    const std::shared_ptr<const LimitName> m_limit;
    const std::shared_ptr<ScopeFuture> m_future;
    std::weak_ptr<FutureState> m_previous;  // of the thread's slot
    MonotonicClock::time_point m_hiddenUntil;
    TimeLimit m_timeLimit;
};

}  // namespace Orvane::Internal
