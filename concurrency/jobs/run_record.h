// What this room knows of a run, be it of a job or of another task: the jobs and groups that the run owns, and the stop source
// of its tokens. Made when a run first needs it.
//
// Threads: any. Requested() is called without a lock, on the thread that cancels.
// Errors: std::bad_alloc, std::system_error.
// Lifetime: shared by the run and by what it owns, which may live longer.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <stop_token>
#include <vector>

#include "concurrency/base/clock.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/run_companion.h"
#include "concurrency/jobs/cancellable.h"
#include "concurrency/jobs/module_ledger.h"
#include "concurrency/jobs/stop_in_module.h"

namespace Orvane::Internal {

class RunRecord : public RunCompanion, public HasSecondPass {
  public:
    explicit RunRecord(std::shared_ptr<const JobName> name) : m_name(std::move(name)) {}
    ~RunRecord() override { LetGoOfModules(); }
    RunRecord(const RunRecord&) = delete;
    RunRecord& operator=(const RunRecord&) = delete;

    // Before it is installed.
    void SetRun(std::weak_ptr<CancellationObject> run) noexcept { m_run = std::move(run); }

    // From now on a request for the run reaches it. Returns false if there has been one: the caller asks it then, with
    // ReasonForOwned().
    [[nodiscard]] bool Add(Cancellable& owned);
    AskReason ReasonForOwned() const;

    // Nothing if it is not there.
    void Remove(Cancellable& owned);

    // The two passes of a request, as in cancellable.h, for what the run owns and for its tokens. Repeatable; the first reason
    // stays.
    void AskOwned(const AskReason& reason, AskedList& asked) noexcept;

    // With what AskOwned() will ask. The first one stays.
    void KeepReason(const AskReason& reason) noexcept;
    void StopTokens() noexcept;
    void FinishAsking() noexcept override { StopTokens(); }
    void Requested() noexcept override;

    bool IsRequested() const noexcept { return m_isRequested.load(std::memory_order_relaxed); }
    const std::atomic<bool>& RequestedFlag() const noexcept { return m_isRequested; }

    // Whether the calling thread is in the run, and its flag is set.
    bool IsRequestedOnThisThread() const;

    // Until when a CleanUpScope hides requests (within.h); kNoDeadline if none does.
    virtual MonotonicClock::time_point HiddenUntil() const noexcept { return (MonotonicClock::time_point::max)(); }

    // Of the module that has the function. It stays loaded until the run lets go of it.
    std::stop_token Token(StopInModule stop, ModuleLedger& module);

    // The run is over: later requests do not call its modules. A thread that is in one lets go of them when it returns.
    void LetGoOfModules() noexcept;

    // That of the whole run, if this one is of a part of it.
    virtual const RunRecord& Whole() const noexcept { return *this; }

    // Of the job; null if the run is another task's.
    const std::shared_ptr<const JobName>& Name() const noexcept { return m_name; }

  private:
    using Mutex = RankedMutex<RecursiveMutex, LockRank::Job>;

    struct SourceOfAModule {
        StopInModule stop;
        ModuleLedger* module;  // null: let go of
        std::stop_source source;
    };

    void UnpinModules(RankedLock<Mutex>& lock) noexcept ORVANE_REQUIRES(m_mutex);
    std::shared_ptr<Cancellable> NextToAsk(IntrusiveList<Cancellable, OwnedTag>& waiting);

    const std::shared_ptr<const JobName> m_name;
    std::weak_ptr<CancellationObject> m_run;  // constant once it is installed
    mutable Mutex m_mutex;
    AskReason m_reason ORVANE_GUARDED_BY(m_mutex);
    IntrusiveList<Cancellable, OwnedTag> m_owned ORVANE_GUARDED_BY(m_mutex);
    std::vector<SourceOfAModule> m_sources ORVANE_GUARDED_BY(m_mutex);  // once made, each stays
    std::size_t m_stopping ORVANE_GUARDED_BY(m_mutex) = 0;  // threads in StopTokens()
    bool m_isOver ORVANE_GUARDED_BY(m_mutex) = false;
    std::atomic<bool> m_isRequested = false;  // written under m_mutex
};

}  // namespace Orvane::Internal
