#include "concurrency/jobs/job_ref.h"

#include <algorithm>
#include <atomic>
#include <new>
#include <stdexcept>
#include <utility>
#include <vector>

#include "concurrency/base/module_function.h"
#include "concurrency/base/thread_time.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_launch.h"
#include "concurrency/jobs/job_state.h"
#include "concurrency/jobs/notifier_scope.h"
#include "concurrency/jobs/this_run.h"
#include "concurrency/tasks/task_access.h"

namespace Orvane::Internal {

namespace {

// A wait for several jobs.
class AwaitedJobs final : public Awaited {
  public:
    enum class Until { AllOrOneFailed, One };

    AwaitedJobs(const JobRef* const* jobs, std::size_t count, Until until) : m_until(until), m_listeners(count) {
        m_jobs.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            m_jobs.push_back(&jobs[i]->Get());
        }
    }

    bool IsOver() const noexcept override {
        bool isOver = m_until == Until::AllOrOneFailed;
        for (const JobState* const job : m_jobs) {
            const bool isEnded = job->IsEnded();
            if (isEnded && (m_until == Until::One || job->Outcome() != JobOutcome::Done)) {
                return true;
            }
            isOver = isOver && isEnded;
        }
        return isOver;
    }
    void Attach(JobWaiter& waiter) noexcept override {
        for (std::size_t i = 0; i < m_jobs.size(); ++i) {
            m_listeners[i].waiter = &waiter;
            m_jobs[i]->Attach(m_listeners[i]);
        }
    }
    void Detach() noexcept override {
        for (std::size_t i = 0; i < m_jobs.size(); ++i) {
            m_jobs[i]->Detach(m_listeners[i]);
        }
    }
    void CollectRunning(std::vector<RunningJob>& running) const override {
        for (const JobState* const job : m_jobs) {
            job->CollectRunning(running);
        }
    }
    bool NeedsAll() const noexcept override { return m_until == Until::AllOrOneFailed || m_jobs.size() == 1; }
    bool IsOfGroup(const void* group) const noexcept override {
        return std::any_of(m_jobs.begin(), m_jobs.end(),
                           [group](const JobState* job) { return job->Group() == group; });
    }

  private:
    const Until m_until;
    std::vector<JobState*> m_jobs;
    std::vector<JobListener> m_listeners;
};

// Returns whether it is over in time.
bool Await(Awaited& awaited, std::chrono::nanoseconds timeout) {
    const JobWaitResult result = WaitAsCancellationPoint(awaited, DeadlineAfter(timeout));
    if (result == JobWaitResult::Cancelled) {
        ThrowCancelRequested();
    }
    return result == JobWaitResult::Over;
}

// The index of the one that ended first of those that are asked for; kNoJob if there is none.
template <typename IsAskedFor>
std::size_t FirstOf(const JobRef* const* jobs, std::size_t count, IsAskedFor isAskedFor) {
    std::size_t first = kNoJob;
    for (std::size_t i = 0; i < count; ++i) {
        const JobState& job = *jobs[i]->State();
        if (isAskedFor(job) && (first == kNoJob || job.EndTime() < jobs[first]->State()->EndTime())) {
            first = i;
        }
    }
    return first;
}

// `start` gets the job's task, unless the job has ended before it could start.
template <typename Start>
void StartJob(const std::shared_ptr<JobState>& job, const std::stop_token& token, Start start) {
    job->Enlist();
    try {
        job->CancelOn(token);
        if (job->IsWaiting()) {
            const NotifierScope kept(GetCancellationObject());  // the pool's waits do not put back what they find
            start(TaskAccess::MakeUnlisted(job->Name(), job));
        }
    } catch (...) {
        job->GiveUp();
        throw;
    }
}

}  // namespace

JobRef::JobRef() noexcept = default;
JobRef::JobRef(const JobRef&) noexcept = default;
JobRef::JobRef(JobRef&&) noexcept = default;
JobRef& JobRef::operator=(const JobRef&) noexcept = default;
JobRef& JobRef::operator=(JobRef&&) noexcept = default;
JobRef::~JobRef() = default;

JobRef::JobRef(std::shared_ptr<JobState> state) noexcept : m_state(std::move(state)) {}

JobState& JobRef::Get() const {
    if (!m_state) {
        throw std::logic_error("the handle has no job: it was moved from, detached, or its result was taken");
    }
    return *m_state;
}

JobRef JobRef::Make(const wchar_t* name, const JobBodyType& type) {
    auto owner = RecordOfThisRun();
    auto job = std::make_shared<JobState>(name, type, type.module());
    job->PinModule();
    job->SetOwner(std::move(owner));
    return JobRef(std::move(job));
}

void* JobRef::Body() const noexcept {
    return m_state->Body();
}

void JobRef::MarkBuilt() const noexcept {
    m_state->MarkBuilt();
}

void JobRef::StartOnPool(const std::stop_token& token) const {
    StartJob(m_state, token, [](const Task& task) { Launch(task, LaunchOn::Pool); });
}

void JobRef::StartInNewThread(const std::stop_token& token) const {
    StartJob(m_state, token, [](const Task& task) { Launch(task, LaunchOn::NewThread); });
}

void JobRef::StartUnowned() const {
    m_state->SetOwner(nullptr);
    m_state->SetReader(JobState::Reader::Nobody);
    StartOnPool({});
}

void JobRef::Wait() const {
    WaitFor((std::chrono::nanoseconds::max)());
}

bool JobRef::WaitFor(std::chrono::nanoseconds timeout) const {
    static_cast<void>(Get());
    const std::shared_ptr<JobState> job = m_state;
    AwaitedJob awaited(*job);
    return Await(awaited, timeout);
}

void JobRef::Cancel() const {
    AskToLeave(Get(), {CancelCause::Handle, nullptr});
}

void JobRef::CancelAfter(std::chrono::nanoseconds limit) const {
    Get().CancelAfter(limit);
}

void JobRef::CancelWhen(HANDLE handle) const {
    Get().CancelWhen(handle);
}

bool JobRef::IsReady() const noexcept {
    return m_state && m_state->IsEnded();
}

std::wstring JobRef::GetName() const {
    return m_state ? m_state->Name() : std::wstring();
}

HANDLE JobRef::EndEvent() const {
    return Get().EndEvent();
}

CancelReason JobRef::GetCancelReason() const {
    return Get().Reason().ForCallers();
}

void JobRef::RethrowFailure() const {
    m_state->RethrowFailure();
}

void* JobRef::Result() const noexcept {
    return m_state->Result();
}

void JobRef::Release() const noexcept {
    m_state->Release();
}

void JobRef::Drop() noexcept {
    if (IsProcessEnding()) {
        // On purpose neither asked nor released: its locks may be held by threads that are gone.
        new (std::nothrow) std::shared_ptr<JobState>(std::move(m_state));
        return;
    }
    const auto job = std::exchange(m_state, nullptr);
    if (!job) {
        return;
    }
    if (!job->IsEnded()) {
        AskToLeave(*job, job->DropReason());
        AwaitedJob awaited(*job);
        if (!job->IsOnThisThread()) {
            static_cast<void>(WaitToTheEnd(awaited));
        }
    }
    job->LetGo();
}

void JobRef::LetGo() noexcept {
    if (const auto job = std::exchange(m_state, nullptr)) {
        job->LetGo();
    }
}

bool IsInVirtualTime() noexcept {
    return ThreadTime::OfThisThread() != nullptr;
}

bool IsProcessEnding() noexcept {
    using Query = BOOLEAN(NTAPI*)();
    // On purpose no static constant: its guard would be held while the loader is asked (this_module.h).
    static constinit std::atomic<Query> known = nullptr;
    Query query = known.load();
    if (query == nullptr) {
        query = FindFunction<Query>(L"ntdll", "RtlDllShutdownInProgress");
        if (query == nullptr) {
            return false;
        }
        known = query;
    }
    return query() != FALSE;
}

bool WaitForAll(const JobRef* const* jobs, std::size_t count, std::chrono::nanoseconds timeout) {
    AwaitedJobs awaited(jobs, count, AwaitedJobs::Until::AllOrOneFailed);
    return Await(awaited, timeout);
}

std::size_t FirstNotDone(const JobRef* const* jobs, std::size_t count) {
    return FirstOf(jobs, count, [](const JobState& job) { return job.IsEnded() && job.Outcome() != JobOutcome::Done; });
}

std::size_t WaitForAny(const JobRef* const* jobs, std::size_t count, std::chrono::nanoseconds timeout) {
    if (count == 0) {
        throw std::invalid_argument("there is no job to wait for");
    }
    AwaitedJobs awaited(jobs, count, AwaitedJobs::Until::One);
    if (!Await(awaited, timeout)) {
        return kNoJob;
    }
    return FirstOf(jobs, count, [](const JobState& job) { return job.IsEnded(); });
}

}  // namespace Orvane::Internal
