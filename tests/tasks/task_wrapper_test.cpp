// How a callable's ordinary end becomes its future's state.
#include "concurrency/tasks/task_wrapper.h"

#include <gtest/gtest.h>

#include <memory>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "tests/tasks/bound_wrapper.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(TaskWrapper, AttachesItsFutureAndGivesItOut) {
    const Bound bound([] {});

    EXPECT_EQ(bound.wrapper->GetFuture(), bound.future);
    EXPECT_EQ(StateOf(*bound.future), State::NotStarted);
    bound.future->RequestCancel();
    EXPECT_TRUE(bound.future->TimedWait(TimePoint::min())) << "a wait is not a real one";
}

TEST(TaskWrapper, CopiesTheCallable) {
    struct Counting {
        int* calls;
        void operator()() { ++*calls; }
    };
    int calls = 0;
    FuturePointer future(new Future());
    std::shared_ptr<ITaskState> wrapper;
    {
        const Counting callable{&calls};
        wrapper = std::make_shared<TaskWrapper<void, Counting>>(callable, future);
    }
    (*wrapper)();

    EXPECT_EQ(calls, 1);
}

TEST(TaskWrapper, BindsAMemberFunctionWithItsObjectAndArgument) {
    struct Object {
        void Add(unsigned long long number) { sum += number; }
        unsigned long long sum = 0;
    };
    Object object;
    const auto callable = std::bind(&Object::Add, &object, 7ULL);
    FuturePointer future(new Future());
    TaskWrapper<void, std::decay_t<decltype(callable)>> wrapper(callable, future);
    wrapper();

    EXPECT_EQ(object.sum, 7U);
    EXPECT_TRUE(future->IsNormal());
}

TEST(TaskWrapper, IsBusyDuringTheCallAndNormalAfterIt) {
    State during = State::NotStarted;
    FuturePointer future;
    Bound bound([&] { during = StateOf(*future); });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(during, State::Busy);
    EXPECT_EQ(StateOf(*future), State::Normal);
}

TEST(TaskWrapper, FutureCancelledBeforeTheRunKeepsItFromBeingCalled) {
    int calls = 0;
    Bound bound([&] { ++calls; });
    bound.future->RequestCancel();
    bound.Run();

    EXPECT_EQ(calls, 0);
    EXPECT_EQ(StateOf(*bound.future), State::Cancelled);
}

TEST(TaskWrapper, CallableThatLetsItsCancellationGoEndsCancelled) {
    FuturePointer future;
    Bound bound([&] {
        GetCancellationObject()->RequestCancel();
        MakeCancelling(*future);
        CancellationPoint();
    });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(StateOf(*future), State::Cancelled);
    EXPECT_THROW(future->GetValue(), CancelledException);
}

TEST(TaskWrapper, CancelRequestedExceptionWithoutARequestLeavesTheFutureBusy) {
    Bound bound([] { throw CancelRequestedException(); });
    bound.Run();

    EXPECT_EQ(StateOf(*bound.future), State::Busy);
}

TEST(TaskWrapper, CallableThatSwallowsItsCancellationEndsNormal) {
    FuturePointer future;
    Bound bound([&] { MakeCancelling(*future); });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(StateOf(*future), State::Normal);
    EXPECT_NO_THROW(future->GetValue());
}

TEST(TaskWrapper, CallableThatFailsWhileCancellingEndsWithItsError) {
    FuturePointer future;
    Bound bound([&] {
        MakeCancelling(*future);
        throw Failure(8);
    });
    future = bound.future;
    bound.Run();

    EXPECT_EQ(StateOf(*future), State::Error);
    EXPECT_THROW(future->GetValue(), Failure);
}

}  // namespace
