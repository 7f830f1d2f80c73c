#include "concurrency/base/precise_wait.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "tests/support/eventually.h"
#include "tests/support/stopwatch.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class PreciseWaitForTest : public testing::Test {
  protected:
    std::mutex m_mutex;
    std::condition_variable m_condition;
};

TEST_F(PreciseWaitForTest, ReturnsWhenTheTimeHasPassedAndOwnsTheLockAgain) {
    std::unique_lock lock(m_mutex);
    const Stopwatch stopwatch;
    PreciseWaitFor(m_condition, lock, 20ms);

    EXPECT_GE(stopwatch.Elapsed(), 19ms);
    bool taken = true;
    std::thread([&] { taken = m_mutex.try_lock(); }).join();
    EXPECT_FALSE(taken);
}

TEST_F(PreciseWaitForTest, TakesTimesBelowAMillisecond) {
    std::unique_lock lock(m_mutex);
    const Stopwatch stopwatch;
    for (int round = 0; round < 20; ++round) {
        PreciseWaitFor(m_condition, lock, 500us);
    }
    EXPECT_GE(stopwatch.Elapsed(), 8ms);  // it may wake 50 us too soon
}

TEST_F(PreciseWaitForTest, WakesUpWhenNotified) {
    std::atomic<bool> woken = false;
    std::jthread waiter([&] {
        std::unique_lock lock(m_mutex);
        PreciseWaitFor(m_condition, lock, 24h);
        woken = true;
    });

    EXPECT_TRUE(Eventually([&] {
        m_condition.notify_all();
        return woken.load();
    }));
}

TEST_F(PreciseWaitForTest, LetsGoOfTheLockWhileItWaits) {
    std::unique_lock lock(m_mutex);
    std::jthread notifier([&] {
        const std::lock_guard other(m_mutex);
        m_condition.notify_all();
    });
    const Stopwatch stopwatch;
    PreciseWaitFor(m_condition, lock, 60s);

    EXPECT_LT(stopwatch.Elapsed(), 59s);
}

}  // namespace
