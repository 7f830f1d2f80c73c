#include "concurrency/tasks/future_state.h"

#include <chrono>
#include <new>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/last_words.h"
#include "concurrency/base/report.h"
#include "concurrency/base/wait.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task_slot.h"
#include "concurrency/cancellation/run.h"
#include "concurrency/cancellation/time_limit_exceptions.h"
#include "concurrency/cancellation/waiting_run.h"
#include "concurrency/tasks/run_counts.h"

namespace Orvane::Internal {

namespace {

// How long a run may take to confirm its cancellation while a thread waits for it.
constexpr std::chrono::seconds kConfirmGrace{30};

// CurrentRun(). Here once more because that one is built on futures.
WaitingRun OwnRun() {
    const auto own = CurrentFuture();
    return WaitingRun(own ? own->GetCancellationObject() : nullptr);
}

void LeaveIfRequested(const WaitingRun& run) {
    if (run.IsRequested()) {
        ThrowCancelRequested();
    }
}

// When the run has ended. A request may hold the object a while longer, and the notifier of the last wait is of the code that
// waited: that code may be unloaded by then.
void Forget(const std::shared_ptr<CancellationObject>& run) {
    if (run) {
        run->RegisterNotifier({});
    }
}

// Before the state becomes final: who waits for the run finds it counted.
void Count(RunTitle* title, const std::shared_ptr<CancellationObject>& run, RunEnd end) noexcept {
    if (const Run* const ended = Run::Of(run)) {
        CountRun(title, *ended, end);
    }
}

// Before the request reaches the run: who asks for the time finds one.
void NoteRequest(CancellationObject& object) noexcept {
    auto& run = static_cast<Run&>(object);
    if (run.askedAt.load() == 0) {
        run.askedAt = CoarseClock::Ticks();
        run.askedTick = TickCounter::Now();
    }
}

std::shared_ptr<Run> RunOf(const std::shared_ptr<FutureState>& future) {
    auto object = future ? future->GetCancellationObject() : nullptr;
    return Run::Of(object) != nullptr ? std::static_pointer_cast<Run>(std::move(object)) : nullptr;
}

// A request for a run reaches all that is nested in it. So the outermost run that was asked is the one that must be left.
std::shared_ptr<Run> OutermostAsked() {
    std::shared_ptr<Run> asked;
    for (auto run = RunOf(CurrentFuture()); run && run->IsRequested(); run = RunOf(run->outer.lock())) {
        asked = run;
    }
    return asked;
}

void ThrowTimeLimit() {
    const auto asked = OutermostAsked();
    if (asked && asked->limit && asked->isNested) {
        throw TimeLimitException(asked->limit);
    }
    if (asked && asked->limit) {
        throw TimeLimitRequestException(asked->limit);
    }
}

bool RunsOnThisThread(const std::shared_ptr<CancellationObject>& run) {
    return run && run->GetThreadId() == ::GetCurrentThreadId();
}

// The words name the run's thread, not the calling one: that is where to look.
[[noreturn]] void EndProcessOfDeafRun(const FutureState& future, CancellationObject& run) {
    LastWords words("a task has not answered its cancellation for 30 s");
    future.NameRun(words);
    words.AddThread(run.GetThreadId());
    words.EndProcess();
}

}  // namespace

void ThrowCancelRequested() {
    ThrowTimeLimit();
    throw CancelRequestedException();
}

FutureState::FutureState() = default;

FutureState::~FutureState() = default;

bool FutureState::Start() {
    const RankedLock lock(m_mutex);
    if (m_state == NotStarted) {
        m_cancellationObject.store(Run::Make());
        m_state = Busy;
    }
    return m_state != Cancelled;
}

void FutureState::SetException(const CloneableException& exception) {
    std::shared_ptr<CloneableException> replaced;
    std::shared_ptr<CancellationObject> run;
    {
        const RankedLock lock(m_mutex);
        if (m_state != Busy && m_state != Cancelling) {
            return;
        }
        try {
            replaced = std::exchange(m_exception, exception.Clone());
        } catch (const std::bad_alloc&) {
            // On purpose: the run has failed all the same. HandleErrors() says what is known, that memory ran out.
        }
        run = m_cancellationObject.exchange(nullptr);
        Count(m_runTitle, run, RunEnd::Failed);
        m_state = Error;
    }
    m_condition.notify_all();
    Forget(run);
}

void FutureState::Complete() {
    std::shared_ptr<CancellationObject> run;
    {
        const RankedLock lock(m_mutex);
        if (m_state != Busy && m_state != Cancelling) {
            return;
        }
        run = m_cancellationObject.exchange(nullptr);
        Count(m_runTitle, run, RunEnd::Done);
        m_state = Normal;
    }
    m_condition.notify_all();
    Forget(run);
}

void FutureState::ConfirmCancel() {
    std::shared_ptr<CancellationObject> run;
    {
        const RankedLock lock(m_mutex);
        if (m_state != Cancelling) {
            return;
        }
        run = m_cancellationObject.exchange(nullptr);
        Count(m_runTitle, run, RunEnd::Cancelled);
        m_state = Cancelled;
    }
    m_condition.notify_all();
    Forget(run);
}

void FutureState::RequestCancel() {
    // Two futures may pass requests on to each other, from two threads, each holding its own mutex. The thread that
    // comes second finds the state set here and turns back, instead of waiting for the other. It turns back with the
    // exception if it is the run's own: only a run that is under way has a cancellation object.
    if (m_state > Busy) {
        if (RunsOnThisThread(m_cancellationObject.load())) {
            throw CancelRequestedException();
        }
        return;
    }
    RankedLock lock(m_mutex);
    if (m_state == NotStarted) {
        m_state = Cancelled;
        lock.unlock();
        m_condition.notify_all();
        return;
    }
    if (m_state != Busy && m_state != Cancelling) {
        return;
    }
    const std::shared_ptr<CancellationObject> run = m_cancellationObject.load();
    const bool passedOn = m_state == Cancelling;
    m_state = Cancelling;
    NoteRequest(*run);
    if (RunsOnThisThread(run)) {
        throw CancelRequestedException();
    }
    if (!passedOn) {
        run->RequestCancel();
    }
}

void FutureState::RequestCancelQuietly(const std::shared_ptr<const TimeLimitDetails>& limit) {
    RankedLock lock(m_mutex);
    if (m_state == NotStarted) {
        m_state = Cancelled;
        lock.unlock();
        m_condition.notify_all();
    } else if (m_state == Busy) {
        m_state = Cancelling;
        const auto run = std::static_pointer_cast<Run>(m_cancellationObject.load());
        run->limit = limit;
        NoteRequest(*run);
        run->RequestCancel();
    }
}

void FutureState::StartNestedIn(const std::shared_ptr<FutureState>& outer) {
    static_cast<void>(Start());
    Run& run = static_cast<Run&>(*m_cancellationObject.load());
    run.isNested = true;
    run.outer = outer;
    if (const auto whole = RunOf(outer)) {
        run.note = whole->note;
    }
}

void FutureState::EndNested() {
    // Not left to the last reference to the run, which may go under a lock.
    static_cast<Run&>(*m_cancellationObject.load()).companion.store(nullptr);
    Complete();
}

std::shared_ptr<FutureState> FutureState::TaskOf(std::shared_ptr<FutureState> future) {
    for (auto run = RunOf(future); run && run->isNested; run = RunOf(future)) {
        future = run->outer.lock();
    }
    return future;
}

bool FutureState::IsBusy() const {
    const RankedLock lock(m_mutex);
    return m_state == Busy;
}

bool FutureState::IsReady() const {
    const RankedLock lock(m_mutex);
    return m_state > Busy;
}

bool FutureState::IsNormal() const {
    const RankedLock lock(m_mutex);
    return m_state == Normal;
}

bool FutureState::IsCancelling() const {
    const RankedLock lock(m_mutex);
    return m_state == Cancelling;
}

bool FutureState::IsCancelled() const {
    const RankedLock lock(m_mutex);
    return m_state == Cancelled;
}

// Needs m_mutex, or a look again under it.
bool FutureState::HasEnded() const {
    return m_state > Busy && m_state != Cancelling;
}

void FutureState::Wait() {
    RankedLock lock(m_mutex);
    if (!m_attachedToTask || HasEnded()) {
        return;
    }
    const WaitingRun own = OwnRun();
    const WaitingRun::Note note(own, WaitKind::Task, this);
    if (m_state == Cancelling) {
        // On purpose: not a cancellation point. The run has been told; the caller must see it end.
        const auto deadline = MonotonicClock::now() + kConfirmGrace;
        if (!WaitUntil<MonotonicClock>(m_condition, lock, deadline, [this] { return m_state != Cancelling; })) {
            ReportNoThrow(8, 16, L"FutureState", L"Thread did not respond to cancellation");
            EndProcessOfDeafRun(*this, *m_cancellationObject.load());
        }
        return;
    }
    LeaveIfRequested(own);
    // On purpose: a run that becomes Cancelling meanwhile keeps the caller waiting, without the limit above.
    m_condition.wait(lock, [this] { return HasEnded(); });
    LeaveIfRequested(own);
}

bool FutureState::TimedWait(const TimePoint& deadline) {
    RankedLock lock(m_mutex);
    if (!m_attachedToTask || HasEnded()) {
        return m_attachedToTask;
    }
    const WaitingRun own = OwnRun();
    const WaitingRun::Note note(own, WaitKind::Task, this);
    if (m_state == Cancelling) {
        return WaitUntil<WallClock>(m_condition, lock, deadline, [this] { return m_state != Cancelling; });
    }
    LeaveIfRequested(own);
    const bool ended = WaitUntil<WallClock>(m_condition, lock, deadline, [this] { return HasEnded(); });
    LeaveIfRequested(own);
    return ended;
}

std::shared_ptr<CancellationObject> FutureState::GetCancellationObject() {
    return m_cancellationObject.load();
}

std::shared_ptr<RunCompanion> FutureState::GetCompanion() const {
    const auto run = m_cancellationObject.load();
    return run ? static_cast<Run&>(*run).companion.load() : nullptr;
}

std::shared_ptr<RunCompanion> FutureState::InstallCompanion(std::shared_ptr<RunCompanion> fresh) {
    const auto run = m_cancellationObject.load();
    if (!run) {
        return nullptr;
    }
    std::shared_ptr<RunCompanion> installed;
    if (static_cast<Run&>(*run).companion.compare_exchange_strong(installed, fresh)) {
        installed = std::move(fresh);
    }
    return installed;
}

void FutureState::TakeBackRunTitle() {
    const RankedLock lock(m_mutex);
    m_runTitle = nullptr;
}

void FutureState::NameRun(LastWords& words) const noexcept {
    const RunTitle* const title = m_runTitle;
    words.AddTask(title != nullptr ? title->name.data() : nullptr);
}

void FutureState::HandleErrors() {
    switch (m_state) {
        case Error:
            if (!m_exception) {
                throw std::bad_alloc();
            }
            m_exception->Rethrow();
            break;
        case Cancelling:
        case Cancelled: throw CancelledException();
        default: break;
    }
}

void FutureState::MarkAsAttachedToTask() {
    const RankedLock lock(m_mutex);
    m_attachedToTask = true;
}

}  // namespace Orvane::Internal
