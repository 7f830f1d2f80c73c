// The processor's time stamp counter: for durations that are only counted, where each run would pay for a dearer clock.
//
// It runs at one rate, whatever the processor does. Where the counters of two processors differ, a duration is off by that;
// who subtracts takes a negative one for 0.
//
// Threads: any. Errors: none.
#pragma once

#include <chrono>
#include <cstdint>

namespace Orvane::Internal {

struct TickCounter {
    static std::uint64_t Now() noexcept;

    // From the first to the second; 0 if they stand the other way round.
    static constexpr std::uint64_t Between(std::uint64_t from, std::uint64_t to) noexcept {
        return to > from ? to - from : 0;
    }

    // The first call takes some milliseconds: it compares the counter with MonotonicClock.
    static double TicksPerNanosecond();

    static std::chrono::nanoseconds ToTime(double ticks) {
        return std::chrono::nanoseconds(static_cast<std::int64_t>(ticks / TicksPerNanosecond()));
    }
};

}  // namespace Orvane::Internal
