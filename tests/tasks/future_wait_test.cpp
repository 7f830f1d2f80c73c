// Waiting for a future: Wait() and TimedWait() in every state, and what ends them.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <vector>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "tests/support/eventually.h"
#include "tests/support/plain_thread.h"
#include "tests/support/task_thread.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

const TimePoint kIn1969 = std::chrono::sys_days(std::chrono::July / 20 / 1969);

TimePoint After(Duration time) {
    return std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now()) + time;
}

// The two ways to wait without an end of their own.
using Wait = std::function<void(Future&)>;
const std::vector<Wait> kWaits{
    [](Future& future) { future.Wait(); },
    [](Future& future) { EXPECT_TRUE(future.TimedWait(TimePoint::max())); },
};

// A task of which cancellation was requested while it ran; `body` is called after that.
void RunInACancelledTask(const std::function<void()>& body) {
    TaskThread task([&] {
        GetCancellationObject()->RequestCancel();
        body();
    });
    task.Join();
}

TEST(FutureWait, WithoutATaskReturnsAtOnceWhateverTheState) {
    for (const State state : kAllStates) {
        const FuturePointer future = FutureIn(state);
        future->Wait();
        EXPECT_EQ(StateOf(*future), state);
    }
}

TEST(FutureTimedWait, WithoutATaskIsFalseAtOnceWhateverTheState) {
    for (const State state : kAllStates) {
        const FuturePointer future = FutureIn(state);
        EXPECT_FALSE(future->TimedWait(TimePoint::max())) << state;
        EXPECT_FALSE(future->TimedWait(TimePoint::min())) << state;
    }
}

TEST(FutureWait, WithoutATaskIsNotACancellationPoint) {
    bool returned = false;
    RunInACancelledTask([&] {
        FutureIn(State::Busy)->Wait();
        EXPECT_FALSE(FutureIn(State::Busy)->TimedWait(TimePoint::max()));
        returned = true;
    });
    EXPECT_TRUE(returned);
}

TEST(FutureWait, ReturnsAtOnceWhenTheRunHasEnded) {
    for (const State state : {State::Normal, State::Cancelled, State::Error}) {
        EXPECT_NO_THROW(AttachedFutureIn(state)->Wait()) << state;
    }
}

TEST(FutureTimedWait, IsTrueAtOnceWhenTheRunHasEndedWhateverTheDeadline) {
    for (const State state : {State::Normal, State::Cancelled, State::Error}) {
        for (const TimePoint deadline : {TimePoint::min(), kIn1969, TimePoint(), TimePoint::max()}) {
            EXPECT_TRUE(AttachedFutureIn(state)->TimedWait(deadline)) << state;
        }
    }
}

TEST(FutureWait, OnARunThatHasEndedIsNotACancellationPoint) {
    bool returned = false;
    RunInACancelledTask([&] {
        AttachedFutureIn(State::Normal)->Wait();
        EXPECT_TRUE(AttachedFutureIn(State::Error)->TimedWait(TimePoint::min()));
        returned = true;
    });
    EXPECT_TRUE(returned);
}

TEST(FutureWait, EveryEndWakesEveryWaiter) {
    for (const State start : {State::NotStarted, State::Busy, State::Cancelling}) {
        for (const State end : {State::Normal, State::Cancelled, State::Error}) {
            const FuturePointer future = AttachedFutureIn(start);
            PlainThread first([&] { kWaits[0](*future); });
            PlainThread second([&] { kWaits[1](*future); });
            PlainThread third([&] { kWaits[0](*future); });
            ASSERT_TRUE(StillWaits(first) && StillWaits(second) && StillWaits(third)) << start << " to " << end;

            End(*future, end);
            EXPECT_TRUE(Eventually([&] { return first.HasEnded() && second.HasEnded() && third.HasEnded(); }))
                << start << " to " << end;
        }
    }
}

TEST(FutureWait, GoesOnWhenTheRunStartsOrIsAskedToCancel) {
    for (const Wait& wait : kWaits) {
        const FuturePointer future = AttachedFutureIn(State::NotStarted);
        PlainThread waiter([&] { wait(*future); });
        ASSERT_TRUE(StillWaits(waiter));

        StartRun(*future, RunsOn::AnotherThread);
        EXPECT_TRUE(StillWaits(waiter));
        future->RequestCancel();
        EXPECT_TRUE(StillWaits(waiter));
        future->ConfirmCancel();
        EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
    }
}

TEST(FutureTimedWait, PastDeadlineIsFalseAtOnce) {
    for (const State state : {State::NotStarted, State::Busy, State::Cancelling}) {
        const FuturePointer future = AttachedFutureIn(state);
        for (const TimePoint deadline : {kIn1969, TimePoint::min(), TimePoint(), After(-1s)}) {
            EXPECT_FALSE(future->TimedWait(deadline)) << state;
        }
        EXPECT_EQ(StateOf(*future), state);
    }
}

TEST(FutureTimedWait, IsTrueWhenTheRunEndsInTime) {
    for (const State state : {State::NotStarted, State::Busy, State::Cancelling}) {
        const FuturePointer future = AttachedFutureIn(state);
        PlainThread waiter([&] { EXPECT_TRUE(future->TimedWait(After(1h))) << state; });
        ASSERT_TRUE(StillWaits(waiter));
        End(*future, State::Error);

        EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
    }
}

TEST(FutureWait, OfACancelledTaskIsRefusedBeforeItBegins) {
    for (const State state : {State::NotStarted, State::Busy}) {
        const FuturePointer future = AttachedFutureIn(state);
        TaskThread task([&] {
            GetCancellationObject()->RequestCancel();
            EXPECT_THROW(future->Wait(), CancelRequestedException) << state;
            EXPECT_THROW(future->TimedWait(TimePoint::max()), CancelRequestedException) << state;
            EXPECT_THROW(future->TimedWait(TimePoint::min()), CancelRequestedException) << state;
        });
        ASSERT_TRUE(Eventually([&] { return !task.IsRunning(); }));
        EXPECT_EQ(StateOf(*future), state);
        // The mutex is free again.
        PlainThread([&] { End(*future, State::Normal); }).Join();
        EXPECT_EQ(StateOf(*future), State::Normal);
    }
}

TEST(FutureWait, ThatFindsARunCancellingIsNotACancellationPoint) {
    for (const Wait& wait : kWaits) {
        const FuturePointer future = AttachedFutureIn(State::Cancelling);
        std::atomic<bool> returned = false;
        TaskThread task([&] {
            GetCancellationObject()->RequestCancel();
            wait(*future);
            returned = true;
        });
        EXPECT_FALSE(Eventually([&] { return !task.IsRunning(); }, 50ms));
        future->ConfirmCancel();

        EXPECT_TRUE(Eventually([&] { return !task.IsRunning(); }));
        EXPECT_TRUE(returned);
    }
}

TEST(FutureTimedWait, ThatFindsARunCancellingTimesOutInACancelledTaskToo) {
    const FuturePointer future = AttachedFutureIn(State::Cancelling);
    bool ended = true;
    RunInACancelledTask([&] { ended = future->TimedWait(After(10ms)); });

    EXPECT_FALSE(ended);
}

TEST(FutureWait, HearsOfItsOwnCancellationWhenTheWaitIsOver) {
    for (const Wait& wait : kWaits) {
        const FuturePointer future = AttachedFutureIn(State::Busy);
        SleepingWaiter waiter([&] { wait(*future); }, *future);
        waiter.Cancel();
        EXPECT_FALSE(Eventually([&] { return waiter.HasEnded(); }, 50ms)) << "woken by its own cancellation";

        End(*future, State::Normal);
        EXPECT_TRUE(waiter.EndedCancelled());
    }
}

}  // namespace
