#include "concurrency/jobs/group_core.h"

#include <stdexcept>
#include <system_error>
#include <utility>

#include "concurrency/base/tick_counter.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job_launch.h"
#include "concurrency/jobs/this_run.h"
#include "concurrency/tasks/failure_handler.h"
#include "concurrency/tasks/task_access.h"

namespace Orvane::Internal {

// Needs m_mutex. Also while they are being asked, and those that end without having run.
template <typename Action>
void GroupCore::ForEachRunning(Action action) const {
    for (const Entries* const entries : {&m_running, &m_beingAsked, &m_waiting}) {
        for (const GroupEntry* next = entries->Front(); next != nullptr; next = entries->Next(*next)) {
            action(*next->m_job);
        }
    }
}

class GroupCore::AwaitedIdle : public Awaited {
  public:
    explicit AwaitedIdle(GroupCore& group) : m_group(group) {}

    bool IsOver() const noexcept override {
        const RankedLock lock(m_group.m_mutex);
        return m_group.Left() == 0;
    }
    void Attach(JobWaiter& waiter) noexcept override {
        m_listener.waiter = &waiter;
        const RankedLock lock(m_group.m_mutex);
        m_group.m_listeners.PushBack(m_listener);
    }
    void Detach() noexcept override {
        const RankedLock lock(m_group.m_mutex);
        m_listener.Unlink();
    }
    void CollectRunning(std::vector<RunningJob>& running) const override {
        const RankedLock lock(m_group.m_mutex);
        m_group.ForEachRunning([&running](const JobState& job) { job.CollectRunning(running); });
    }
    bool IsOfGroup(const void* group) const noexcept override { return group == &m_group; }

  protected:
    GroupCore& m_group;
    JobListener m_listener;
};

class GroupCore::AwaitedGone final : public GroupCore::AwaitedIdle {
  public:
    using AwaitedIdle::AwaitedIdle;

    bool IsOver() const noexcept override { return m_group.IsGone(); }
    void CollectRunning(std::vector<RunningJob>& running) const override {
        AwaitedIdle::CollectRunning(running);
        const RankedLock lock(m_group.m_mutex);
        for (const Departure* next = m_group.m_departures.Front(); next != nullptr;
             next = m_group.m_departures.Next(*next)) {
            running.push_back({next->thread, next->name, next->since, true});
        }
    }
};

class GroupCore::AwaitedRecord final : public GroupCore::AwaitedIdle {
  public:
    using AwaitedIdle::AwaitedIdle;

    bool IsOver() const noexcept override {
        const RankedLock lock(m_group.m_mutex);
        return m_group.m_results.NextRecord() != nullptr || m_group.Left() == 0;
    }
    void Attach(JobWaiter& waiter) noexcept override {
        m_listener.waiter = &waiter;
        const RankedLock lock(m_group.m_mutex);
        m_group.m_readers.PushBack(m_listener);
    }
    bool NeedsAll() const noexcept override { return false; }
};

GroupCore::GroupCore(const wchar_t* name, std::size_t bound)
    : m_owner(RecordOfThisRun()),
      m_name(std::make_shared<const JobName>(name, m_owner ? m_owner->Name() : nullptr)),
      m_library(LedgerOfThisModule()),
      m_slots(bound) {}

GroupCore::~GroupCore() = default;

void GroupCore::Open() {
    if (m_owner && !m_owner->Add(*this)) {
        AskToLeave(*this, m_owner->ReasonForOwned());
    }
}

void GroupCore::Close(bool isGone) noexcept {
    if (m_owner) {
        m_owner->Remove(*this);
    }
    if (isGone) {
        DropScheduledWork();
        DropFailures();
    }
    TimeLimit limit;
    HandleWatches watches;
    {
        const RankedLock lock(m_mutex);
        limit = std::exchange(m_limit, {});
        watches.swap(m_watches);
    }
    RemoveTimeLimit(limit);
    RemoveHandleWatches(watches);
    const RankedLock lock(ShardOf(*this).mutex);
    Delist(*this);
}

std::shared_ptr<JobState> GroupCore::Make(const wchar_t* name, const JobBodyType& type, ModuleLedger& module) {
    auto job = std::make_shared<JobState>(name, type, module);
    job->SetGroup(std::make_shared<GroupEntry>(shared_from_this(), std::make_shared<const JobName>(name, m_name)));
    return job;
}

// Needs m_mutex. From its first job or schedule on the last uninitialisation asks the group.
void GroupCore::EnlistOnce() {
    if (!m_isEnlisted) {
        Enlist(*this);
        m_isEnlisted = true;
    }
}

// Needs m_mutex. Counts the job, as one that waits or as one that runs. From then on requests reach it.
void GroupCore::Enroll(const std::shared_ptr<JobState>& job, Entries& entries) {
    EnlistOnce();
    NoteModule(job->Module());
    job->Enlist();
    auto& entry = static_cast<GroupEntry&>(job->GroupLink());
    entry.m_job = job.get();
    entry.m_index = m_added++;
    entry.m_addedTick = TickCounter::Now();
    entry.m_isWaiting = &entries != &m_running;
    if (entry.m_isWaiting) {
        entry.m_keptJob = job;
    }
    ++(entry.m_isWaiting ? m_counts.waiting : m_counts.running);
    entries.PushBack(entry);
}

void GroupCore::Add(const std::shared_ptr<JobState>& job) {
    AskReason reason;
    {
        const RankedLock lock(m_mutex);
        Enroll(job, m_waiting);
        reason = m_reason;
    }
    Start(job, reason);
}

void GroupCore::AddReserved(const std::shared_ptr<JobState>& job) {
    AskReason reason;
    {
        const RankedLock lock(m_mutex);
        Enroll(job, m_ready);
        static_cast<GroupEntry&>(job->GroupLink()).m_hasSlot = true;
        ++m_readyCount;
        reason = m_reason;
    }
    Start(job, reason);
}

// After it has been added. `reason`: of the group at that time.
void GroupCore::Start(const std::shared_ptr<JobState>& job, const AskReason& reason) noexcept {
    if (reason.cause != CancelCause::None) {
        AskToLeave(*job, reason);
    } else {
        StartRunner();
    }
}

void GroupCore::RunHere(const std::shared_ptr<JobState>& job) {
    AskReason reason;
    {
        const RankedLock lock(m_mutex);
        Enroll(job, m_running);
        static_cast<GroupEntry&>(job->GroupLink()).m_hasSlot = true;
        m_slots.Take();
        reason = m_reason;
    }
    if (reason.cause != CancelCause::None) {
        AskToLeave(*job, reason);
    }
    (*job)();
}

void GroupCore::AddInNewThread(const std::shared_ptr<JobState>& job) {
    AskReason reason;
    {
        const RankedLock lock(m_mutex);
        Enroll(job, m_running);
        reason = m_reason;
    }
    if (reason.cause != CancelCause::None) {
        AskToLeave(*job, reason);
        return;
    }
    try {
        Launch(TaskAccess::MakeUnlisted(job->Name(), job), LaunchOn::NewThread);
    } catch (...) {
        Withdraw(*job);
        throw;
    }
}

// Ends it as if it had never been added, unless a request has ended it before.
void GroupCore::Withdraw(JobState& job) noexcept {
    {
        const RankedLock lock(m_mutex);
        static_cast<GroupEntry&>(job.GroupLink()).m_isWithdrawn = true;
    }
    job.GiveUp();
}

bool GroupCore::Reserve() {
    const RankedLock lock(m_mutex);
    if (m_reason.cause == CancelCause::None && !m_slots.IsOneFreeBehind(m_counts.waiting - m_readyCount)) {
        return false;
    }
    m_slots.Take();
    return true;
}

void GroupCore::CancelReservation() noexcept {
    {
        const RankedLock lock(m_mutex);
        m_slots.Free();
    }
    StartRunner();
}

std::size_t GroupCore::Left() const {
    return m_counts.waiting + m_counts.running + m_activeSchedules;
}

bool GroupCore::WaitUntilIdle(MonotonicClock::time_point deadline) {
    AwaitedIdle awaited(*this);
    const JobWaitResult result = WaitAsCancellationPoint(awaited, deadline);
    if (result == JobWaitResult::Cancelled) {
        ThrowCancelRequested();
    }
    return result == JobWaitResult::Over;
}

JobWaitResult GroupCore::WaitUntilGone() noexcept {
    AwaitedGone awaited(*this);
    return WaitToTheEnd(awaited);
}

bool GroupCore::IsGone() const noexcept {
    const RankedLock lock(m_mutex);
    return Left() == 0 && m_departures.IsEmpty();
}

void GroupCore::Departs(Departure& departure) noexcept {
    const RankedLock lock(m_mutex);
    departure.Unlink();
    if (m_departures.IsEmpty() && Left() == 0) {
        SignalAll(m_listeners);
    }
}

void GroupCore::RethrowFirst() {
    std::exception_ptr error;
    AskReason reason;
    bool wasCancelled = false;
    bool isGone = false;
    {
        const RankedLock lock(m_mutex);
        error = m_results.First().error.Get();
        isGone = m_results.IsFirstGone();
        reason = m_reason;
        wasCancelled = m_wasCancelled;
        m_results.MarkFirstAsRead();
    }
    if (error) {
        std::rethrow_exception(error);
    }
    if (isGone) {
        throw std::logic_error("the group has left, and what it failed with is gone");
    }
    if (const auto limit = wasCancelled ? reason.Limit() : nullptr) {
        throw TimeLimitException(limit);
    }
    if (wasCancelled) {
        throw CancelledException();
    }
}

bool GroupCore::NextEnded(EndedJob& ended) {
    for (;;) {
        AwaitedRecord awaited(*this);
        if (!awaited.IsOver() && IsOnThisThread()) {
            throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                                    "an iteration over the group of this job");
        }
        if (WaitAsCancellationPoint(awaited, kNoDeadline) == JobWaitResult::Cancelled) {
            ThrowCancelRequested();
        }
        std::list<EndedRecord> taken;
        EndedJob next;  // what it changes places with is destroyed without the lock
        const RankedLock lock(m_mutex);
        if (const EndedRecord* const first = m_results.NextRecord()) {
            next = {first->job.name->text, first->index, first->outcome, first->job.error.Get()};
            std::swap(ended, next);
            taken = m_results.TakeRecord();
            return true;
        }
        if (Left() == 0) {
            return false;
        }
    }
}

void GroupCore::ForgetEnded() noexcept {
    std::list<EndedRecord> forgotten;
    const RankedLock lock(m_mutex);
    forgotten = m_results.ForgetRecords();
}

JobCounts GroupCore::Counts() const {
    const RankedLock lock(m_mutex);
    return m_counts;
}

std::vector<JobFailure> GroupCore::Failures() {
    std::vector<JobFailure> failures;
    const RankedLock lock(m_mutex);
    for (const FailedJob& failed : m_results.Failures()) {
        failures.push_back({failed.name->text, failed.error.Get()});
    }
    m_results.MarkFirstAsRead();
    return failures;
}

bool GroupCore::IsOnThisThread() const noexcept {
    const RankedLock lock(m_mutex);
    bool isOnThisThread = false;
    ForEachRunning([&isOnThisThread](const JobState& job) { isOnThisThread = isOnThisThread || job.IsOnThisThread(); });
    for (const Departure* next = m_departures.Front(); next != nullptr; next = m_departures.Next(*next)) {
        isOnThisThread = isOnThisThread || next->thread == ::GetCurrentThreadId();
    }
    return isOnThisThread;
}

void GroupCore::ReportUnread() noexcept {
    FailedJob failed;
    {
        const RankedLock lock(m_mutex);
        if (m_results.IsFirstUnread()) {
            failed = m_results.First();
            m_results.MarkFirstAsRead();  // the handler may come here again
        }
    }
    if (failed.error) {
        ReportUnreadFailure(failed.name->text.c_str(), failed.error.Get());
    }
}

}  // namespace Orvane::Internal
