#include "concurrency/tasks/task_impl.h"

#include <wchar.h>

#include <algorithm>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/run_companion.h"
#include "concurrency/tasks/empty_task_state.h"
#include "concurrency/tasks/future_state.h"
#include "concurrency/tasks/running_tasks.h"
#include "concurrency/tasks/traced_run.h"
#include "zarvo_orvane_logging/orvane_logging.h"

namespace Orvane::Internal {

namespace {

// Thread and process ids stand twice in both records: hexadecimal and decimal.
void ReportRun(const wchar_t* format, const wchar_t* name) {
    const unsigned thread = ::GetCurrentThreadId();
    const unsigned process = ::GetCurrentProcessId();
    g_OrvaneLogging.Report(1, 16, L"Concurrency.Task", format, name, thread, thread, process, process);
}

// Of the run that is under way; empty if it has none, or if the future is not the library's.
std::shared_ptr<RunCompanion> CompanionOf(const std::shared_ptr<IFutureState>& future) {
    const auto* const state = dynamic_cast<const FutureState*>(future.get());
    return state != nullptr ? state->GetCompanion() : nullptr;
}

}  // namespace

TaskImpl::TaskImpl(const wchar_t* name, std::shared_ptr<ITaskState> wrapper, Listed listed)
    : m_wrapper(std::move(wrapper)), m_listed(listed) {
    if (!m_wrapper) {
        m_wrapper = EmptyTaskState();
    }
    if (name != nullptr) {
        std::copy_n(name, ::wcsnlen(name, RunTitle::kCapacity - 1), m_title.name.begin());
    }
}

// Needs m_mutex. An emptied task answers by itself: its state would make a future to be asked, and that needs memory.
bool TaskImpl::IsEmptied() const {
    return m_wrapper == EmptyTaskState();
}

// Needs m_mutex.
bool TaskImpl::IsCancelledLocked() const {
    if (m_cancelled || IsEmptied()) {
        return true;
    }
    const auto future = m_wrapper->GetFuture();
    return future->IsCancelling() || future->IsCancelled();
}

// Returns what is to be run, null if the task is cancelled. `future` is null if it is not the library's.
std::shared_ptr<ITaskState> TaskImpl::BeginRun(std::shared_ptr<FutureState>& future) {
    const RankedLock lock(m_mutex);
    if (IsCancelledLocked()) {
        return nullptr;
    }
    future = std::dynamic_pointer_cast<FutureState>(m_wrapper->GetFuture());
    m_latestRun.Begin(m_wrapper);
    return m_wrapper;
}

// Ends what BeginRun() began, also if the run throws.
class TaskImpl::RunScope {
  public:
    RunScope(TaskImpl& task, const std::shared_ptr<ITaskState>& run, std::shared_ptr<FutureState> future)
        : m_task(task), m_run(run), m_future(std::move(future)) {
        if (m_future) {
            m_future->GiveRunTitle(&task.m_title);
        }
    }
    ~RunScope() {
        if (m_future) {
            m_future->TakeBackRunTitle();
        }
        const RankedLock lock(m_task.m_mutex);
        m_task.m_latestRun.End(m_run);
    }
    RunScope(const RunScope&) = delete;
    RunScope& operator=(const RunScope&) = delete;

  private:
    TaskImpl& m_task;
    const std::shared_ptr<ITaskState>& m_run;
    const std::shared_ptr<FutureState> m_future;
};

void TaskImpl::Run() {
    std::shared_ptr<FutureState> future;
    const std::shared_ptr<ITaskState> wrapper = BeginRun(future);
    if (!wrapper) {
        return;
    }
    const RunScope scope(*this, wrapper, std::move(future));
    const RunningTask running(m_title.name.data(), m_listed == Listed::Yes, wrapper->GetFuture(), m_isTracked);
    TracedRun traced(m_listed == Listed::Yes ? m_title.name.data() : nullptr);
    ReportRun(L"Task [%s] started in thread [0x%x (%d)] of process [0x%x (%d)]", m_title.name.data());
    (*wrapper)();
    ReportRun(L"Task [%s] stopped normally in thread [0x%x (%d)] of process [0x%x (%d)]", m_title.name.data());
    traced.EndAs(*wrapper);
}

// On the thread that asks.
void TaskImpl::TraceRequest() const noexcept {
    if (m_listed == Listed::Yes && IsTracing()) {
        Trace(TracePhase::Instant, "task", L"asked", {{.key = "run", .text = m_title.name.data()}});
    }
}

void TaskImpl::Cancel() {
    std::shared_ptr<ITaskState> released;  // destroyed after the lock: its destructor runs user code
    std::shared_ptr<IFutureState> future;
    bool isOwnRun = false;
    TraceRequest();
    {
        const RankedLock lock(m_mutex);
        try {
            if (!IsEmptied()) {
                future = m_wrapper->GetFuture();
                future->RequestCancel();
            }
            m_cancelled = true;
        } catch (const CancelRequestedException&) {
            // The task cancels itself: this handle is done with it, the run goes on through its own reference.
            released = std::exchange(m_wrapper, EmptyTaskState());
            isOwnRun = true;
        }
    }
    if (const auto companion = CompanionOf(future)) {
        companion->Requested();  // without the lock: this may run user code
    }
    if (isOwnRun) {
        released.reset();
        throw CancelRequestedException();
    }
}

const wchar_t* TaskImpl::GetName() const {
    const RankedLock lock(m_mutex);
    return m_title.name.data();
}

std::shared_ptr<ITaskState> TaskImpl::GetWrapper() const {
    const RankedLock lock(m_mutex);
    return m_wrapper;
}

bool TaskImpl::IsBusy() const {
    const RankedLock lock(m_mutex);
    return !IsEmptied() && m_wrapper->GetFuture()->IsBusy();
}

bool TaskImpl::IsCancelled() const {
    const RankedLock lock(m_mutex);
    return IsCancelledLocked();
}

void TaskImpl::Reset() {
    std::shared_ptr<ITaskState> released;  // destroyed after the lock: its destructor runs user code
    const RankedLock lock(m_mutex);
    if (IsCancelledLocked()) {
        return;
    }
    if (auto fresh = m_wrapper->Recreate()) {
        released = std::exchange(m_wrapper, std::move(fresh));
    }
}

// Empties the task and returns nothing. But if a reset came in between and a run of the new state is under way, returns the
// new state, to be waited for first: otherwise the handle would call a running task idle.
std::shared_ptr<ITaskState> TaskImpl::EmptyUnlessRunning(const std::shared_ptr<ITaskState>& awaited) {
    std::shared_ptr<ITaskState> run;  // destroyed after the lock: their destructors run user code
    std::shared_ptr<ITaskState> released;
    {
        const RankedLock lock(m_mutex);
        if (IsEmptied()) {
            return nullptr;
        }
        run = m_latestRun.Get();
        if (m_wrapper != awaited) {
            const auto future = m_wrapper->GetFuture();
            const bool isTaken = run == m_wrapper && LatestRun::IsUnderWayElsewhere(run);
            if (future->IsBusy() || future->IsCancelling() || isTaken) {
                return m_wrapper;
            }
        }
        released = std::exchange(m_wrapper, EmptyTaskState());
    }
    if (released != awaited) {
        released->GetFuture()->RequestCancel();  // it will never run: its waiters wait no longer
    }
    return nullptr;
}

void TaskImpl::Wait() {
    std::shared_ptr<ITaskState> awaited = GetWrapper();
    while (awaited && awaited != EmptyTaskState()) {
        awaited->GetFuture()->Wait();
        awaited = EmptyUnlessRunning(awaited);
    }
}

void TaskImpl::Track(const std::weak_ptr<TaskImpl>& self) {
    const RankedLock lock(m_mutex);
    if (!m_tracked) {
        m_tracked = std::make_unique<TrackedTask>(self);
        m_isTracked = true;
    }
}

void TaskImpl::EndRun() {
    std::shared_ptr<ITaskState> run;
    {
        const RankedLock lock(m_mutex);
        run = m_latestRun.Get();
    }
    if (LatestRun::IsUnderWayElsewhere(run)) {
        const auto future = run->GetFuture();
        future->RequestCancel();  // after which the wait is no cancellation point
        if (const auto companion = CompanionOf(future)) {
            companion->Requested();
        }
        future->Wait();
    }
}

}  // namespace Orvane::Internal
