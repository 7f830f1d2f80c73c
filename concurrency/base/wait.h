// The one way to wait on a condition with a deadline.
//
// A deadline before 1970, after 2262 or more than 49.7 days away makes the standard library's own timed waits sleep
// for ever, return at once or report a false time-out. Here the remaining time saturates, the sleep is made of
// relative slices, and only the clock that the deadline belongs to decides that it has passed.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "concurrency/base/thread_safety.h"

namespace Orvane::Internal {

inline constexpr std::chrono::hours kLongestSlice{24};

// How long to sleep now on the way to `deadline`: zero once it has passed, at most kLongestSlice.
template <typename Clock>
typename Clock::duration NextSlice(const typename Clock::time_point& deadline) noexcept {
    using Ticks = typename Clock::duration;
    const auto now = Clock::now();
    if (deadline <= now) {
        return Ticks::zero();
    }
    // Unsigned: the distance between the extreme time points does not fit into the signed type.
    const std::uint64_t remaining = static_cast<std::uint64_t>(deadline.time_since_epoch().count()) -
                                    static_cast<std::uint64_t>(now.time_since_epoch().count());
    constexpr std::uint64_t kLongest = std::chrono::duration_cast<Ticks>(kLongestSlice).count();
    return Ticks(static_cast<typename Ticks::rep>(std::min(remaining, kLongest)));
}

// Waits until `ready()` holds or `deadline` has passed; returns whether `ready()` holds. The predicate is tested before
// the first sleep and after every wake-up; a deadline in the past costs one test and no sleep.
template <typename Clock, typename Condition, typename Lock, typename Predicate>
bool WaitUntil(Condition& condition, Lock& lock, const typename Clock::time_point& deadline,
               Predicate ready) ORVANE_NO_THREAD_SAFETY_ANALYSIS {
    while (!ready()) {
        const auto slice = NextSlice<Clock>(deadline);
        if (slice == Clock::duration::zero()) {
            return false;
        }
        condition.wait_for(lock, slice);
    }
    return true;
}

}  // namespace Orvane::Internal
