// Requests to cancel: which states they change, whom they reach, and under which lock.
#include "concurrency/tasks/future_state.h"

#include <gtest/gtest.h>

#include <memory>
#include <mutex>
#include <stdexcept>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "tests/support/plain_thread.h"
#include "tests/tasks/counting_notifier.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(FutureState, RequestFromAnotherThreadMovesTheStateAsTheTableSays) {
    ExpectStatesAfter(
        [](Future& future) { future.RequestCancel(); },
        {State::Cancelled, State::Cancelling, State::Normal, State::Cancelling, State::Cancelled, State::Error});
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
