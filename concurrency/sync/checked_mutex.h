#pragma once

#include <atomic>
#include <cstdint>

#include "concurrency/base/condition.h"
#include "concurrency/base/export.h"
#include "concurrency/base/mutex.h"
#include "concurrency/base/ranked_mutex.h"
#include "concurrency/base/time.h"

namespace Orvane {

struct CheckedMutexPeer;

// An exclusive mutex that says in the log when it was waited for suspiciously long, or destroyed while locked.
//
// Threads: any thread may call any operation. Waiters are not served in order.
// Memory: everything before unlock() is visible to the next holder.
// Recursion: none: a second lock() by the holder is reported after 3 s and then waits for ever.
// Cancellation: no cancellation points.
// Errors: none. On purpose: a long wait and misuse are reported, not thrown.
//     unlock() does not check that the caller holds the mutex.
// Lifetime: must outlive every waiter and every unlock(), which touches it when the next holder is in already.
class ORVANE_CONCURRENCY_API checked_mutex {
  public:
    // Free.
    checked_mutex();

    // Reports a mutex that is still locked.
    virtual ~checked_mutex();
    checked_mutex(const checked_mutex&) = delete;
    checked_mutex& operator=(const checked_mutex&) = delete;

    // Blocks until the mutex is held. Reports once when that took 3 s, and goes on waiting.
    void lock();

    // Takes a free mutex, and never waits.
    [[nodiscard]] bool try_lock();

    // Waits until `deadline` (system clock, whose steps it follows) at most; returns whether the mutex is held now. A free
    // mutex is taken even if the deadline has passed.
    [[nodiscard]] bool timed_lock(const TimePoint& deadline);

    // Gives the mutex back and wakes a waiter.
    void unlock();

  private:
    friend struct CheckedMutexPeer;  // of the tests

    // A timed mutex that touches its inner mutex only where a thread waits.
    struct TimedMutex {
        bool TryTake();
        void Take();
        template <typename Clock>
        bool TakeUntil(const typename Clock::time_point& deadline);
        void GiveBack();

        Internal::RankedMutex<Internal::RecursiveMutex, Internal::LockRank::Leaf> mutex;
        Internal::Condition condition;  // notified when the word becomes free and a thread waits
        std::atomic<std::uint32_t> held = 0;  // 0 or all ones
        std::atomic<std::uint32_t> waiters = 0;  // written under mutex
    };

    TimedMutex m_lock;

    // The outcome of the last attempt through this object, for the destructor's report. On purpose written after the
    // lock is free, and cleared by a failed attempt: a diagnostic aid, not an ownership record.
    std::atomic<bool> m_locked = false;
};

}  // namespace Orvane
