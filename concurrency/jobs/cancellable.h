// What can be asked to leave: a job, or a group of jobs.
//
// A request has two passes. The first one reaches everything that is asked, and what that owns, and runs no code of users. The
// second one runs their stop callbacks and destroys the callables that will not run. So all are asked at once, however long
// the second pass takes.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/base/intrusive_list.h"
#include "concurrency/jobs/cancel_reason.h"
#include "concurrency/jobs/job_name.h"

namespace Orvane::Internal {

// A CancelReason that can be copied without memory.
struct AskReason {
    CancelCause cause = CancelCause::None;
    std::shared_ptr<const JobName> by;  // a LimitName for CancelCause::Limit

    // Null unless it was a limit.
    std::shared_ptr<const TimeLimitDetails> Limit() const noexcept {
        if (cause != CancelCause::Limit) {
            return nullptr;
        }
        return {by, &static_cast<const LimitName&>(*by).details};
    }

    // With what a run asks what it owns. `owner` is its name.
    AskReason ForOwned(const std::shared_ptr<const JobName>& owner) const noexcept {
        return cause == CancelCause::Limit ? *this : AskReason{CancelCause::Parent, owner};
    }

    CancelReason ForCallers() const {
        const auto limit = Limit();
        return {cause, by ? by->text : std::wstring(), limit ? limit->duration : std::chrono::nanoseconds::zero()};
    }
};

// After a request that has reached a run: the thread of the time limits (time_limits.cpp) looks after some time whether the run
// has left, and says in the log if not. One look at a number if a look is due already. If the thread cannot be started, the
// log says so, once.
void WatchAsked() noexcept;

class AskedList;
class ModuleLedger;
class RunSnapshot;
struct OwnedTag;
struct LiveTag;

// What a request comes to once more.
class HasSecondPass {
  public:
    // The second pass. Runs code of users.
    virtual void FinishAsking() noexcept = 0;

  protected:
    virtual ~HasSecondPass() = default;

  private:
    friend class AskedList;

    std::shared_ptr<HasSecondPass> m_nextAsked;  // of the thread that has put it into its list
    std::atomic<bool> m_isInList = false;
};

class Cancellable : public HasSecondPass, public ListHook<OwnedTag>, public ListHook<LiveTag> {
  public:
    // The first pass. The first reason stays. Puts into `asked` what there is to do in the second. Takes locks: call it without
    // one.
    virtual void Ask(const AskReason& reason, AskedList& asked) noexcept = 0;

    // Adds the names of what it holds of the module, to be listed for people. Call it without a lock. Errors: std::bad_alloc.
    virtual void NameWhatItHolds(const ModuleLedger& module, std::vector<std::wstring>& names) = 0;

    // Adds its run, if it is in one. Called under the lock of its shard.
    virtual void CopyRun(RunSnapshot& snapshot) noexcept { static_cast<void>(snapshot); }

    // Null once its destruction has begun.
    virtual std::shared_ptr<Cancellable> Self() noexcept = 0;

    // On the thread of the limits (time_limits.h): a limit is over. Asks.
    virtual void TimeIsUp(const std::shared_ptr<const LimitName>& limit) noexcept;

    // A tick of CoarseClock, the lower half. Written and read under the lock of its shard.
    std::uint32_t enlistedAt = 0;

  protected:
    ~Cancellable() override = default;
};

// Those whose second pass is still to come: its destructor does it. One list holds an object at a time: if another thread's
// list does, that thread comes to it later than this request.
class AskedList {
  public:
    AskedList() = default;
    ~AskedList() {
        while (const std::shared_ptr<HasSecondPass> next = std::move(m_first)) {
            m_first = std::move(next->m_nextAsked);
            next->m_isInList = false;
            next->FinishAsking();
        }
        if (m_hasReachedRuns) {
            WatchAsked();
        }
    }
    AskedList(const AskedList&) = delete;
    AskedList& operator=(const AskedList&) = delete;

    void Add(std::shared_ptr<HasSecondPass> asked) noexcept {
        if (!asked->m_isInList.exchange(true)) {
            asked->m_nextAsked = std::move(m_first);
            m_first = std::move(asked);
        }
    }

    // The request has reached a run, which may or may not leave.
    void ReachesRun() noexcept { m_hasReachedRuns = true; }

  private:
    std::shared_ptr<HasSecondPass> m_first;
    bool m_hasReachedRuns = false;
};

// Both passes.
inline void AskToLeave(Cancellable& cancellable, const AskReason& reason) noexcept {
    AskedList asked;
    cancellable.Ask(reason, asked);
}

inline void Cancellable::TimeIsUp(const std::shared_ptr<const LimitName>& limit) noexcept {
    AskToLeave(*this, {CancelCause::Limit, limit});
}

}  // namespace Orvane::Internal
