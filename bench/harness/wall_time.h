// The wall clock in ticks of 100 ns: what the library's scheduler and the system's absolute timers go by.
#pragma once

#include <cstdint>

#include "concurrency/base/time.h"
#include "concurrency/base/windows_api.h"

namespace Zarvo::Bench {

// A FILETIME counts its ticks from 1601, a TimePoint from 1970.
constexpr std::int64_t kTicksFrom1601To1970 = 116'444'736'000'000'000;

inline Orvane::TimePoint WallNow() noexcept {
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return Orvane::TimePoint(Orvane::Duration(static_cast<std::int64_t>(ticks) - kTicksFrom1601To1970));
}

inline FILETIME ToFileTime(Orvane::TimePoint time) noexcept {
    const auto ticks = static_cast<std::uint64_t>(time.time_since_epoch().count() + kTicksFrom1601To1970);
    return {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

inline double Microseconds(Orvane::Duration time) {
    return static_cast<double>(time.count()) / 10;
}

}  // namespace Zarvo::Bench
