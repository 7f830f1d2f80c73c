// Requests to cancel: which states they change, whom they reach, and under which lock.
#include "concurrency/tasks/future_state.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "tests/support/eventually.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/future_fields.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// Counts the requests that reach a run.
class CountingNotifier : public AbstractCancelNotifier {
  public:
    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool&) override {
        lock.unlock();
        ++m_calls;
    }
    int Calls() const { return m_calls; }

  private:
    std::atomic<int> m_calls = 0;
};

TEST(FutureState, RequestFromAnotherThreadMovesTheStateAsTheTableSays) {
    ExpectStatesAfter(
        [](Future& future) { future.RequestCancel(); },
        {State::Cancelled, State::Cancelling, State::Normal, State::Cancelling, State::Cancelled, State::Error});
}

TEST(FutureState, RequestBeforeTheStartCancelsAtOnceAndTheRunIsRefused) {
    const FuturePointer future = FutureIn(State::NotStarted);
    future->RequestCancel();

    EXPECT_TRUE(future->IsCancelled());
    EXPECT_FALSE(future->Start());
    EXPECT_TRUE(future->IsCancelled());
}

TEST(FutureState, RequestFromTheRunsOwnThreadThrowsAndLeavesTheStateCancelling) {
    for (const State state : {State::Busy, State::Cancelling}) {
        const FuturePointer future = FutureIn(state, RunsOn::ThisThread);

        EXPECT_THROW(future->RequestCancel(), CancelRequestedException) << state;
        EXPECT_EQ(StateOf(*future), State::Cancelling);
    }
}

TEST(FutureState, RequestFromTheRunsOwnThreadDoesNotReachTheRunsRecord) {
    const FuturePointer future = FutureIn(State::Busy, RunsOn::ThisThread);
    const auto notifier = std::make_shared<CountingNotifier>();
    future->GetCancellationObject()->RegisterNotifier(notifier);
    EXPECT_THROW(future->RequestCancel(), CancelRequestedException);

    EXPECT_FALSE(future->GetCancellationObject()->IsRequested());
    EXPECT_EQ(notifier->Calls(), 0);
}

TEST(FutureState, RequestOnItsOwnThreadOfAFutureThatDoesNotRunThrowsNothing) {
    for (const State state : {State::NotStarted, State::Normal, State::Cancelled, State::Error}) {
        EXPECT_NO_THROW(FutureIn(state, RunsOn::ThisThread)->RequestCancel()) << state;
    }
}

TEST(FutureState, RequestFromAnotherThreadIsPassedOnToTheRunOnce) {
    const FuturePointer future = FutureIn(State::Busy);
    const auto notifier = std::make_shared<CountingNotifier>();
    future->GetCancellationObject()->RegisterNotifier(notifier);

    future->RequestCancel();
    EXPECT_TRUE(future->GetCancellationObject()->IsRequested());
    EXPECT_EQ(notifier->Calls(), 1);

    future->RequestCancel();
    EXPECT_EQ(notifier->Calls(), 1);
    EXPECT_EQ(StateOf(*future), State::Cancelling);
}

TEST(FutureState, RequestsThatComeAtOnceArePassedOnOnce) {
    const FuturePointer future = FutureIn(State::Busy);
    const auto notifier = std::make_shared<CountingNotifier>();
    future->GetCancellationObject()->RegisterNotifier(notifier);
    std::unique_lock lock(FieldOrder::MutexOf(*future));
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
            PlainThread([this] { mutexIsFree = FieldOrder::MutexOf(m_future).try_lock(); }).Join();
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

TEST(FutureState, NotifierThatThrowsLeavesTheStateCancellingAndTheMutexFree) {
    class Thrower : public AbstractCancelNotifier {
      public:
        void Notify(std::unique_lock<std::recursive_mutex>&, bool&) override { throw std::runtime_error("notifier"); }
    };
    const FuturePointer future = FutureIn(State::Busy);
    const auto notifier = std::make_shared<Thrower>();
    future->GetCancellationObject()->RegisterNotifier(notifier);

    EXPECT_THROW(future->RequestCancel(), std::runtime_error);
    EXPECT_EQ(StateOf(*future), State::Cancelling);
    PlainThread([&] { future->ConfirmCancel(); }).Join();
    EXPECT_EQ(StateOf(*future), State::Cancelled);
}

}  // namespace
