#include "tests/support/eventually.h"
#include "tests/support/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

namespace Zarvo::Test {
namespace {

using namespace std::chrono_literals;

TEST(Eventually, GivesUpOnAPredicateThatNeverHolds) {
    const Stopwatch stopwatch;

    EXPECT_FALSE(Eventually([] { return false; }, 30ms));
    EXPECT_GE(stopwatch.Elapsed(), 30ms);
}

TEST(Eventually, AsksOnceWhenThePredicateHoldsAtOnce) {
    int asked = 0;

    EXPECT_TRUE(Eventually([&] { return ++asked > 0; }));
    EXPECT_EQ(asked, 1);
}

TEST(Eventually, AsksOnceMoreAfterTheTimeIsUp) {
    int asked = 0;

    EXPECT_TRUE(Eventually([&] { return ++asked == 2; }, 0ms));
}

TEST(Eventually, SeesWhatAnotherThreadDoes) {
    std::atomic<bool> done = false;
    Thread thread([&] {
        PauseBriefly();
        done = true;
    });

    EXPECT_TRUE(Eventually([&] { return done.load(); }));
}

TEST(Stopwatch, RunsForwardsWhileTimePasses) {
    const Stopwatch stopwatch;
    const auto first = stopwatch.Elapsed();
    std::this_thread::sleep_for(20ms);

    EXPECT_GE(first, 0ns);
    EXPECT_GE(stopwatch.Elapsed() - first, 19ms);
    EXPECT_LT(stopwatch.Elapsed(), 60s);
}

}  // namespace
}  // namespace Zarvo::Test
