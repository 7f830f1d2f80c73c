// The one wait of this room: until jobs or groups have ended, a deadline, or a request for the run that waits.
//
// The waiter attaches itself to what it waits for, then looks whether that is over, then sleeps until it is signalled. Who
// ends a job first publishes the end and signals second. So either the waiter sees the end, or the signal finds it. A request
// reaches it as it reaches every cancellable wait (cancellation/wait_protocol.h): by a notifier. The run's notifier before it
// is put back at the end.
//
// No wait ends the process. Every 30 s a log line names the innermost job that does not end.
//
// Threads: as each function says.
// Locks: none may be held by a caller who waits.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "concurrency/base/clock.h"
#include "concurrency/base/condition.h"
#include "concurrency/base/intrusive_list.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/win32.h"
#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/jobs/job_name.h"

namespace Orvane::Internal {

class JobWaiter : public AbstractCancelNotifier {
  public:
    JobWaiter() = default;
    ~JobWaiter() override = default;
    JobWaiter(const JobWaiter&) = delete;
    JobWaiter& operator=(const JobWaiter&) = delete;

    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override;

    // By the thread that ends what is waited for, while it keeps the waiter from detaching itself.
    void Signal() noexcept;

    std::uint32_t Signals() noexcept;

    // Sleeps until there are other signals than `seen`, or a request, or the deadline.
    void Sleep(std::uint32_t seen, MonotonicClock::time_point deadline);

  private:
    RankedMutex<RecursiveMutex, LockRank::Waiter> m_mutex;
    Condition m_condition;
    std::uint32_t m_signals ORVANE_GUARDED_BY(m_mutex) = 0;
    bool m_isRequested ORVANE_GUARDED_BY(m_mutex) = false;
};

struct ListenerTag;

// A waiter in the list of one job or group, whose lock guards it.
struct JobListener : ListHook<ListenerTag> {
    JobWaiter* waiter = nullptr;
};

using JobListeners = IntrusiveList<JobListener, ListenerTag>;

// Needs the lock that guards the list.
void SignalAll(const JobListeners& listeners) noexcept;

// A job that a thread runs now, or has ended and not left yet.
struct RunningJob {
    DWORD thread = 0;
    std::shared_ptr<const JobName> name;
    MonotonicClock::time_point since;
    bool hasEnded = false;
};

// What one wait waits for. Lives on the waiting thread's stack.
class Awaited {
  public:
    Awaited() = default;
    Awaited(const Awaited&) = delete;
    Awaited& operator=(const Awaited&) = delete;

    virtual bool IsOver() const noexcept = 0;
    virtual void Attach(JobWaiter& waiter) noexcept = 0;
    virtual void Detach() noexcept = 0;

    // Those that run now of what the wait needs. Errors: std::bad_alloc.
    virtual void CollectRunning(std::vector<RunningJob>& running) const = 0;

    // Whether the end of every one of them is needed: only such waits can close a ring.
    virtual bool NeedsAll() const noexcept { return true; }

    // The slot of the waiting job in its group, if it waits for one of its own group: given back for the wait.
    virtual bool IsOfGroup(const void* group) const noexcept = 0;

  protected:
    virtual ~Awaited() = default;
};

enum class JobWaitResult { Over, TimedOut, Cancelled, Ring };

// A cancellation point of the calling thread's run: tested before and after. Cancelled: the caller throws.
//
// Errors: std::system_error (resource_deadlock_would_occur) with the names of the ring, if the wait has no deadline and would
//     close a ring of waiting jobs; std::bad_alloc.
JobWaitResult WaitAsCancellationPoint(Awaited& awaited, MonotonicClock::time_point deadline);

// For destructors: no cancellation point, no deadline, no memory that it cannot do without. Returns Over, or Ring if the wait
// would close one.
JobWaitResult WaitToTheEnd(Awaited& awaited) noexcept;

// What a thread waits for in this room, as in "Import > Fetch 17". Errors: std::bad_alloc, std::system_error.
std::wstring AwaitedBy(DWORD thread);

inline constexpr MonotonicClock::time_point kNoDeadline = (MonotonicClock::time_point::max)();

// `timeout` from now, or no deadline if that is beyond time.
MonotonicClock::time_point DeadlineAfter(std::chrono::nanoseconds timeout) noexcept;

}  // namespace Orvane::Internal
