// The time-outs and deadlines of the waits in this room. Not for callers.
#pragma once

#include <chrono>

#include "concurrency/jobs/job_ref.h"

namespace Orvane::Internal {

// `duration` in nanoseconds; what does not fit becomes the nearest.
template <typename Rep, typename Period>
std::chrono::nanoseconds ToNanoseconds(const std::chrono::duration<Rep, Period>& duration) {
    using Seconds = std::chrono::duration<long double>;
    using Nanoseconds = std::chrono::nanoseconds;
    if (Seconds(duration) >= Seconds((Nanoseconds::max)())) {
        return (Nanoseconds::max)();
    }
    if (!(Seconds(duration) > Seconds((Nanoseconds::min)()))) {
        return (Nanoseconds::min)();
    }
    return std::chrono::ceil<Nanoseconds>(duration);
}

// Waits in slices, because only the deadline's own clock decides that it has come. `waitFor` returns whether it is over.
template <typename Clock, typename ClockDuration, typename WaitFor>
bool WaitUntilTime(const std::chrono::time_point<Clock, ClockDuration>& deadline, WaitFor waitFor) {
    using Seconds = std::chrono::duration<long double>;
    constexpr std::chrono::seconds kLongestSlice{1};
    if (IsInVirtualTime()) {
        return waitFor(ToNanoseconds(deadline - Clock::now()));  // that clock stands still meanwhile
    }
    for (;;) {
        const auto now = Clock::now();
        // A far deadline may be beyond what the clock's own units can say: it is compared in floating point.
        const Seconds left = Seconds(deadline.time_since_epoch()) - Seconds(now.time_since_epoch());
        if (left < -Seconds(kLongestSlice) || (left <= Seconds(kLongestSlice) && now >= deadline)) {
            return waitFor(std::chrono::nanoseconds::zero());
        }
        const bool isFar = left > Seconds(kLongestSlice);
        if (waitFor(isFar ? std::chrono::nanoseconds(kLongestSlice) : ToNanoseconds(deadline - now))) {
            return true;
        }
    }
}

}  // namespace Orvane::Internal
