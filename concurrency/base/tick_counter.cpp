#include "concurrency/base/tick_counter.h"

#ifdef _MSC_VER
#include <intrin.h>
#else
#include <x86intrin.h>
#endif

#include <limits>

#include "concurrency/base/clock.h"

namespace Orvane::Internal {

namespace {

struct Moment {
    std::uint64_t ticks;
    MonotonicClock::time_point time;
};

// Both clocks at one moment: of some readings the one that was interrupted least.
Moment BothClocks() noexcept {
    Moment best{};
    std::uint64_t shortest = (std::numeric_limits<std::uint64_t>::max)();
    for (int i = 0; i < 16; ++i) {
        const std::uint64_t before = TickCounter::Now();
        const auto time = MonotonicClock::now();
        const std::uint64_t took = TickCounter::Between(before, TickCounter::Now());
        if (took < shortest) {
            shortest = took;
            best = {before + took / 2, time};
        }
    }
    return best;
}

double Measure() noexcept {
    constexpr std::chrono::milliseconds kLongEnough{4};
    const Moment first = BothClocks();
    Moment second = first;
    while (second.time - first.time < kLongEnough) {
        second = BothClocks();
    }
    const auto ticks = static_cast<double>(TickCounter::Between(first.ticks, second.ticks));
    const double rate = ticks / static_cast<double>((second.time - first.time).count());
    return rate > 0 ? rate : 1;  // a counter that was set back meanwhile
}

}  // namespace

std::uint64_t TickCounter::Now() noexcept {
    return __rdtsc();
}

double TickCounter::TicksPerNanosecond() {
    static const double rate = Measure();
    return rate;
}

}  // namespace Orvane::Internal
