#include "concurrency/base/clock.h"

#include "concurrency/base/windows_api.h"

namespace Orvane::Internal {

namespace {

// 1970-01-01 00:00 UTC in FILETIME ticks, which count from 1601-01-01.
constexpr std::uint64_t kUnixEpochTicks = 116'444'736'000'000'000;

std::int64_t CounterFrequency() noexcept {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    return frequency.QuadPart;
}

}  // namespace

WallClock::time_point WallClock::now() noexcept {
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    const std::uint64_t ticks = (static_cast<std::uint64_t>(now.dwHighDateTime) << 32) | now.dwLowDateTime;
    return time_point(duration(static_cast<std::int64_t>(ticks - kUnixEpochTicks)));
}

MonotonicClock::time_point MonotonicClock::now() noexcept {
    static const std::int64_t frequency = CounterFrequency();
    LARGE_INTEGER counter;
    QueryPerformanceCounter(&counter);
    // Whole seconds and the rest apart: the product of both would overflow after some days.
    const std::int64_t seconds = counter.QuadPart / frequency;
    const std::int64_t rest = counter.QuadPart % frequency;
    return time_point(std::chrono::seconds(seconds) + duration(rest * 1'000'000'000 / frequency));
}

std::uint64_t CoarseClock::Ticks() noexcept {
    return GetTickCount64();
}

}  // namespace Orvane::Internal
