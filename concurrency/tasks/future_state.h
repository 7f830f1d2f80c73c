#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

#include "concurrency/base/condition.h"
#include "concurrency/base/export.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/time.h"
#include "concurrency/tasks/ifuture_state.h"

namespace Orvane::Internal {

class LastWords;
class RunCompanion;
struct FutureStatePeer;
struct RunTitle;
struct TimeLimitDetails;

// The state machine through which every run of a task reports.
//
//   operation        from                   to          also
//   ---------------  ---------------------  ----------  --------------------------------------------------------
//   Start            NotStarted             Busy        creates the run's cancellation object; true
//                    Cancelled              -           false: must not run
//                    any other              -           true
//   SetValue         Busy, Cancelling       Normal      wakes the waiters        (FutureImpl<void>)
//   SetException     Busy, Cancelling       Error       keeps a clone; wakes the waiters
//   RequestCancel    NotStarted             Cancelled   wakes the waiters
//                    Busy, Cancelling       Cancelling  on the run's own thread: throws CancelRequestedException
//                    Busy                   Cancelling  on another thread: passes the request to the run
//   ConfirmCancel    Cancelling             Cancelled   wakes the waiters
//   anything else                           -           nothing
//
// On purpose: the outcome is what the run reports first. A run that returns after a request ends Normal, one that
// throws ends Error; only a run that confirms ends Cancelled.
//
// Threads: any thread may ask, wait and request. Start() and the final transitions belong to the run's thread.
// Cancellation: Wait() and TimedWait() are cancellation points of the calling thread's own task, if they find the state
//     NotStarted or Busy and a task is attached. They test before and after the wait; a request does not wake them. To
//     be woken, pass it on by a FutureNotificationAdapter.
// Memory: everything in the run is visible after Wait(), and after a TimedWait(), IsNormal() or IsCancelled() that
//     returned true.
// Errors: std::system_error if a lock fails (nothing changed); std::bad_alloc from Start() (still NotStarted).
// Lifetime: shared. A thread that ends a run, or cancels one that has not started, must hold a reference meanwhile.
class ORVANE_CONCURRENCY_API FutureState : public IFutureState {
  public:
    // NotStarted, with no task attached.
    FutureState();
    ~FutureState() override;
    FutureState(const FutureState&) = delete;
    FutureState& operator=(const FutureState&) = delete;

    // Begins a run; false if it must not run, because it was cancelled.
    bool Start() override;

    // Keeps a clone of `exception`. If there is no memory for one, the run still ends Error, and reading its outcome
    // throws std::bad_alloc. Anything else that Clone() throws is passed on, and the state stays as it was.
    void SetException(const CloneableException& exception) override;

    // Whether the run is under way and was not asked to leave.
    bool IsBusy() const override;

    // True from Cancelling on, although the run may not have ended yet.
    bool IsReady() const override;

    // Whether the run has returned.
    bool IsNormal() const override;

    // Whether the run was asked to leave and is still under way.
    bool IsCancelling() const override;

    // Whether it was cancelled before it started, or has confirmed its cancellation.
    bool IsCancelled() const override;

    // Blocks until the run has ended; returns at once if no task is attached. If the state is Cancelling when it is
    // called, and the run has not ended 30 s later, it logs a record and ends the process. Pumps no messages, see
    // Task::Wait().
    void Wait() override;

    // Returns whether the run has ended by `deadline`; false at once if no task is attached. The deadline is of the
    // system clock and follows its steps.
    bool TimedWait(const TimePoint& deadline) override;

    // Asks the run to leave. On the run's own thread it throws CancelRequestedException.
    void RequestCancel() override;

    // Ends a run that was asked to leave as Cancelled.
    void ConfirmCancel() override;

    // The cancellation record of the run that is under way; empty otherwise. Takes no lock, see
    // docs/maintainers/locks.md.
    std::shared_ptr<CancellationObject> GetCancellationObject() override;

    // Not for callers.
    //
    // What a layer above keeps beside the run that is under way; empty if there is none. InstallCompanion() returns the one
    // that is there already, else `fresh`; empty without a run.
    std::shared_ptr<RunCompanion> GetCompanion() const;
    std::shared_ptr<RunCompanion> InstallCompanion(std::shared_ptr<RunCompanion> fresh);

    // The title of the run that begins here, for the last words of the process and for what is counted. It must stay until it
    // is taken back.
    void GiveRunTitle(RunTitle* title) noexcept { m_runTitle = title; }
    void TakeBackRunTitle();

    // Adds the name of the run that is under way. On its own thread, or where its end cannot come.
    virtual void NameRun(LastWords& words) const noexcept;

    // The future of the task itself, if `future` is of a run that is nested in it (StartNestedIn). Empty if the nested run is in
    // no task.
    static std::shared_ptr<FutureState> TaskOf(std::shared_ptr<FutureState> future);

    // Throws what the run ended with: its exception, or CancelledException once cancellation was requested and the
    // run has not ended otherwise. Returns in every other state. Call it after a wait.
    void HandleErrors();

    // From now on waits are real waits: something will run and report here.
    void MarkAsAttachedToTask();

  protected:
    // Ends a run that is under way as Normal; nothing in any other state.
    void Complete();

    // RequestCancel() for any thread: on the run's own it makes the request as another thread would, and throws nothing. If it
    // is the first one, and a time limit makes it, that is what the run's waits throw.
    void RequestCancelQuietly(const std::shared_ptr<const TimeLimitDetails>& limit = nullptr);

    // Start() for a part of the run that the calling thread is in: `outer`, or empty if it is in none. Who nests it passes
    // requests for the outer run on.
    void StartNestedIn(const std::shared_ptr<FutureState>& outer);

    // Complete(), and lets the companion go.
    void EndNested();

  private:
    friend struct FutureStatePeer;  // for tests

    bool HasEnded() const;

    enum StateCode : std::uint32_t {
        NotStarted = 0,
        Busy = 1,
        Normal = 2,
        Cancelling = 3,
        Cancelled = 4,
        Error = 5,
    };

    mutable RankedMutex<std::recursive_mutex, LockRank::Future> m_mutex;
    Condition m_condition;  // notified at every step into Normal, Cancelled and Error

    // Written under m_mutex. HandleErrors() and the first test of RequestCancel() read it without.
    std::atomic<std::uint32_t> m_state{NotStarted};

    // Written under m_mutex before the state becomes Error, never again after that.
    std::shared_ptr<CloneableException> m_exception;

    // Written under m_mutex. Read without: a waiter asks for it while it holds its own mutex, which a request takes
    // while it holds m_mutex.
    std::atomic<std::shared_ptr<CancellationObject>> m_cancellationObject;

    bool m_attachedToTask ORVANE_GUARDED_BY(m_mutex) = false;

    // Taken back under m_mutex. Read under it, or by the run itself.
    std::atomic<RunTitle*> m_runTitle = nullptr;
};

}  // namespace Orvane::Internal
