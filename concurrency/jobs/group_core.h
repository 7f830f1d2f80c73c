// What a JobGroup shares with its jobs.
//
// Jobs wait here, not in the pool. A runner is a task of the pool that runs one job of the group after the other. At most one
// runner is on its way at a time: when it has begun, it starts the next one, while jobs wait and the bound allows it. A runner
// that needs a growth of the pool is started by the starter's thread, which alone waits for the growth.
//
// A job that runs holds a slot (group_slots.h).
//
//   counter    a job is counted there
//   ---------  -----------------------------------------------------------------------------
//   waiting    from Add() until a runner has taken it, or its end is published
//   running    from then until its end is published
//   others     after that, one for each outcome
//
// A thread that ends a job goes on in the group for a moment after it has published the end: it is in m_departures meanwhile. When
// the group goes, it waits for these, too: then no thread is in code of the jobs' modules. What they have left, failures and the
// callables of schedules, the group destroys itself, before it returns.
//
// Threads: any.
// Locks: the group's mutex, then the shard's of a job. No user code runs under it, no task is queued.
// Lifetime: shared by the JobGroup, the jobs that have not ended, and runners.
#pragma once

#include <cstddef>
#include <exception>
#include <list>
#include <memory>
#include <vector>

#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/jobs/cancellable.h"
#include "concurrency/jobs/group_results.h"
#include "concurrency/jobs/group_schedule.h"
#include "concurrency/jobs/group_slots.h"
#include "concurrency/jobs/handle_watch.h"
#include "concurrency/jobs/job_outcome.h"
#include "concurrency/jobs/job_state.h"
#include "concurrency/jobs/job_wait.h"
#include "concurrency/jobs/module_use.h"
#include "concurrency/jobs/run_record.h"

namespace Orvane::Internal {

struct GroupTag;
class GroupEntry;
class GroupRunner;

class GroupCore final : public Cancellable, public std::enable_shared_from_this<GroupCore> {
  public:
    GroupCore(const wchar_t* name, std::size_t bound);
    ~GroupCore() override;
    GroupCore(const GroupCore&) = delete;
    GroupCore& operator=(const GroupCore&) = delete;

    // Belongs to the calling thread's run from now on, if there is one.
    void Open();

    // Gives up what it holds of the process, and, after WaitUntilGone(), what it holds of the modules of its jobs: the callables
    // of its schedules, and all failures, also those that handles could still read.
    void Close(bool isGone) noexcept;

    // What is held of the modules whose code it has run, be it by this group or by others. Errors: std::bad_alloc.
    ModuleUse UseOfModules();
    void NameWhatItHolds(const ModuleLedger& module, std::vector<std::wstring>& names) override;

    // Until the threads that end jobs without a group of these modules have left them.
    JobWaitResult AwaitDeparturesOfModules();

    // Whether the calling thread is one of them.
    bool IsInDepartureOfModules() const;

    // A job for this group that runs code of the module, to be built and added. Errors: std::bad_alloc.
    std::shared_ptr<JobState> Make(const wchar_t* name, const JobBodyType& type, ModuleLedger& module);

    // Adds the job and starts it when there is a slot, or at once on a thread of its own. In a spent group it is asked at once.
    void Add(const std::shared_ptr<JobState>& job);
    void AddInNewThread(const std::shared_ptr<JobState>& job);

    // Runs it on the calling thread, with a slot of its own: for a caller who leaves one free.
    void RunHere(const std::shared_ptr<JobState>& job);

    // Whether a job that is added now would start at once. Keeps the slot for AddReserved(), which starts that job with it, or
    // until CancelReservation().
    bool Reserve();
    void AddReserved(const std::shared_ptr<JobState>& job);
    void CancelReservation() noexcept;

    // Nothing in a spent group.
    void AddSchedule(const std::shared_ptr<GroupSchedule>& schedule, const TimePoint& start, const Duration& delay,
                     const Duration& interval);

    // The failure counts as that of a job of the group which has the name.
    void Fail(const std::shared_ptr<const JobName>& name, const std::exception_ptr& error) noexcept;

    // Ends the jobs that have not started.
    void DropWaiting() noexcept;

    bool WaitUntilIdle(MonotonicClock::time_point deadline);

    // For destructors: until the jobs have ended, and the threads that ended them have left them.
    JobWaitResult WaitUntilGone() noexcept;
    bool IsGone() const noexcept;

    // Throws the first failure, or that jobs were cancelled with the group.
    void RethrowFirst();

    // Waits for the next record; false if there is none to come.
    bool NextEnded(EndedJob& ended);
    void ForgetEnded() noexcept;

    void CancelAfter(std::chrono::nanoseconds limit);
    void CancelWhen(HANDLE handle);
    CancelReason Reason() const;

    // As JobState::DropReason().
    AskReason DropReason() const noexcept;
    JobCounts Counts() const;
    std::vector<JobFailure> Failures();
    const std::shared_ptr<const JobName>& Name() const noexcept { return m_name; }

    // Whether the calling thread runs a job of the group, or is about to leave one.
    bool IsOnThisThread() const noexcept;

    // Reports the first failure, if it has not been read.
    void ReportUnread() noexcept;

    void Ask(const AskReason& reason, AskedList& asked) noexcept override;
    void FinishAsking() noexcept override;
    std::shared_ptr<Cancellable> Self() noexcept override { return weak_from_this().lock(); }

  private:
    friend class GroupEntry;
    friend class GroupRunner;
    class AwaitedIdle;
    class AwaitedGone;
    class AwaitedRecord;

    using Mutex = RankedMutex<RecursiveMutex, LockRank::JobGroup>;
    using Entries = IntrusiveList<GroupEntry, GroupTag>;

    // Of a runner.
    void RunnerBegins() noexcept;
    void RunnerNeverBegan() noexcept;
    void RunItems();
    std::shared_ptr<JobState> TakeNext() noexcept;

    void EnlistOnce() ORVANE_REQUIRES(m_mutex);
    void Start(const std::shared_ptr<JobState>& job, const AskReason& reason) noexcept;
    void Withdraw(JobState& job) noexcept;
    void HandOver() noexcept ORVANE_REQUIRES(m_mutex);
    void TakeWaiting(Entries& taken) noexcept ORVANE_REQUIRES(m_mutex);
    void Enroll(const std::shared_ptr<JobState>& job, Entries& entries) ORVANE_REQUIRES(m_mutex);
    void StartRunner() noexcept;
    bool ClaimStart() noexcept;
    void StartHasFailed(const std::exception_ptr& error) noexcept;
    bool CanStartOne() const ORVANE_REQUIRES(m_mutex);
    std::size_t Left() const ORVANE_REQUIRES(m_mutex);
    void AskJobs(const AskReason& reason, AskedList& asked) noexcept;
    void AskAfterFailure() noexcept;
    void SpendByFailure() noexcept ORVANE_REQUIRES(m_mutex);
    void EndSchedule(GroupSchedule& schedule) ORVANE_REQUIRES(m_mutex);
    void CancelEnded(GroupSchedule& schedule) noexcept;
    void ForgetIfEnded(const std::shared_ptr<GroupSchedule>& schedule) noexcept;
    void DropScheduledWork() noexcept;
    void DropFailures() noexcept;
    void Departs(Departure& departure) noexcept;
    void NoteModule(ModuleLedger& module) ORVANE_REQUIRES(m_mutex);
    std::vector<ModuleLedger*> Modules() const;
    std::shared_ptr<GroupSchedule> NextToCancel() noexcept;
    template <typename Action>
    void ForEachRunning(Action action) const ORVANE_REQUIRES(m_mutex);
    void StartSchedule(const std::shared_ptr<GroupSchedule>& schedule, const TimePoint& start, const Duration& delay,
                       const Duration& interval);
    bool RunScheduled(const std::shared_ptr<GroupSchedule>& schedule);
    void AddRun(const std::shared_ptr<GroupSchedule>& schedule, Task& task, bool isSkipped) noexcept;

    const std::shared_ptr<RunRecord> m_owner;
    const std::shared_ptr<const JobName> m_name;
    ModuleLedger& m_library;

    mutable Mutex m_mutex;
    Entries m_waiting ORVANE_GUARDED_BY(m_mutex);
    Entries m_ready ORVANE_GUARDED_BY(m_mutex);  // wait, too, but have their slots: only a runner is missing
    Entries m_running ORVANE_GUARDED_BY(m_mutex);
    Entries m_beingAsked ORVANE_GUARDED_BY(m_mutex);  // run, too: those that a request has not come to yet
    Entries m_withHandle ORVANE_GUARDED_BY(m_mutex);  // have ended, and a handle keeps them
    IntrusiveList<Departure, DepartureTag> m_departures ORVANE_GUARDED_BY(m_mutex);
    std::vector<ModuleLedger*> m_modules ORVANE_GUARDED_BY(m_mutex);  // of all jobs and schedules so far
    JobCounts m_counts ORVANE_GUARDED_BY(m_mutex);
    std::size_t m_readyCount ORVANE_GUARDED_BY(m_mutex) = 0;  // of those that are counted as waiting
    std::size_t m_added ORVANE_GUARDED_BY(m_mutex) = 0;

    GroupSlots m_slots ORVANE_GUARDED_BY(m_mutex);
    std::size_t m_runners ORVANE_GUARDED_BY(m_mutex) = 0;  // that can take a job
    bool m_isStarting ORVANE_GUARDED_BY(m_mutex) = false;  // a runner is on its way

    AskReason m_reason ORVANE_GUARDED_BY(m_mutex);  // the group is spent once there is one
    bool m_wasCancelled ORVANE_GUARDED_BY(m_mutex) = false;  // a job left because the group was asked
    GroupResults m_results ORVANE_GUARDED_BY(m_mutex);
    JobListeners m_listeners ORVANE_GUARDED_BY(m_mutex);  // of those that wait for the end of all
    JobListeners m_readers ORVANE_GUARDED_BY(m_mutex);  // of those that wait for the next record
    TimeLimit m_limit ORVANE_GUARDED_BY(m_mutex);
    HandleWatches m_watches ORVANE_GUARDED_BY(m_mutex);
    bool m_isEnlisted ORVANE_GUARDED_BY(m_mutex) = false;  // from the first job or schedule on
    std::list<std::shared_ptr<GroupSchedule>> m_schedules ORVANE_GUARDED_BY(m_mutex);
    std::size_t m_activeSchedules ORVANE_GUARDED_BY(m_mutex) = 0;
};

// What the group knows of one job. The job keeps it; while the job waits, it keeps the job.
class GroupEntry final : public JobGroupLink, public ListHook<GroupTag> {
  public:
    GroupEntry(std::shared_ptr<GroupCore> core, std::shared_ptr<const JobName> name);

    const std::shared_ptr<const JobName>& GroupName() const noexcept override;
    const void* OwnerOfGroup() const noexcept override;

    void Publish(JobState& job, bool hasRun, Departure& departure) noexcept override;
    void GoOn(Departure& departure) noexcept override;
    void LetGo() noexcept override;

    const void* Group() const noexcept override { return m_core.get(); }
    void GiveBack() noexcept override;
    bool TakeAgain(JobWaiter& waiter, CancellationObject& run) override;
    void TakeAgainAtOnce() noexcept override;

  private:
    friend class GroupCore;

    void Count(const JobState& job) noexcept;

    const std::shared_ptr<GroupCore> m_core;
    const std::shared_ptr<const JobName> m_name;
    std::shared_ptr<GroupSchedule> m_schedule;  // constant once it can run

    // Guarded by the group.
    std::shared_ptr<JobState> m_keptJob;
    JobState* m_job = nullptr;
    bool m_isWaiting = false;
    bool m_hasSlot = false;
    bool m_wantsSlot = false;  // it has given it back
    bool m_isWithdrawn = false;  // no caller has got the job: its end is not counted
    std::size_t m_index = 0;
    std::uint64_t m_addedTick = 0;  // of TickCounter; constant once it is added

    bool m_hasHandle = false;  // of the ending thread until the end is published, then of the handle's

    // Made with the entry, so that the end of a job needs no memory.
    std::list<EndedRecord> m_endedNode;
    std::list<FailedJob> m_failedNode;

    // Of the ending thread, from Publish() to GoOn().
    FailedJob m_failed;  // that no caller will read
    bool m_failsGroup = false;
    bool m_isOneOfMany = false;
    bool m_mayStartAnother = false;
};

}  // namespace Orvane::Internal
