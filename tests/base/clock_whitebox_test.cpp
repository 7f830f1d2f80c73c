#include "concurrency/base/clock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "tests/support/import_patch.h"
#include "tests/support/stopwatch.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

static_assert(std::chrono::is_clock_v<WallClock>);
static_assert(std::chrono::is_clock_v<MonotonicClock>);
static_assert(!WallClock::is_steady);
static_assert(MonotonicClock::is_steady);
static_assert(noexcept(WallClock::now()) && noexcept(MonotonicClock::now()));

std::uint64_t g_fileTime = 0;
std::int64_t g_counter = 0;

void WINAPI TellFileTime(LPFILETIME time) {
    time->dwLowDateTime = static_cast<DWORD>(g_fileTime);
    time->dwHighDateTime = static_cast<DWORD>(g_fileTime >> 32);
}

BOOL WINAPI TellCounter(LARGE_INTEGER* counter) {
    counter->QuadPart = g_counter;
    return TRUE;
}

constexpr std::uint64_t kFileTimeOf1970 = 116'444'736'000'000'000;

TEST(WallClock, AgreesWithTheSystemClock) {
    const auto difference = WallClock::now() - std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());

    EXPECT_LT(std::chrono::abs(difference), 10s);
}

TEST(WallClock, AdvancesAsFastAsTheMonotonicClock) {
    const auto wallStart = WallClock::now();
    const auto start = MonotonicClock::now();
    std::this_thread::sleep_for(200ms);
    const auto elapsed = MonotonicClock::now() - start;
    const auto wallElapsed = WallClock::now() - wallStart;

    // A virtual machine may correct its wall clock at any time, but not by half of what has passed.
    EXPECT_GE(elapsed, 199ms);
    EXPECT_GE(wallElapsed, elapsed / 2);
    EXPECT_LE(wallElapsed, elapsed * 2);
}

TEST(WallClock, CountsFileTimesFrom1970) {
    const ImportPatch patch(LibraryUnderTest(), "GetSystemTimePreciseAsFileTime", &TellFileTime);

    g_fileTime = kFileTimeOf1970;
    EXPECT_EQ(WallClock::now(), TimePoint());
    g_fileTime = kFileTimeOf1970 + 1;
    EXPECT_EQ(WallClock::now(), TimePoint(Duration(1)));
    g_fileTime = kFileTimeOf1970 + 17'987'616'000'000'000;
    EXPECT_EQ(WallClock::now(), std::chrono::sys_days(std::chrono::January / 1 / 2027));
}

TEST(WallClock, TakesExtremeFileTimes) {
    const ImportPatch patch(LibraryUnderTest(), "GetSystemTimePreciseAsFileTime", &TellFileTime);

    g_fileTime = 0;
    EXPECT_EQ(WallClock::now(), std::chrono::sys_days(std::chrono::January / 1 / 1601));
    g_fileTime = kFileTimeOf1970 - 1;
    EXPECT_EQ(WallClock::now(), TimePoint(Duration(-1)));
    g_fileTime = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    EXPECT_GT(WallClock::now(), TimePoint(std::chrono::sys_days(std::chrono::January / 1 / 30'000)));
}

TEST(MonotonicClock, NeverStepsBack) {
    auto previous = MonotonicClock::now();
    for (int reading = 0; reading < 100'000; ++reading) {
        const auto now = MonotonicClock::now();
        ASSERT_GE(now, previous);
        previous = now;
    }
}

TEST(MonotonicClock, AdvancesAsTimePasses) {
    const Stopwatch stopwatch;
    const auto start = MonotonicClock::now();
    std::this_thread::sleep_for(50ms);
    const auto elapsed = MonotonicClock::now() - start;

    EXPECT_GE(elapsed, 49ms);
    EXPECT_LE(elapsed, stopwatch.Elapsed());
}

TEST(MonotonicClock, DoesNotFollowTheWallClock) {
    const auto start = MonotonicClock::now();
    const ImportPatch patch(LibraryUnderTest(), "GetSystemTimePreciseAsFileTime", &TellFileTime);

    g_fileTime = 0;
    const auto afterStepBack = MonotonicClock::now();
    g_fileTime = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const auto afterStepForward = MonotonicClock::now();

    EXPECT_GE(afterStepBack, start);
    EXPECT_GE(afterStepForward, afterStepBack);
    EXPECT_LT(afterStepForward - start, 1h);
}

TEST(MonotonicClock, IsExactAfterTenYearsOfUptime) {
    LARGE_INTEGER frequency;
    QueryPerformanceFrequency(&frequency);
    const ImportPatch patch(LibraryUnderTest(), "QueryPerformanceCounter", &TellCounter);
    constexpr std::int64_t kTenYears = std::chrono::seconds(10 * 365 * 24h).count();

    g_counter = kTenYears * frequency.QuadPart;
    EXPECT_EQ(MonotonicClock::now().time_since_epoch(), 10 * 365 * 24h);
    g_counter += frequency.QuadPart / 2;
    EXPECT_EQ(MonotonicClock::now().time_since_epoch(), 10 * 365 * 24h + 500ms);
}

TEST(MonotonicClock, StartsAtZeroWithTheCounter) {
    const ImportPatch patch(LibraryUnderTest(), "QueryPerformanceCounter", &TellCounter);

    g_counter = 0;
    EXPECT_EQ(MonotonicClock::now(), MonotonicClock::time_point());
}

}  // namespace
