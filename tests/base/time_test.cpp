#include "concurrency/base/time.h"

#include <gtest/gtest.h>

#include <type_traits>

namespace {

using namespace Orvane;
using namespace std::chrono_literals;

static_assert(std::is_same_v<Duration::rep, std::int64_t>);
static_assert(std::is_same_v<Duration::period, std::ratio<1, 10'000'000>>);
static_assert(std::is_same_v<TimePoint::duration, Duration>);
static_assert(std::is_same_v<TimePoint::clock, std::chrono::system_clock>);
static_assert(sizeof(TimePoint) == 8);

TEST(Duration, CountsTicksOf100Nanoseconds) {
    EXPECT_EQ(Duration(1), 100ns);
    EXPECT_EQ(Duration(1s).count(), 10'000'000);
}

TEST(TimePoint, CountsFrom1970) {
    EXPECT_EQ(TimePoint().time_since_epoch().count(), 0);
    EXPECT_EQ(std::chrono::sys_days(std::chrono::January / 1 / 1970), TimePoint());
    EXPECT_LT(TimePoint(std::chrono::sys_days(std::chrono::December / 31 / 1969)), TimePoint());
}

TEST(TimePoint, ReachesFarBeyondTheStandardClocksOwnRange) {
    EXPECT_GT(TimePoint::max(), TimePoint(std::chrono::sys_days(std::chrono::January / 1 / 30'000)));
    EXPECT_LT(TimePoint::min(), TimePoint(std::chrono::sys_days(std::chrono::January / 1 / -27'000)));
}

}  // namespace
