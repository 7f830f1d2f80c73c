#include "concurrency/base/thread_time.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

#include "tests/support/thread.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class StandingTime : public ThreadTime {
  public:
    explicit StandingTime(MonotonicClock::time_point now) : m_now(now) {}
    MonotonicClock::time_point Now() override { return m_now; }
    void Block(const std::function<bool()>&, MonotonicClock::time_point) override {}

  private:
    const MonotonicClock::time_point m_now;
};

// Long ago, for the real clock.
constexpr MonotonicClock::time_point kFirst{-1h};
constexpr MonotonicClock::time_point kSecond{-2h};

void ExpectRealTime() {
    EXPECT_EQ(ThreadTime::OfThisThread(), nullptr);
    EXPECT_GT(ThreadNow(), MonotonicClock::time_point());
}

TEST(ThreadTimeScope, IsTheTimeOfItsThreadAlone) {
    StandingTime time(kFirst);
    ExpectRealTime();
    {
        const ThreadTime::Scope scope(time);
        EXPECT_EQ(ThreadTime::OfThisThread(), &time);
        EXPECT_EQ(ThreadNow(), kFirst);
        Thread(&ExpectRealTime).join();
    }
    ExpectRealTime();
}

TEST(ThreadTimeScope, BringsTheOneAroundItBack) {
    StandingTime outer(kFirst);
    StandingTime inner(kSecond);
    const ThreadTime::Scope outerScope(outer);
    {
        const ThreadTime::Scope scope(inner);
        EXPECT_EQ(ThreadNow(), kSecond);
    }
    EXPECT_EQ(ThreadTime::OfThisThread(), &outer);
    EXPECT_EQ(ThreadNow(), kFirst);
}

// Another thread's time that has ended leaves this one's in force.
TEST(ThreadTimeScope, IsNotEndedByThatOfAnotherThread) {
    StandingTime time(kFirst);
    const ThreadTime::Scope scope(time);
    Thread([] {
        StandingTime other(kSecond);
        const ThreadTime::Scope otherScope(other);
        EXPECT_EQ(ThreadNow(), kSecond);
    }).join();
    EXPECT_EQ(ThreadNow(), kFirst);
}

}  // namespace
