// How long the bound arguments live, and what a wrapper gives after its run.
#include "concurrency/tasks/task_wrapper.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/current_task.h"
#include "tests/tasks/bound_wrapper.h"
#include "tests/tasks/future_fixture.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(TaskWrapper, DestroysTheBoundArgumentsBeforeTheFutureIsCompleted) {
    struct Argument {
        explicit Argument(const Future& observed, State& seen) : future(&observed), state(&seen) {}
        ~Argument() { *state = StateOf(*future); }
        const Future* future;
        State* state;
    };
    State atDestruction = State::NotStarted;
    FuturePointer future(new Future());
    auto argument = std::make_shared<Argument>(*future, atDestruction);
    Wrapper wrapper([argument] {}, future);
    argument.reset();
    wrapper();

    EXPECT_EQ(atDestruction, State::Busy);
    EXPECT_EQ(StateOf(*future), State::Normal);
}

TEST(TaskWrapper, KeepsACallableThatThrew) {
    for (const bool known : {true, false}) {
        auto argument = std::make_shared<int>(0);
        const std::weak_ptr<int> watched = argument;
        Bound bound([argument, known] {
            if (known) {
                throw Failure(1);
            }
            throw std::runtime_error("unknown");
        });
        argument.reset();
        try {
            bound.Run();
        } catch (const std::runtime_error&) {
        }
        EXPECT_FALSE(watched.expired());
        bound.wrapper.reset();
        EXPECT_TRUE(watched.expired());
    }
}

TEST(TaskWrapper, DestructorReleasesTheCallableBeforeTheFuture) {
    struct Argument {
        explicit Argument(bool& seen) : futureAlive(&seen) {}
        ~Argument() { *futureAlive = !future.expired(); }
        std::weak_ptr<Future> future;
        bool* futureAlive;
    };
    bool futureAlive = false;
    auto argument = std::make_shared<Argument>(futureAlive);
    FuturePointer future(new Future());
    argument->future = future;
    auto wrapper = std::make_unique<Wrapper>([argument] {}, future);
    const std::weak_ptr<Future> watched = future;
    future.reset();
    argument.reset();
    wrapper.reset();

    EXPECT_TRUE(futureAlive);
    EXPECT_TRUE(watched.expired());
}

TEST(TaskWrapper, SecondRunAfterANormalOneDoesNothing) {
    int calls = 0;
    Bound bound([&] { ++calls; });
    bound.Run();
    bound.Run();

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(StateOf(*bound.future), State::Normal);
    EXPECT_EQ(GetFutureObject(), nullptr);
}

TEST(TaskWrapper, SecondRunAfterAnErrorCallsAgainButTheOutcomeStays) {
    int calls = 0;
    Bound bound([&] {
        if (++calls == 1) {
            throw Failure(1);
        }
    });
    bound.Run();
    bound.Run();

    EXPECT_EQ(calls, 2);
    EXPECT_EQ(StateOf(*bound.future), State::Error);
    EXPECT_THROW(bound.future->GetValue(), Failure);
}

TEST(TaskWrapper, SecondRunAfterACancellationIsRefused) {
    int calls = 0;
    FuturePointer future;
    Bound bound([&] {
        ++calls;
        future->RequestCancel();
    });
    future = bound.future;
    bound.Run();
    bound.Run();

    EXPECT_EQ(calls, 1);
    EXPECT_EQ(StateOf(*future), State::Cancelled);
}

TEST(TaskWrapper, RecreateGivesTheSameWorkWithANewAttachedFuture) {
    int calls = 0;
    Bound bound([&] { ++calls; });
    const std::shared_ptr<ITaskState> fresh = bound.wrapper->Recreate();
    ASSERT_NE(fresh, nullptr);
    const auto future = fresh->GetFuture();

    EXPECT_NE(std::dynamic_pointer_cast<Wrapper>(fresh), nullptr) << "another type";
    EXPECT_NE(future, bound.future);
    EXPECT_EQ(StateOf(*future), State::NotStarted);
    (*fresh)();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(StateOf(*future), State::Normal);
    EXPECT_TRUE(future->TimedWait(TimePoint::min())) << "not attached";
    EXPECT_EQ(StateOf(*bound.future), State::NotStarted);
}

TEST(TaskWrapper, RecreateCopiesTheBoundArguments) {
    int total = 0;
    Bound bound([count = 0, &total]() mutable { total += ++count; });
    const auto fresh = bound.wrapper->Recreate();
    bound.Run();
    (*fresh)();

    EXPECT_EQ(total, 2);
}

TEST(TaskWrapper, RecreateAfterANormalRunGivesNothing) {
    Bound bound([] {});
    bound.Run();

    EXPECT_EQ(bound.wrapper->Recreate(), nullptr);
}

TEST(TaskWrapper, RecreateAfterAnErrorOrACancellationGivesTheWorkAgain) {
    Bound failed([] { throw Failure(1); });
    failed.Run();
    EXPECT_NE(failed.wrapper->Recreate(), nullptr);

    Bound cancelled([] {});
    cancelled.future->RequestCancel();
    cancelled.Run();
    EXPECT_NE(cancelled.wrapper->Recreate(), nullptr);
}

}  // namespace
