// Clocks and sleeps, in virtual time.

#include <cstdint>

#include <pthread.h>
#include <time.h>

#include "tests/schedules/controller/controller.h"
#include "tests/schedules/controller/posix.h"

namespace Schedules {

namespace {

constexpr std::int64_t kNanosecondsOfSecond = 1'000'000'000;

// What the clocks say at the begin of a schedule.
constexpr std::int64_t kWallClock = std::int64_t{1'700'000'000} * kNanosecondsOfSecond;
constexpr std::int64_t kMonotonicClock = std::int64_t{100'000} * kNanosecondsOfSecond;

std::int64_t Base(clockid_t clock) noexcept {
    return clock == CLOCK_REALTIME ? kWallClock : kMonotonicClock;
}

std::int64_t InNanoseconds(const timespec& time) noexcept {
    if (time.tv_sec > kNever / kNanosecondsOfSecond - 1) {
        return kNever;
    }
    return time.tv_sec * kNanosecondsOfSecond + time.tv_nsec;
}

void SleepUntil(std::int64_t deadline, const void* where) {
    Block({"sleeps", [](const void*) { return false; }, nullptr, deadline}, where);
}

}  // namespace

std::int64_t Deadline(clockid_t clock, const timespec& time) noexcept {
    const std::int64_t moment = InNanoseconds(time);
    return moment == kNever ? kNever : moment - Base(clock);
}

}  // namespace Schedules

using namespace Schedules;

extern "C" {

int clock_gettime(clockid_t clock, timespec* time) {
    static const auto get = System<decltype(clock_gettime)>("clock_gettime");
    if (!IsControlled()) {
        return get(clock, time);
    }
    const std::int64_t now = Base(clock) + NowAfterReading();
    *time = {now / kNanosecondsOfSecond, now % kNanosecondsOfSecond};
    return 0;
}

int nanosleep(const timespec* duration, timespec*) {
    SleepUntil(Now() + InNanoseconds(*duration), WHERE);
    return 0;
}

int clock_nanosleep(clockid_t clock, int flags, const timespec* time, timespec*) {
    SleepUntil((flags & TIMER_ABSTIME) != 0 ? Deadline(clock, *time) : Now() + InNanoseconds(*time), WHERE);
    return 0;
}

// TickCounter::Now(). What the library counts with it must be the same in every repetition.
std::uint64_t __wrap__ZN6Orvane8Internal11TickCounter3NowEv() {
    return static_cast<std::uint64_t>(Now());
}
}
