#include "concurrency/jobs/job_wait.h"

#include <optional>
#include <ranges>
#include <stdexcept>
#include <string>
#include <system_error>

#include "concurrency/base/mutex.h"
#include "concurrency/base/never_destroyed.h"
#include "concurrency/base/report.h"
#include "concurrency/base/thread_time.h"
#include "concurrency/base/utf8.h"
#include "concurrency/base/wait.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/wait_protocol.h"
#include "concurrency/jobs/job_future.h"
#include "concurrency/jobs/job_slot.h"
#include "concurrency/jobs/notifier_scope.h"

namespace Orvane::Internal {

namespace {

constexpr std::chrono::seconds kReportPeriod{30};

constexpr auto kHasNotEnded = L"Waiting for %d s: job [%s] in thread [0x%x] has run for %d s";
constexpr auto kHasNotLeft = L"Waiting for %d s: job [%s] has ended, and thread [0x%x] has not left it for %d s";

struct BlockedTag;

// A thread that waits in this room.
struct BlockedThread : ListHook<BlockedTag> {
    DWORD thread;
    const Awaited* awaited;
    CancellationObject* run;  // that a request can wake; null for a wait that none can
    bool isEndless;  // it has no deadline and needs all
    bool isVisited = false;

    // Whether only what it waits for can end it.
    bool IsStuck() const { return isEndless && (run == nullptr || !run->IsRequested()); }
};

struct BlockedThreads {
    RankedMutex<RecursiveMutex, LockRank::JobWaits> mutex;
    IntrusiveList<BlockedThread, BlockedTag> threads ORVANE_GUARDED_BY(mutex);
};

BlockedThreads& Blocked() noexcept {
    static NeverDestroyed<BlockedThreads> blocked;
    return *blocked;
}

using Names = std::vector<std::shared_ptr<const JobName>>;

BlockedThread* FindBlocked(BlockedThreads& blocked, DWORD thread) ORVANE_REQUIRES(blocked.mutex) {
    for (BlockedThread* next = blocked.threads.Front(); next != nullptr; next = blocked.threads.Next(*next)) {
        if (next->thread == thread) {
            return next;
        }
    }
    return nullptr;
}

// Whether what `from` needs waits, through any number of other waits, for `thread`. Fills in the names of the ring, the last
// one first. Calls itself at most once for each blocked thread.
// NOLINTNEXTLINE(misc-no-recursion)
bool LeadsTo(BlockedThreads& blocked, const Awaited& from, DWORD thread, Names& ring) ORVANE_REQUIRES(blocked.mutex) {
    std::vector<RunningJob> running;
    from.CollectRunning(running);
    for (const RunningJob& job : running) {
        BlockedThread* const next = job.thread == thread ? nullptr : FindBlocked(blocked, job.thread);
        if (next != nullptr && (!next->IsStuck() || next->isVisited)) {
            continue;
        }
        if (next != nullptr) {
            next->isVisited = true;
        }
        if (job.thread == thread || (next != nullptr && LeadsTo(blocked, *next->awaited, thread, ring))) {
            ring.push_back(job.name);
            return true;
        }
    }
    return false;
}

std::wstring Join(const Names& ring) {
    std::wstring text;
    for (const auto& name : ring | std::views::reverse) {
        text += name->text + L" -> ";
    }
    return ring.empty() ? text : text + ring.back()->text;
}

// Puts the calling thread among the blocked ones for a scope. Two waits that would close a ring come one after the other: the
// second one sees the first.
class BlockedScope {
  public:
    BlockedScope(const Awaited& awaited, CancellationObject* run, bool isEndless) {
        m_self.run = run;
        m_self.thread = ::GetCurrentThreadId();
        m_self.awaited = &awaited;
        m_self.isEndless = isEndless;
        BlockedThreads& blocked = Blocked();
        const RankedLock lock(blocked.mutex);
        if (isEndless) {
            for (BlockedThread* next = blocked.threads.Front(); next != nullptr; next = blocked.threads.Next(*next)) {
                next->isVisited = false;
            }
            if (LeadsTo(blocked, awaited, m_self.thread, m_ring)) {
                return;
            }
        }
        blocked.threads.PushBack(m_self);
    }
    ~BlockedScope() {
        const RankedLock lock(Blocked().mutex);
        m_self.Unlink();
    }
    BlockedScope(const BlockedScope&) = delete;
    BlockedScope& operator=(const BlockedScope&) = delete;

    const Names& Ring() const noexcept { return m_ring; }

  private:
    BlockedThread m_self;
    Names m_ring;
};

class AttachScope {
  public:
    AttachScope(Awaited& awaited, JobWaiter& waiter) : m_awaited(awaited) { awaited.Attach(waiter); }
    ~AttachScope() { m_awaited.Detach(); }
    AttachScope(const AttachScope&) = delete;
    AttachScope& operator=(const AttachScope&) = delete;

  private:
    Awaited& m_awaited;
};

// The innermost job that is waited for: the end of the way from wait to wait.
std::optional<RunningJob> FindInnermost(const Awaited& awaited) {
    BlockedThreads& blocked = Blocked();
    const RankedLock lock(blocked.mutex);
    std::optional<RunningJob> innermost;
    const Awaited* next = &awaited;
    for (int depth = 0; next != nullptr && depth < 1000; ++depth) {
        std::vector<RunningJob> running;
        next->CollectRunning(running);
        if (running.empty()) {
            break;
        }
        innermost = running.front();
        const BlockedThread* const thread = FindBlocked(blocked, innermost->thread);
        next = thread != nullptr ? thread->awaited : nullptr;
    }
    return innermost;
}

void ReportLate(const Awaited& awaited, MonotonicClock::time_point since) noexcept {
    try {
        const auto now = ThreadNow();
        const auto seconds = [now](MonotonicClock::time_point then) {
            return static_cast<int>(std::chrono::duration_cast<std::chrono::seconds>(now - then).count());
        };
        if (const auto job = FindInnermost(awaited)) {
            ReportNoThrow(4, 16, L"Concurrency.Job", job->hasEnded ? kHasNotLeft : kHasNotEnded, seconds(since),
                          job->name->Path().c_str(), static_cast<unsigned>(job->thread), seconds(job->since));
        } else {
            ReportNoThrow(4, 16, L"Concurrency.Job", L"Waiting for %d s: no awaited job has begun", seconds(since));
        }
    } catch (...) {
        // On purpose nothing: a report more or less.
    }
}

// Sleeps until it is over, requested or late. `isRequested` is asked after each wake-up.
template <typename IsRequested>
JobWaitResult SleepUntilOver(Awaited& awaited, JobWaiter& waiter, MonotonicClock::time_point deadline,
                             IsRequested isRequested) {
    const AttachScope attached(awaited, waiter);
    const auto since = ThreadNow();
    // Not in virtual time, which would pass from report to report and never find that nothing can end the wait.
    auto nextReport = ThreadTime::OfThisThread() != nullptr ? kNoDeadline : since + kReportPeriod;
    for (;;) {
        const std::uint32_t seen = waiter.Signals();
        if (isRequested()) {
            return JobWaitResult::Cancelled;
        }
        if (awaited.IsOver()) {
            return JobWaitResult::Over;
        }
        const auto now = ThreadNow();
        if (now >= deadline) {
            return JobWaitResult::TimedOut;
        }
        if (now >= nextReport) {
            ReportLate(awaited, since);
            nextReport += kReportPeriod;
        }
        waiter.Sleep(seen, (std::min)(deadline, nextReport));
    }
}

// Gives the slot of the waiting job back for a scope.
class SlotScope {
  public:
    explicit SlotScope(const Awaited& awaited) : m_slot(JobSlot::OfThisThread()) {
        if (m_slot != nullptr && awaited.IsOfGroup(m_slot->Group())) {
            m_slot->GiveBack();
            m_isGiven = true;
        }
    }
    SlotScope(const SlotScope&) = delete;
    SlotScope& operator=(const SlotScope&) = delete;

    bool IsGiven() const noexcept { return m_isGiven; }
    JobSlot& Slot() const noexcept { return *m_slot; }

  private:
    JobSlot* const m_slot;
    bool m_isGiven = false;
};

}  // namespace

void JobWaiter::Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) {
    lock.unlock();
    const RankedLock own(m_mutex);
    std::atomic_ref(requested).store(true);
    m_isRequested = true;
    m_condition.notify_all();
}

void JobWaiter::Signal() noexcept {
    {
        const RankedLock own(m_mutex);
        ++m_signals;
    }
    m_condition.notify_all();  // without the mutex, which the woken thread takes first
}

std::uint32_t JobWaiter::Signals() noexcept {
    const RankedLock own(m_mutex);
    return m_signals;
}

void JobWaiter::Sleep(std::uint32_t seen, MonotonicClock::time_point deadline) {
    if (ThreadTime* const time = ThreadTime::OfThisThread()) {
        time->Block(
            [this, seen] {
                const RankedLock own(m_mutex);
                return m_signals != seen || m_isRequested;
            },
            deadline);
        return;
    }
    RankedLock own(m_mutex);
    WaitUntil<MonotonicClock>(m_condition, own, deadline,
                              [this, seen]() ORVANE_REQUIRES(m_mutex) { return m_signals != seen || m_isRequested; });
}

void SignalAll(const JobListeners& listeners) noexcept {
    for (JobListener* next = listeners.Front(); next != nullptr; next = listeners.Next(*next)) {
        next->waiter->Signal();
    }
}

MonotonicClock::time_point DeadlineAfter(std::chrono::nanoseconds timeout) noexcept {
    const auto now = ThreadNow();
    return timeout >= kNoDeadline - now ? kNoDeadline : now + timeout;
}

std::wstring AwaitedBy(DWORD thread) {
    std::vector<RunningJob> running;
    BlockedThreads& blocked = Blocked();
    {
        const RankedLock lock(blocked.mutex);
        if (const BlockedThread* const waiter = FindBlocked(blocked, thread)) {
            waiter->awaited->CollectRunning(running);
        }
    }
    if (running.empty()) {
        return L"jobs that have not begun";
    }
    const std::wstring first = running.front().name->Path();
    return running.size() == 1 ? first : first + L" and " + std::to_wstring(running.size() - 1) + L" more";
}

JobWaitResult WaitAsCancellationPoint(Awaited& awaited, MonotonicClock::time_point deadline) {
    const WaitingRun run = CurrentRun();
    const auto isRequested = [&run] { return run.IsRequested(); };
    if (isRequested()) {
        return JobWaitResult::Cancelled;
    }
    if (awaited.IsOver()) {
        return JobWaitResult::Over;
    }
    if (deadline <= ThreadNow()) {
        return JobWaitResult::TimedOut;
    }
    const BlockedScope blocked(awaited, run.Get().get(), deadline == kNoDeadline && awaited.NeedsAll());
    if (!blocked.Ring().empty()) {
        throw std::system_error(std::make_error_code(std::errc::resource_deadlock_would_occur),
                                "a ring of waiting jobs: " + ToUtf8(Join(blocked.Ring())));
    }
    if (!run.Get()) {
        JobWaiter waiter;
        return SleepUntilOver(awaited, waiter, deadline, isRequested);
    }
    // Shared: a request may still be on its way to it when the wait is over.
    const auto waiter = std::make_shared<JobWaiter>();
    const WaitingRun::Note note(run, WaitKind::Jobs, nullptr);
    const NotifierScope notifier(run.Get(), waiter);
    const SlotScope slot(awaited);
    const JobWaitResult result = SleepUntilOver(awaited, *waiter, deadline, isRequested);
    if (slot.IsGiven()) {
        const WaitingRun::Note slotNote(run, WaitKind::Place, nullptr);
        if (!slot.Slot().TakeAgain(*waiter, *run.Get())) {
            return JobWaitResult::Cancelled;
        }
    }
    return isRequested() ? JobWaitResult::Cancelled : result;
}

JobWaitResult WaitToTheEnd(Awaited& awaited) noexcept {
    if (awaited.IsOver()) {
        return JobWaitResult::Over;
    }
    std::optional<BlockedScope> blocked;
    try {
        blocked.emplace(awaited, nullptr, true);
        if (!blocked->Ring().empty()) {
            ReportNoThrow(4, 16, L"Concurrency.Job", L"A dropped job is not waited for, it would wait for itself: %s",
                          Join(blocked->Ring()).c_str());
            return JobWaitResult::Ring;
        }
    } catch (const std::bad_alloc&) {
        // On purpose: without memory for the look at the ring, wait as if there were none.
    }
    const WaitingRun run = CurrentRun();
    const WaitingRun::Note note(run, WaitKind::DroppedJobs, nullptr);
    JobWaiter waiter;
    const SlotScope slot(awaited);
    JobWaitResult result = JobWaitResult::Ring;
    try {
        result = SleepUntilOver(awaited, waiter, kNoDeadline, [] { return false; });
    } catch (const std::logic_error&) {
        // On purpose: in virtual time, nothing can end it.
    }
    if (slot.IsGiven()) {
        slot.Slot().TakeAgainAtOnce();
    }
    return result;
}

}  // namespace Orvane::Internal
