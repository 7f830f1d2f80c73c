#pragma once

#include <chrono>
#include <memory>

#include "concurrency/base/export.h"
#include "concurrency/base/time.h"

namespace Orvane {

struct FifoMutexPeer;

// An exclusive mutex that serves its waiters strictly in order of arrival.
//
// Threads: every member may be called from any thread; only the owner may call unlock(), which does not check it.
// Recursion: the owner may lock again; each lock needs its own unlock.
// Memory: everything before unlock() is visible to the next owner.
// Cancellation: lock() and the timed locks are cancellation points while they must wait: they throw
//     CancelRequestedException when the caller's task is cancelled. The caller leaves the wait queue, the others keep their
//     places. A free or own mutex is taken without asking.
// Errors: std::bad_alloc from the constructor; std::length_error or std::bad_alloc if the wait queue cannot grow. On
//     purpose: if memory runs out while a thread waits, its place stays in the queue, and the threads behind it are not
//     served until it calls unlock().
// Lifetime: must outlive every owner and every waiter; this is not checked. The next owner may destroy it at once.
class ORVANE_CONCURRENCY_API fifo_mutex {
  public:
    // Free.
    fifo_mutex();
    ~fifo_mutex();
    fifo_mutex(const fifo_mutex&) = delete;
    fifo_mutex& operator=(const fifo_mutex&) = delete;

    // Blocks until the caller owns the mutex.
    void lock();

    // Never waits, and never overtakes a waiter.
    [[nodiscard]] bool try_lock();

    // Waits until `deadline` (system clock, 100 ns ticks) at most. Returns false on time-out, even if the turn came at
    // that very moment.
    [[nodiscard]] bool try_lock_until(const TimePoint& deadline);

    // The same for any clock and duration, measured once, at the call: a deadline of the system clock from then on, which
    // follows its steps.
    template <typename Clock, typename ClockDuration>
    [[nodiscard]] bool try_lock_until(const std::chrono::time_point<Clock, ClockDuration>& deadline) {
        // In floating point: the distance to an extreme time point does not fit into its own type.
        return try_lock_for(Seconds(deadline.time_since_epoch()) - Seconds(Clock::now().time_since_epoch()));
    }
    template <typename Rep, typename Period>
    [[nodiscard]] bool try_lock_for(const std::chrono::duration<Rep, Period>& duration) {
        const auto now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
        if (Seconds(duration) >= Seconds((TimePoint::max)() - now)) {
            return try_lock_until((TimePoint::max)());
        }
        return try_lock_until(duration > duration.zero() ? now + std::chrono::ceil<Duration>(duration) : now);
    }

    // Gives one lock back; the last one hands the mutex to the next waiter.
    void unlock();

  private:
    friend struct FifoMutexPeer;  // of the tests

    using Seconds = std::chrono::duration<long double>;
    class WaitQueue;

    // Shared with a thread that still wakes the waiters when the next owner has already destroyed the mutex.
    const std::shared_ptr<WaitQueue> m_queue;
};

}  // namespace Orvane
