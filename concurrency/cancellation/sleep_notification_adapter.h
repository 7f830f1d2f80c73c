#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>

#include "concurrency/base/export.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/win32.h"
#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/wait_protocol.h"

namespace Orvane::Internal {

// A sleep that a cancellation request ends.
//
// Threads: CreateInstance() and the sleeps on the task's thread; Notify() on the thread that cancels.
// Cancellation: a sleep is a cancellation point, before and after it waits.
// Errors: std::bad_alloc, std::system_error.
// Memory: everything before the request is visible after a sleep that it has ended.
// Lifetime: keep the returned pointer for as long as it sleeps.
class ORVANE_CONCURRENCY_API SleepNotificationAdapter : public AbstractCancelNotifier {
  public:
    // A SleepNotificationAdapter, registered with the calling thread's run, if there is one, in place of any other
    // notifier.
    [[nodiscard]] static std::shared_ptr<AbstractCancelNotifier> CreateInstance();

    ~SleepNotificationAdapter() override;

    // Sets the flag and ends the sleep.
    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override;

    // Sleeps once: at most ten days, without limit for INFINITE, not at all for 0. Any wake-up ends it early.
    //
    // Units: milliseconds.
    void Sleep(DWORD milliseconds);

    // Not for callers.
    //
    // The same for a caller that throws itself. Returns Done or Cancelled.
    WaitResult SleepUnlessCancelled(DWORD milliseconds);

    // One sleep of a run, with an adapter of its own.
    static WaitResult Sleep(const WaitingRun& run, DWORD milliseconds, WaitKind kind);

  private:
    using Mutex = RankedMutex<std::recursive_mutex, LockRank::Waiter>;
    using Lock = RankedLock<Mutex>;

    SleepNotificationAdapter();

    WaitResult SleepIn(const WaitingRun& run, Lock& lock, DWORD milliseconds, WaitKind kind);

    // Taken before the cancellation object's, never while holding that.
    Mutex m_mutex;
    std::condition_variable_any m_condition;
};

}  // namespace Orvane::Internal
