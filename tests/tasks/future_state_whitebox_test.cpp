// What needs a future's lock or its condition: waits that are woken for no reason, or by a clock in the test's hands, and what
// happens while a request holds the lock.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/counting_notifier.h"
#include "tests/tasks/future_fixture.h"
#include "tests/tasks/future_state_peer.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

const TimePoint kIn2012 = std::chrono::sys_days(std::chrono::December / 14 / 2012);

// The two ways to wait without an end of their own.
using Wait = std::function<void(Future&)>;
const std::vector<Wait> kWaits{
    [](Future& future) { future.Wait(); },
    [](Future& future) { EXPECT_TRUE(future.TimedWait(TimePoint::max())); },
};

// Sets the clock and wakes the waiters. Under the future's mutex: each of them has not looked at the clock yet, or sleeps.
void SetClock(FakeWallClock& clock, TimePoint now, Future& future) {
    const std::lock_guard lock(FutureStatePeer::MutexOf(future));
    clock.Set(now);
    FutureStatePeer::ConditionOf(future).notify_all();
}

// A waiter asks for the record while it holds its own mutex, which a request takes while it holds the future's.
TEST(FutureState, CancellationObjectAndErrorsAreReadWithoutTheMutex) {
    const FuturePointer busy = FutureIn(State::Busy);
    const FuturePointer failed = FutureIn(State::Error);
    const std::scoped_lock locks(FutureStatePeer::MutexOf(*busy), FutureStatePeer::MutexOf(*failed));
    bool found = false;
    bool thrown = false;
    PlainThread reader([&] {
        found = busy->GetCancellationObject() != nullptr;
        try {
            failed->HandleErrors();
        } catch (const Failure&) {
            thrown = true;
        }
    });
    ASSERT_TRUE(Eventually([&] { return reader.HasEnded(); }));
    EXPECT_TRUE(found);
    EXPECT_TRUE(thrown);
}

TEST(FutureState, RequestsThatComeAtOnceArePassedOnOnce) {
    const FuturePointer future = FutureIn(State::Busy);
    const auto notifier = std::make_shared<CountingNotifier>();
    future->GetCancellationObject()->RegisterNotifier(notifier);
    std::unique_lock lock(FutureStatePeer::MutexOf(*future));
    PlainThread first([&] { future->RequestCancel(); });
    PlainThread second([&] { future->RequestCancel(); });
    // Both have seen the future busy by now, most likely.
    EXPECT_FALSE(Eventually([&] { return first.HasEnded() || second.HasEnded(); }, std::chrono::milliseconds(100)));
    lock.unlock();
    first.Join();
    second.Join();

    EXPECT_EQ(notifier->Calls(), 1);
}

TEST(FutureState, RequestIsPassedOnWithTheStateSetAndTheMutexHeld) {
    class Observer : public AbstractCancelNotifier {
      public:
        explicit Observer(Future& future) : m_future(future) {}
        void Notify(std::unique_lock<std::recursive_mutex>& lock, bool&) override {
            lock.unlock();
            cancelling = m_future.IsCancelling();
            PlainThread([this] { mutexIsFree = FutureStatePeer::MutexOf(m_future).try_lock(); }).Join();
        }
        bool cancelling = false;
        bool mutexIsFree = true;

      private:
        Future& m_future;
    };
    const FuturePointer future = FutureIn(State::Busy);
    const auto observer = std::make_shared<Observer>(*future);
    future->GetCancellationObject()->RegisterNotifier(observer);
    future->RequestCancel();

    EXPECT_TRUE(observer->cancelling);
    EXPECT_FALSE(observer->mutexIsFree);
}

TEST(FutureWait, AbsorbsWakeUpsForNoReason) {
    for (const State state : {State::NotStarted, State::Busy, State::Cancelling}) {
        for (const Wait& wait : kWaits) {
            const FuturePointer future = AttachedFutureIn(state);
            PlainThread waiter([&] { wait(*future); });
            for (int round = 0; round < 5; ++round) {
                EXPECT_FALSE(Eventually([&] { return waiter.HasEnded(); }, 5ms)) << state;
                FutureStatePeer::ConditionOf(*future).notify_all();
            }
            End(*future, State::Normal);
        }
    }
}

TEST(FutureWait, ThatBeganBeforeTheRequestIsNotOverWhileTheRunIsCancelling) {
    for (const Wait& wait : kWaits) {
        const FuturePointer future = AttachedFutureIn(State::Busy);
        SleepingWaiter waiter([&] { wait(*future); }, *future);
        future->RequestCancel();
        FutureStatePeer::ConditionOf(*future).notify_all();
        EXPECT_FALSE(Eventually([&] { return waiter.HasEnded(); }, 50ms));

        future->ConfirmCancel();
        EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
    }
}

TEST(FutureTimedWait, HearsOfItsOwnCancellationAtTheDeadline) {
    const FuturePointer future = AttachedFutureIn(State::Busy);
    FakeWallClock clock(kIn2012);
    SleepingWaiter waiter([&] { (void)future->TimedWait(kIn2012 + 1h); }, *future);
    waiter.Cancel();
    EXPECT_FALSE(Eventually([&] { return waiter.HasEnded(); }, 50ms)) << "woken by its own cancellation";

    SetClock(clock, kIn2012 + 1h, *future);
    EXPECT_TRUE(waiter.EndedCancelled());
    EXPECT_EQ(StateOf(*future), State::Busy);
}

// The 30 s for a run to confirm its cancellation are not measured with the wall clock.
TEST(FutureWait, StepOfTheWallClockDoesNotEndTheProcess) {
    const FuturePointer future = AttachedFutureIn(State::Cancelling);
    FakeWallClock clock(kIn2012);
    PlainThread waiter([&] { future->Wait(); });
    ASSERT_TRUE(StillWaits(waiter));

    for (const auto step : {10'000h, -10'000h}) {
        SetClock(clock, kIn2012 + step, *future);
        EXPECT_TRUE(StillWaits(waiter));
    }
    future->ConfirmCancel();
    EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); }));
}

// An absolute deadline means the wall clock, whatever that is set to. A run that is only cancelling then has not ended.
TEST(FutureTimedWait, IsFalseAtTheDeadlineOfTheWallClockAndNotBefore) {
    for (const State state : {State::NotStarted, State::Busy, State::Cancelling}) {
        const FuturePointer future = AttachedFutureIn(state);
        FakeWallClock clock(kIn2012);
        PlainThread waiter([&] { EXPECT_FALSE(future->TimedWait(kIn2012 + 1h)); });
        ASSERT_TRUE(StillWaits(waiter)) << state;
        SetClock(clock, kIn2012 + 1h - 1ms, *future);
        EXPECT_TRUE(StillWaits(waiter)) << state;

        SetClock(clock, kIn2012 + 1h, *future);
        EXPECT_TRUE(Eventually([&] { return waiter.HasEnded(); })) << state;
        EXPECT_EQ(StateOf(*future), state);
    }
}

}  // namespace
