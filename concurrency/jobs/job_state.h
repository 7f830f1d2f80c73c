// One run of a callable, from Run() to its end, and its outcome.
//
//   phase     becomes so by                           what may happen
//   --------  --------------------------------------  --------------------------------------------------------------
//   Waiting   construction                            a thread that runs it makes it Running, one that cancels it Ending
//   Running   the thread that runs it                 requests reach the run through its future
//   Ending    the end of the run; or a request, and   the callable is destroyed, on the thread that made it Ending
//             then it never runs
//   Ended     the thread that made it Ending          the outcome can be read; nothing changes any more
//
// A job ends once, on one thread, in this order:
//
//   1. Without a lock, the thread destroys the callable and removes the job from its owner. If nobody will read the outcome, it
//      discards the result.
//   2. Under the group's lock and the shard's, the group counts the outcome, the job publishes it, sets the event and signals
//      the waiters.
//   3. Without a lock, the thread removes the limit and the link to the stop token. Then the group goes on. After that the thread
//      uses nothing of the job's module any more: group_core.h waits for that before it lets a module go.
//
// What belongs to the job's module is destroyed at one of four places. The callable is destroyed in step 1. The handle destroys
// result and exception; without a handle steps 1 to 3 do. A group that leaves destroys the exception, too. A job without a
// group keeps its module loaded until steps 1 to 3 are done and the handle has gone.
//
// Threads: any, but for those that run or end it.
// Errors: std::system_error if a lock fails.
// Lifetime: shared. All code and control blocks are the library's, but for what JobBodyType names.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "concurrency/base/clock.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/cancellable.h"
#include "concurrency/jobs/job_block.h"
#include "concurrency/jobs/job_body.h"
#include "concurrency/jobs/job_extras.h"
#include "concurrency/jobs/job_future.h"
#include "concurrency/jobs/job_outcome.h"
#include "concurrency/jobs/job_registry.h"
#include "concurrency/jobs/job_slot.h"
#include "concurrency/jobs/job_wait.h"
#include "concurrency/jobs/module_ledger.h"
#include "concurrency/jobs/run_record.h"
#include "concurrency/jobs/time_limits.h"
#include "concurrency/jobs/traced_job.h"
#include "concurrency/tasks/itask_state.h"
#include "concurrency/tasks/task.h"

namespace Orvane::Internal {

class JobState;

// The group of a job, as the job sees it.
class JobGroupLink : public JobSlot {
  public:
    // Counts the job and calls its PublishEnd(), in one hold of the group's lock.
    virtual void Publish(JobState& job, bool hasRun, Departure& departure) noexcept = 0;

    // Lives as long as the group.
    virtual const std::shared_ptr<const JobName>& GroupName() const noexcept = 0;

    // The record of the run that owns the group; null if none does.
    virtual const void* OwnerOfGroup() const noexcept = 0;

    // After that, without a lock: what the end leads to. When it returns, the thread has left all code of the job's module.
    virtual void GoOn(Departure& departure) noexcept = 0;

    // The handle of an ended job has gone.
    virtual void LetGo() noexcept = 0;

  protected:
    ~JobGroupLink() = default;
};

// Its small fields stand first: behind the last base there is room for them.
class JobState final : public ITaskState, public std::enable_shared_from_this<JobState>, public Cancellable {
  public:
    enum class Reader : std::uint8_t {
        Handle,  // a caller reads the outcome, or drops it
        Nobody,  // a failure goes to the failure handler
    };

    // `module` is the one whose code the job runs. Errors: std::bad_alloc.
    JobState(const wchar_t* name, const JobBodyType& type, ModuleLedger& module);
    ~JobState() override;
    JobState(const JobState&) = delete;
    JobState& operator=(const JobState&) = delete;

    void* Body() const noexcept { return m_block.Body(); }

    // For a job without a group: its module stays loaded as long as the job. Errors: std::system_error.
    void PinModule();

    // The callable stands in the body.
    void MarkBuilt() noexcept;

    // Before the start. A job has an owner, or a group, or neither.
    void SetOwner(std::shared_ptr<RunRecord> owner) noexcept;
    void SetGroup(std::shared_ptr<JobGroupLink> group) noexcept;
    void SetReader(Reader reader) noexcept;

    // Makes it known: requests of its owner, its token and the last uninitialisation reach it from now on, and may have ended
    // it when this returns. Errors: Unexpected if the library is not initialised, or is being uninitialised.
    void Enlist();
    void CancelOn(const std::stop_token& token);

    // After a failed start: ends it as cancelled, unless another thread does, and waits for that.
    void GiveUp() noexcept;

    // Runs it, on the calling thread, if it is still waiting.
    void operator()() override;
    std::shared_ptr<ITaskState> Recreate() override { return nullptr; }
    std::shared_ptr<IFutureState> GetFuture() override;

    void Ask(const AskReason& reason, AskedList& asked) noexcept override;
    void FinishAsking() noexcept override;
    void CopyRun(RunSnapshot& snapshot) noexcept override ORVANE_NO_THREAD_SAFETY_ANALYSIS;
    std::shared_ptr<Cancellable> Self() noexcept override { return weak_from_this().lock(); }

    const wchar_t* Name() const noexcept { return m_name; }

    // Of the group, or of the run that owns the job; null if neither is there.
    const std::shared_ptr<const JobName>& Above() const noexcept;

    // In its group; null if it has none.
    JobSlot* Slot() const noexcept { return m_group.get(); }
    bool IsWaiting() const noexcept { return m_phase.load(std::memory_order_acquire) == Phase::Waiting; }
    bool IsEnded() const noexcept { return m_phase.load(std::memory_order_acquire) == Phase::Ended; }
    AskReason Reason() const;

    // For the handle's destructor. A run that was asked drops what it owns, perhaps before the request has come to all of it.
    AskReason DropReason() const noexcept;

    // Only when it has ended.
    JobOutcome Outcome() const noexcept { return m_outcome; }
    MonotonicClock::time_point EndTime() const noexcept { return m_time; }
    ModuleLedger& Module() const noexcept { return *m_module; }
    bool HasResult() const noexcept { return m_hasResult; }

    // Of the thread that ends it.
    HeldError Error() const noexcept { return {m_error, Module()}; }

    // What it failed with, if that is there still; leaves none. When it has ended.
    HeldError TakeError() noexcept;
    std::exception_ptr CopyError() const noexcept;
    JobGroupLink& GroupLink() const noexcept { return *m_group; }
    const void* Group() const noexcept { return m_group ? m_group->Group() : nullptr; }

    // The job whose run or end the calling thread is in the middle of.
    bool IsOnThisThread() const noexcept;
    void CollectRunning(std::vector<RunningJob>& running) const;

    void CancelAfter(std::chrono::nanoseconds limit);
    void CancelWhen(HANDLE handle);

    // A manual-reset event, made at the first call; the job closes it when it is destroyed.
    HANDLE EndEvent();

    void Attach(JobListener& listener) noexcept;
    void Detach(JobListener& listener) noexcept;

    // Throws what the job ended with; returns if it is Done. Only when it has ended, once.
    void RethrowFailure();
    void* Result() const noexcept { return m_block.Type().result(Body()); }

    // The body's result has been taken, or is of no use: destroys it, and the exception. A failure that was not read is
    // reported. Only when it has ended.
    void Release() noexcept;

    // The handle goes, and the job goes on.
    void LetGo() noexcept;

    // Within Publish().
    void PublishEnd() noexcept;

    // Whether a handle may still read the outcome, or drop it, and there is a result or a failure for it.
    bool IsKeptByHandle() const noexcept;

    // When its path of names is to be said. Errors: std::bad_alloc.
    std::wstring Path() const { return m_future.MakeName()->Path(); }

    void NameWhatItHolds(const ModuleLedger& module, std::vector<std::wstring>& names) override;

  private:
    enum class Phase : std::uint8_t { Waiting, Running, Ending, Ended };

    bool Claim(Phase to) noexcept;
    std::optional<AskReason> KeepFirst(const AskReason& reason) noexcept;
    void AskRun(const AskReason& first, AskedList& asked) noexcept;
    ModuleLedger* Call() noexcept;
    void End(bool hasRun) noexcept;
    void KeepReason() noexcept;
    void TidyUp() noexcept;
    void DiscardIfUnread() noexcept;
    std::shared_ptr<RunRecord> Record();
    JobExtras& NeedExtras() ORVANE_REQUIRES(m_shard.mutex);
    void DestroyCall() noexcept;
    void Discard() noexcept;
    void EndWithoutGroup() noexcept;
    void Unpin() noexcept;
    [[noreturn]] void EndProcess(const char* reason) const noexcept;

    std::atomic<Phase> m_phase = Phase::Waiting;

    // Of the thread that has claimed it, until the end is published; constant after that.
    bool m_isBuilt = false;
    JobOutcome m_outcome = JobOutcome::Cancelled;
    std::atomic<bool> m_hasResult = false;  // then the handle's

    // Pinned until its end is behind the ending thread, and the handle has gone: the second of the two unpins.
    bool m_isPinned = false;
    bool m_isBehind ORVANE_GUARDED_BY(m_shard.mutex) = false;

    bool m_isRead = false;  // of the handle
    TracedJobQueue m_traced;
    Reader m_reader ORVANE_GUARDED_BY(m_shard.mutex) = Reader::Handle;
    const std::uint8_t m_alignmentBits;  // of the body: a power of two
    CancelCause m_cause ORVANE_GUARDED_BY(m_shard.mutex) = CancelCause::None;

    std::atomic<DWORD> m_thread = 0;  // that runs or ends it
    JobShard& m_shard;  // its mutex guards the fields named so
    std::atomic<ModuleLedger*> m_module;  // of the callable; once that is gone, of the exception
    JobFuture m_future;
    const JobBlock m_block;
    const wchar_t* const
        m_name;  // behind the body. The block would look at the type, whose module may have been unloaded
    std::atomic<MonotonicClock::time_point> m_time;  // of the start, written before m_thread; then of the end
    std::exception_ptr m_error;  // as m_outcome; once the end is published, the shard's mutex guards it

    std::shared_ptr<const JobName> m_askedBy ORVANE_GUARDED_BY(m_shard.mutex);  // belongs to m_cause
    JobListeners m_listeners ORVANE_GUARDED_BY(m_shard.mutex);
    std::unique_ptr<JobExtras> m_extras ORVANE_GUARDED_BY(m_shard.mutex);

    // Constant once it can run.
    std::shared_ptr<RunRecord> m_owner;
    std::shared_ptr<JobGroupLink> m_group;
};

// A wait for one job.
class AwaitedJob final : public Awaited {
  public:
    explicit AwaitedJob(JobState& job) : m_job(job) {}

    bool IsOver() const noexcept override { return m_job.IsEnded(); }
    void Attach(JobWaiter& waiter) noexcept override {
        m_listener.waiter = &waiter;
        m_job.Attach(m_listener);
    }
    void Detach() noexcept override { m_job.Detach(m_listener); }
    void CollectRunning(std::vector<RunningJob>& running) const override { m_job.CollectRunning(running); }
    bool IsOfGroup(const void* group) const noexcept override { return m_job.Group() == group; }

  private:
    JobState& m_job;
    JobListener m_listener;
};

}  // namespace Orvane::Internal
