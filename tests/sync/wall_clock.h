// The wall clock, read as the library reads it.
#pragma once

#include <chrono>
#include <cstdint>
#include <vector>

#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"

namespace Zarvo::Test {

inline Orvane::TimePoint WallClockNow() {
    constexpr std::int64_t kTicksFrom1601To1970 = 116'444'736'000'000'000;
    FILETIME now;
    ::GetSystemTimePreciseAsFileTime(&now);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return Orvane::TimePoint(Orvane::Duration(static_cast<std::int64_t>(ticks) - kTicksFrom1601To1970));
}

// Time points that have passed, each in its own way.
inline std::vector<Orvane::TimePoint> PastTimePoints() {
    using namespace std::chrono_literals;
    return {WallClockNow() - 1ms, WallClockNow(), Orvane::TimePoint(), Orvane::TimePoint(-24h),
            Orvane::TimePoint::min()};
}

}  // namespace Zarvo::Test
