#include "concurrency/jobs/group_core.h"

#include <system_error>
#include <utility>

#include "concurrency/base/report.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_exceptions.h"
#include "concurrency/jobs/job_launch.h"
#include "concurrency/jobs/pool_starter.h"
#include "concurrency/jobs/virtual_run.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/failure_handler.h"
#include "concurrency/tasks/make_task.h"

namespace Orvane::Internal {

namespace {

// How many records a group keeps before it says that nobody reads them.
constexpr std::size_t kManyRecords = 100'000;

}  // namespace

// The task of the pool that runs a group's jobs.
class GroupRunner final : public ITaskState {
  public:
    explicit GroupRunner(std::shared_ptr<GroupCore> group) : m_group(std::move(group)) {}
    ~GroupRunner() override {
        if (!m_hasBegun) {
            m_group->RunnerNeverBegan();
        }
    }
    GroupRunner(const GroupRunner&) = delete;
    GroupRunner& operator=(const GroupRunner&) = delete;

    void operator()() override {
        m_hasBegun = true;
        m_group->RunnerBegins();
        m_group->RunItems();
    }
    std::shared_ptr<ITaskState> Recreate() override { return nullptr; }
    std::shared_ptr<IFutureState> GetFuture() override { return m_future; }

  private:
    const std::shared_ptr<GroupCore> m_group;
    const std::shared_ptr<FutureState> m_future = std::make_shared<FutureState>();
    bool m_hasBegun = false;
};

// Needs m_mutex. Also while they are being asked.
template <typename Action>
void GroupCore::ForEachRunning(Action action) const {
    for (const Entries* const entries : {&m_running, &m_beingAsked}) {
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

class GroupCore::AwaitedRecord final : public GroupCore::AwaitedIdle {
  public:
    using AwaitedIdle::AwaitedIdle;

    bool IsOver() const noexcept override {
        const RankedLock lock(m_group.m_mutex);
        return !m_group.m_ended.empty() || m_group.Left() == 0;
    }
    void Attach(JobWaiter& waiter) noexcept override {
        m_listener.waiter = &waiter;
        const RankedLock lock(m_group.m_mutex);
        m_group.m_readers.PushBack(m_listener);
    }
    bool NeedsAll() const noexcept override { return false; }
};

GroupEntry::GroupEntry(std::shared_ptr<GroupCore> core, std::shared_ptr<const JobName> name)
    : m_core(std::move(core)), m_name(std::move(name)), m_endedNode(1), m_failedNode(1) {}

const std::shared_ptr<const JobName>& GroupEntry::GroupName() const noexcept {
    return m_core->Name();
}

void GroupEntry::Publish(JobState& job, bool hasRun) noexcept {
    GroupCore& core = *m_core;
    const RankedLock lock(core.m_mutex);
    --(m_isWaiting ? core.m_counts.waiting : core.m_counts.running);
    Unlink();
    m_isWaiting = false;
    m_keptJob = nullptr;  // the thread that ends the job holds it, too
    m_job = nullptr;
    Count(job);
    if (core.m_keepsEnded) {
        m_endedNode.front() = {m_index, job.Outcome(), {m_name, job.Error()}};
        core.m_ended.splice(core.m_ended.end(), m_endedNode);
        m_isOneOfMany = core.m_ended.size() == kManyRecords;
    }
    if (std::exchange(m_hasSlot, false)) {
        core.FreeSlot();
    }
    job.PublishEnd();
    SignalAll(core.m_readers);
    if (core.Left() == 0) {
        SignalAll(core.m_listeners);
    }
    m_mayStartAnother = !hasRun;  // else the runner takes the next job itself
}

// Within Publish().
void GroupEntry::Count(const JobState& job) noexcept {
    GroupCore& core = *m_core;
    const bool hasFailed = job.Outcome() == JobOutcome::Failed;
    m_failed = hasFailed ? GroupCore::Failed{m_name, job.Error()} : GroupCore::Failed{};
    switch (job.Outcome()) {
        case JobOutcome::Done: ++core.m_counts.done; break;
        case JobOutcome::Failed: ++core.m_counts.failed; break;
        case JobOutcome::Cancelled:
            ++core.m_counts.cancelled;
            // The last uninitialisation asks the job and the group one after the other.
            core.m_wasCancelled = core.m_wasCancelled || core.m_reason.cause != CancelCause::None ||
                                  job.Reason().cause == CancelCause::Shutdown;
            break;
    }
    if (hasFailed && (!m_schedule || m_schedule->onFailure == OnFailure::FailGroup)) {
        m_failedNode.front() = std::exchange(m_failed, {});
        m_failsGroup = core.CountFailure(m_failedNode);
    }
    if (m_schedule) {
        m_schedule->isUnderWay = false;
        if (!m_schedule->isRecurrent || (hasFailed && m_schedule->onFailure == OnFailure::Stop)) {
            core.EndSchedule(*m_schedule);
        }
    }
}

void GroupEntry::GoOn(bool) noexcept {
    if (m_isOneOfMany) {
        ReportNoThrow(4, 16, L"Concurrency.Job",
                      L"Group [%s] keeps the records of %d ended jobs that no iteration has taken: see ForgetEnded()",
                      m_core->m_name->text.c_str(), static_cast<int>(kManyRecords));
    }
    if (m_failed.error) {
        ReportUnreadFailure(m_failed.name->text.c_str(), std::exchange(m_failed.error, nullptr));
    }
    if (m_failsGroup) {
        m_core->AskAfterFailure();
    }
    if (m_schedule) {
        m_core->CancelEnded(*m_schedule);
    }
    if (m_mayStartAnother) {
        m_core->StartRunner();
    }
}

void GroupEntry::GiveBack() noexcept {
    {
        const RankedLock lock(m_core->m_mutex);
        if (!m_hasSlot) {
            return;
        }
        m_hasSlot = false;
        m_wantsSlot = true;
        --m_core->m_runners;
        m_core->FreeSlot();
    }
    m_core->StartRunner();
}

bool GroupEntry::TakeAgain(JobWaiter& waiter, CancellationObject& run) {
    GroupCore& core = *m_core;
    JobListener listener;
    listener.waiter = &waiter;
    {
        const RankedLock lock(core.m_mutex);
        if (!std::exchange(m_wantsSlot, false)) {
            return true;
        }
        ++core.m_retakers;
        core.m_slotWaiters.PushBack(listener);
    }
    for (;;) {
        const std::uint32_t seen = waiter.Signals();
        const bool isAsked = run.IsRequested();
        {
            const RankedLock lock(core.m_mutex);
            if (isAsked || core.m_slots < core.m_bound) {
                listener.Unlink();
                --core.m_retakers;
                ++core.m_runners;
                m_hasSlot = !isAsked;
                core.m_slots += m_hasSlot ? 1 : 0;
                break;
            }
        }
        waiter.Sleep(seen, kNoDeadline);
    }
    if (!m_hasSlot) {
        core.StartRunner();  // what was kept for this job is free
    }
    return m_hasSlot;
}

void GroupEntry::TakeAgainAtOnce() noexcept {
    GroupCore& core = *m_core;
    const RankedLock lock(core.m_mutex);
    if (!std::exchange(m_wantsSlot, false)) {
        return;
    }
    ++core.m_runners;
    if (core.m_slots < core.m_bound) {
        ++core.m_slots;
        m_hasSlot = true;
    }
}

GroupCore::GroupCore(const wchar_t* name, std::size_t bound)
    : m_owner(RunRecord::OfThisThread()),
      m_name(std::make_shared<const JobName>(name, m_owner ? m_owner->Name() : nullptr)),
      m_bound(bound) {}

GroupCore::~GroupCore() = default;

void GroupCore::Open() {
    if (m_owner && !m_owner->Add(*this)) {
        AskToLeave(*this, {CancelCause::Parent, m_owner->Name()});
    }
}

void GroupCore::Close(bool isOver) noexcept {
    if (m_owner) {
        m_owner->Remove(*this);
    }
    if (isOver) {
        DropScheduledWork();
    }
    TimeLimit limit;
    {
        const RankedLock lock(m_mutex);
        limit = std::exchange(m_limit, {});
    }
    RemoveTimeLimit(limit);
    const RankedLock lock(ShardOf(*this).mutex);
    Delist(*this);
}

// The thread of the last run may hold its schedule for a moment still, when the callable must be gone. No run calls it any more.
void GroupCore::DropScheduledWork() noexcept {
    std::list<std::shared_ptr<GroupSchedule>> schedules;
    {
        const RankedLock lock(m_mutex);
        schedules.swap(m_schedules);
    }
    for (const auto& schedule : schedules) {
        schedule->work = nullptr;
    }
}

std::shared_ptr<JobState> GroupCore::Make(const wchar_t* name, const JobBodyType& type) {
    auto job = std::make_shared<JobState>(name, type);
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
    job->Enlist();
    auto& entry = static_cast<GroupEntry&>(job->GroupLink());
    entry.m_job = job.get();
    entry.m_index = m_added++;
    entry.m_isWaiting = &entries == &m_waiting;
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
        ++m_slots;
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
        Launch(Task(job->Name(), job), Place::NewThread);
    } catch (...) {
        job->GiveUp();
        throw;
    }
}

bool GroupCore::Reserve() {
    const RankedLock lock(m_mutex);
    if (m_reason.cause == CancelCause::None && m_slots + m_retakers + m_counts.waiting >= m_bound) {
        return false;
    }
    ++m_slots;
    return true;
}

void GroupCore::CancelReservation() noexcept {
    {
        const RankedLock lock(m_mutex);
        FreeSlot();
    }
    StartRunner();
}

// Needs m_mutex. Jobs that want their slots again come first. What waits in a spent group is on its way to be asked, and never runs.
bool GroupCore::CanStartOne() const {
    return !m_waiting.IsEmpty() && m_slots + m_retakers < m_bound && m_reason.cause == CancelCause::None;
}

void GroupCore::FreeSlot() {
    --m_slots;
    SignalAll(m_slotWaiters);
}

std::size_t GroupCore::Left() const {
    return m_counts.waiting + m_counts.running + m_activeSchedules;
}

bool GroupCore::ClaimStart() noexcept {
    const RankedLock lock(m_mutex);
    if (m_isStarting || !CanStartOne()) {
        return false;
    }
    m_isStarting = true;
    return true;
}

void GroupCore::StartRunner() noexcept {
    if (!ClaimStart()) {
        return;
    }
    try {
        const Task runner(m_name->text.c_str(), std::make_shared<GroupRunner>(shared_from_this()));
        if (!Launch(runner, Place::PoolIfItHasRoom)) {
            QueueInBackground(
                runner, [self = shared_from_this()](const std::exception_ptr& error) { self->StartHasFailed(error); });
        }
    } catch (...) {
        StartHasFailed(std::current_exception());
    }
}

void GroupCore::StartHasFailed(const std::exception_ptr& error) noexcept {
    {
        const RankedLock lock(m_mutex);
        m_isStarting = false;
        if (m_runners != 0) {
            return;  // which takes one job after the other, and tries again
        }
    }
    Fail(m_name, error);
}

void GroupCore::RunnerNeverBegan() noexcept {
    const RankedLock lock(m_mutex);
    m_isStarting = false;
}

void GroupCore::RunnerBegins() noexcept {
    const RankedLock lock(m_mutex);
    m_isStarting = false;
    ++m_runners;
}

// Null if the runner is to leave.
std::shared_ptr<JobState> GroupCore::TakeNext() noexcept {
    const RankedLock lock(m_mutex);
    if (!CanStartOne()) {
        --m_runners;
        return nullptr;
    }
    GroupEntry& entry = *m_waiting.PopFront();
    entry.m_isWaiting = false;
    entry.m_hasSlot = true;
    ++m_slots;
    --m_counts.waiting;
    ++m_counts.running;
    m_running.PushBack(entry);
    return std::move(entry.m_keptJob);
}

void GroupCore::RunItems() {
    while (const std::shared_ptr<JobState> job = TakeNext()) {
        StartRunner();
        try {
            Task(job->Name(), job)();
        } catch (...) {
            (*job)();  // no memory for its records in the log: nothing if it has run
        }
    }
}

// Needs m_mutex. Returns whether it is what the group fails with.
bool GroupCore::CountFailure(std::list<Failed>& failed) noexcept {
    const Failed& failure = failed.front();
    const bool isFirst = !m_first.error;
    if (isFirst) {
        m_first = failure;
        if (m_reason.cause == CancelCause::None) {
            m_reason = {CancelCause::GroupFailure, failure.name};
        }
    }
    m_failures.splice(m_failures.end(), failed);
    return isFirst;
}

void GroupCore::Fail(const std::shared_ptr<const JobName>& name, const std::exception_ptr& error) noexcept {
    std::list<Failed> failed;
    try {
        failed.push_back({name, error});
    } catch (const std::bad_alloc&) {
        // On purpose: without memory for the list, the first failure is kept all the same.
    }
    {
        const RankedLock lock(m_mutex);
        if (!failed.empty()) {
            CountFailure(failed);
        } else if (!m_first.error) {
            m_first = {name, error};
            m_reason = m_reason.cause == CancelCause::None ? AskReason{CancelCause::GroupFailure, name} : m_reason;
        }
    }
    AskAfterFailure();
}

void GroupCore::AskAfterFailure() noexcept {
    AskReason reason;
    {
        const RankedLock lock(m_mutex);
        reason = {CancelCause::GroupFailure, m_first.name};
    }
    AskToLeave(*this, reason);
}

void GroupCore::Ask(const AskReason& reason, AskedList& asked) noexcept {
    bool hasSchedules = false;
    {
        const RankedLock lock(m_mutex);
        if (m_reason.cause == CancelCause::None) {
            m_reason = reason;
        }
        for (const auto& schedule : m_schedules) {
            hasSchedules = true;
            EndSchedule(*schedule);
        }
    }
    AskJobs(reason, asked);
    if (hasSchedules) {
        asked.Add(shared_from_this());
    }
}

// Those that run first: they need time to leave.
void GroupCore::AskJobs(const AskReason& reason, AskedList& asked) noexcept {
    Entries waiting;
    RankedLock lock(m_mutex);
    m_beingAsked.TakeAll(m_running);
    waiting.TakeAll(m_waiting);
    while (GroupEntry* const entry = m_beingAsked.PopFront()) {
        m_running.PushBack(*entry);
        if (auto job = entry->m_job->Self()) {
            const ReleasedLock released(lock, m_mutex);
            job->Ask(reason, asked);
            job.reset();
        }
    }
    while (GroupEntry* const entry = waiting.PopFront()) {
        auto job = entry->m_keptJob;
        const ReleasedLock released(lock, m_mutex);
        job->Ask(reason, asked);
        job.reset();
    }
}

void GroupCore::FinishAsking() noexcept {
    while (const auto ended = NextToCancel()) {
        CancelEnded(*ended);
    }
}

// Null when all schedules that are not active have been cancelled.
std::shared_ptr<GroupSchedule> GroupCore::NextToCancel() noexcept {
    const RankedLock lock(m_mutex);
    for (const auto& schedule : m_schedules) {
        if (!schedule->isActive && !std::exchange(schedule->isTakenForCancel, true)) {
            return schedule;
        }
    }
    return nullptr;
}

void GroupCore::DropWaiting() noexcept {
    AskedList asked;
    Entries waiting;
    RankedLock lock(m_mutex);
    waiting.TakeAll(m_waiting);
    while (GroupEntry* const entry = waiting.PopFront()) {
        auto job = entry->m_keptJob;
        const ReleasedLock released(lock, m_mutex);
        job->Ask({CancelCause::Group, m_name}, asked);
        job.reset();
    }
}

bool GroupCore::WaitUntilIdle(MonotonicClock::time_point deadline) {
    AwaitedIdle awaited(*this);
    const JobWaitResult result = WaitAsCancellationPoint(awaited, deadline);
    if (result == JobWaitResult::Cancelled) {
        throw CancelRequestedException();
    }
    return result == JobWaitResult::Over;
}

JobWaitResult GroupCore::WaitToTheEnd() noexcept {
    AwaitedIdle awaited(*this);
    return Internal::WaitToTheEnd(awaited);
}

void GroupCore::RethrowFirst() {
    std::exception_ptr error;
    AskReason reason;
    bool wasCancelled = false;
    {
        const RankedLock lock(m_mutex);
        error = m_first.error;
        reason = m_reason;
        wasCancelled = m_wasCancelled;
        m_isFirstRead = m_first.error != nullptr;
    }
    if (error) {
        std::rethrow_exception(error);
    }
    if (wasCancelled && reason.cause == CancelCause::Limit) {
        throw TimeLimitException();
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
            throw CancelRequestedException();
        }
        std::list<Ended> taken;
        EndedJob next;  // what it changes places with is destroyed without the lock
        const RankedLock lock(m_mutex);
        if (!m_ended.empty()) {
            const Ended& first = m_ended.front();
            next = {first.job.name->text, first.index, first.outcome, first.job.error};
            std::swap(ended, next);
            m_isFirstRead = m_isFirstRead || first.outcome == JobOutcome::Failed;
            taken.splice(taken.end(), m_ended, m_ended.begin());
            return true;
        }
        if (Left() == 0) {
            return false;
        }
    }
}

void GroupCore::ForgetEnded() noexcept {
    std::list<Ended> forgotten;
    const RankedLock lock(m_mutex);
    m_keepsEnded = false;
    forgotten.swap(m_ended);
}

void GroupCore::CancelAfter(std::chrono::nanoseconds limit) {
    if (limit <= std::chrono::nanoseconds::zero()) {
        AskToLeave(*this, {CancelCause::Limit, nullptr});
        return;
    }
    const auto when = DeadlineAfter(limit);
    if (when == kNoDeadline) {
        return;
    }
    TimeLimit fresh = AddTimeLimit(weak_from_this(), when);
    {
        const RankedLock lock(m_mutex);
        if (m_limit.number == 0 || when < m_limit.when) {
            std::swap(m_limit, fresh);
        }
    }
    RemoveTimeLimit(fresh);
}

CancelReason GroupCore::Reason() const {
    AskReason reason;
    {
        const RankedLock lock(m_mutex);
        reason = m_reason;
    }
    return reason.ForCallers();
}

JobCounts GroupCore::Counts() const {
    const RankedLock lock(m_mutex);
    return m_counts;
}

std::vector<JobFailure> GroupCore::Failures() {
    std::vector<JobFailure> failures;
    const RankedLock lock(m_mutex);
    for (const Failed& failed : m_failures) {
        failures.push_back({failed.name->text, failed.error});
    }
    m_isFirstRead = m_first.error != nullptr;
    return failures;
}

bool GroupCore::IsOnThisThread() const noexcept {
    const RankedLock lock(m_mutex);
    bool isOnThisThread = false;
    ForEachRunning([&isOnThisThread](const JobState& job) { isOnThisThread = isOnThisThread || job.IsOnThisThread(); });
    return isOnThisThread;
}

void GroupCore::ReportUnread() noexcept {
    Failed failed;
    {
        const RankedLock lock(m_mutex);
        if (!m_isFirstRead) {
            failed = m_first;
        }
    }
    if (failed.error) {
        ReportUnreadFailure(failed.name->text.c_str(), failed.error);
    }
}

void GroupCore::AddSchedule(const std::shared_ptr<GroupSchedule>& schedule, const TimePoint& start,
                            const Duration& delay, const Duration& interval) {
    std::list<std::shared_ptr<GroupSchedule>> node{schedule};
    {
        const RankedLock lock(m_mutex);
        EnlistOnce();
        if (m_reason.cause != CancelCause::None) {
            return;
        }
        m_schedules.splice(m_schedules.end(), node);
        schedule->isActive = true;
        ++m_activeSchedules;
    }
    try {
        StartSchedule(schedule, start, delay, interval);
    } catch (...) {
        const RankedLock lock(m_mutex);
        EndSchedule(*schedule);
        m_schedules.remove(schedule);
        throw;
    }
    CancelEnded(*schedule);
}

void GroupCore::StartSchedule(const std::shared_ptr<GroupSchedule>& schedule, const TimePoint& start,
                              const Duration& delay, const Duration& interval) {
    // Weakly: the schedule has the task.
    const auto runOnce = [group = weak_from_this(), weak = std::weak_ptr<GroupSchedule>(schedule)] {
        const auto self = group.lock();
        const auto due = weak.lock();
        return self && due && self->RunScheduled(due);
    };
    if (VirtualRun* const run = VirtualRun::OfThisThread()) {
        run->AddTimer(DeadlineAfter(ToNanoseconds(delay)), [runOnce, interval] {
            const bool goesOn = runOnce() && interval > Duration::zero();
            return goesOn ? DeadlineAfter(ToNanoseconds(interval)) : VirtualRun::kNever;
        });
        return;
    }
    const Task task = MakeTask(m_name->text.c_str(), runOnce);
    {
        const RankedLock lock(m_mutex);
        schedule->task = task;
    }
    GlobalScheduler::Insert({task, start, ScheduleAccess::WithinTime(start, interval)});
}

// Needs m_mutex. Its task is cancelled later, without the lock.
void GroupCore::EndSchedule(GroupSchedule& schedule) {
    if (std::exchange(schedule.isActive, false)) {
        --m_activeSchedules;
        if (Left() == 0) {
            SignalAll(m_readers);
            SignalAll(m_listeners);
        }
    }
}

// Nothing if it is active still.
void GroupCore::CancelEnded(GroupSchedule& schedule) noexcept {
    Task task;
    {
        const RankedLock lock(m_mutex);
        if (!schedule.isActive) {
            task = schedule.task;
        }
    }
    try {
        task.Cancel();
    } catch (const CancelRequestedException&) {
        // In its own run, which only adds a job: it is cancelled, and goes on to its end.
    }
}

// On a worker, when a run is due. It does no more than add a job, so that nobody ever has to wait for it.
// Returns whether the schedule is active.
bool GroupCore::RunScheduled(const std::shared_ptr<GroupSchedule>& schedule) {
    bool isSkipped = false;
    Task task;
    {
        const RankedLock lock(m_mutex);
        if (!schedule->isActive) {
            return false;
        }
        isSkipped = std::exchange(schedule->isUnderWay, true);
        task = schedule->task;
    }
    if (schedule->isRecurrent) {
        task.Reset();  // for its next run
    }
    if (isSkipped) {
        ReportNoThrow(4, 4, L"Concurrency.Job", L"Job [%s] skips a run: the one before has not ended",
                      schedule->name->text.c_str());
        return true;
    }
    try {
        const auto work = [schedule] { schedule->work(); };
        const auto job = Make(schedule->name->text.c_str(), JobBody<std::remove_const_t<decltype(work)>>::Type());
        ::new (job->Body()) JobBody<std::remove_const_t<decltype(work)>>(work);
        job->MarkBuilt();
        static_cast<GroupEntry&>(job->GroupLink()).m_schedule = schedule;
        Add(job);
    } catch (const std::exception& failure) {
        ReportNoThrow(4, 16, L"Concurrency.Job", L"Job [%s] skips a run: %hs", schedule->name->text.c_str(),
                      failure.what());
        const RankedLock lock(m_mutex);
        schedule->isUnderWay = false;
        if (!schedule->isRecurrent) {
            EndSchedule(*schedule);
        }
    }
    return true;
}

}  // namespace Orvane::Internal
