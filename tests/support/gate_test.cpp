#include "tests/support/gate.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>

#include "tests/support/eventually.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {
namespace {

TEST(Gate, HoldsAThreadUntilItIsOpened) {
    Gate gate;
    std::atomic<bool> through = false;
    Thread thread([&] {
        gate.Wait();
        through = true;
    });

    EXPECT_FALSE(Eventually([&] { return through.load(); }, std::chrono::milliseconds(50)));

    gate.Open();
    EXPECT_TRUE(Eventually([&] { return through.load(); }));
}

TEST(Gate, StaysOpen) {
    Gate gate;
    gate.Open();

    gate.Wait();
    gate.Wait();
    EXPECT_TRUE(gate.IsOpen());
}

TEST(Countdown, HoldsEveryoneUntilTheLastHasArrived) {
    Countdown countdown(2);
    std::atomic<bool> through = false;
    Thread thread([&] {
        countdown.Meet();
        through = true;
    });
    ASSERT_TRUE(Eventually([&] { return countdown.Missing() == 1; }));
    EXPECT_FALSE(Eventually([&] { return through.load(); }, std::chrono::milliseconds(50)));

    countdown.Meet();
    EXPECT_TRUE(Eventually([&] { return through.load(); }));
}

TEST(Countdown, RefusesOneArrivalTooMany) {
    Countdown countdown(1);
    countdown.Arrive();

    EXPECT_THROW(countdown.Arrive(), std::logic_error);
}

TEST(Countdown, OfNobodyIsOver) {
    Countdown countdown(0);

    countdown.Wait();
    EXPECT_EQ(countdown.Missing(), 0U);
}

}  // namespace
}  // namespace Zarvo::Test
