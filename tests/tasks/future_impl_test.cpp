#include "concurrency/tasks/future_impl.h"

#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "tests/support/eventually.h"
#include "tests/support/plain_thread.h"
#include "tests/support/task_thread.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

static_assert(std::is_base_of_v<FutureState, FutureImpl<void>>);
static_assert(sizeof(FutureImpl<void>) == sizeof(FutureState), "no fields of its own");
static_assert(std::has_virtual_destructor_v<FutureImpl<void>>);

TEST(FutureImpl, StartsNotStartedAndWithoutATask) {
    Future future;

    EXPECT_EQ(StateOf(future), State::NotStarted);
    EXPECT_FALSE(future.TimedWait(TimePoint::max()));
}

TEST(FutureImpl, SetValueOnACancellingFutureMakesItNormalAndTheValueCanBeRead) {
    const FuturePointer future = AttachedFutureIn(State::Cancelling);
    future->SetValue();

    EXPECT_EQ(StateOf(*future), State::Normal);
    EXPECT_NO_THROW(future->GetValue());
}

TEST(FutureImpl, GetValueReturnsAfterANormalEnd) {
    EXPECT_NO_THROW(AttachedFutureIn(State::Normal)->GetValue());
    EXPECT_NO_THROW(FutureIn(State::Normal)->GetValue());
}

TEST(FutureImpl, GetValueThrowsTheRunsExceptionAsItsOwnType) {
    try {
        AttachedFutureIn(State::Error)->GetValue();
        FAIL() << "nothing was thrown";
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.Number(), 1);
    }
}

TEST(FutureImpl, GetValueOfAFutureCancelledBeforeItsStartThrowsWithoutWaiting) {
    EXPECT_THROW(AttachedFutureIn(State::Cancelled)->GetValue(), CancelledException);
    EXPECT_THROW(FutureIn(State::Cancelled)->GetValue(), CancelledException);
}

TEST(FutureImpl, GetValueWaitsForTheEndOfTheRun) {
    const FuturePointer future = AttachedFutureIn(State::NotStarted);
    PlainThread reader([&] { EXPECT_THROW(future->GetValue(), Failure); });
    EXPECT_FALSE(Eventually([&] { return reader.HasEnded(); }, 50ms));
    StartRun(*future, RunsOn::AnotherThread);
    EXPECT_FALSE(Eventually([&] { return reader.HasEnded(); }, 50ms));

    future->SetException(Failure(3));
    EXPECT_TRUE(Eventually([&] { return reader.HasEnded(); }));
}

TEST(FutureImpl, GetValueWaitsInTheWayOfADerivedFuture) {
    class CountingFuture : public Future {
      public:
        void Wait() override { ++waits; }
        int waits = 0;
    };
    CountingFuture future;
    future.MarkAsAttachedToTask();
    future.RequestCancel();

    EXPECT_THROW(future.GetValue(), CancelledException);
    EXPECT_EQ(future.waits, 1);
}

TEST(FutureImpl, GetValueWithoutATaskReturnsWhileNothingHasEnded) {
    EXPECT_NO_THROW(FutureIn(State::NotStarted)->GetValue());
    EXPECT_NO_THROW(FutureIn(State::Busy)->GetValue());
}

TEST(FutureImpl, GetValueWithoutATaskThrowsCancelledAlreadyWhileCancelling) {
    EXPECT_THROW(FutureIn(State::Cancelling)->GetValue(), CancelledException);
}

TEST(FutureImpl, GetValueInACancelledTaskLeavesWithTheReadersOwnCancellation) {
    const FuturePointer future = AttachedFutureIn(State::Busy);
    TaskThread reader([&] {
        GetCancellationObject()->RequestCancel();
        EXPECT_THROW(future->GetValue(), CancelRequestedException);
    });
    EXPECT_TRUE(Eventually([&] { return !reader.IsRunning(); }));
    End(*future, State::Normal);
}

TEST(FutureImpl, GetValueThrowsAFrameworkErrorAsTheKindOfItsCode) {
    const FuturePointer future = AttachedFutureIn(State::Busy);
    future->SetException(CloneableExceptionBase(Unexpected(L"run %d", 12)));
    try {
        future->GetValue();
        FAIL() << "nothing was thrown";
    } catch (const Unexpected& error) {
        EXPECT_STREQ(error.message, L"run 12");
    }
}

}  // namespace
