// What a thread learns about the task that it runs. Each claim holds in every state of the library's lifetime: tasks may
// run before it is initialised and after it is uninitialised.
#include "concurrency/cancellation/current_task.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/make_task.h"
#include "tests/cancellation/run_scope.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Future = FutureImpl<void>;

enum class LibraryState { kNeverInitialised, kInitialised, kUninitialised, kOverReleased, kBackToZero };

class CurrentTask : public testing::TestWithParam<LibraryState> {
  protected:
    CurrentTask() {
        const LibraryState state = GetParam();
        if (state == LibraryState::kNeverInitialised) {
            return;
        }
        ConcurrencyInitialize();
        if (state == LibraryState::kInitialised) {
            return;
        }
        ConcurrencyUninitialize();
        if (state == LibraryState::kUninitialised) {
            return;
        }
        ConcurrencyUninitialize();
        if (state == LibraryState::kBackToZero) {
            ConcurrencyInitialize();
        }
    }
    ~CurrentTask() override { ResetFutureObject({}); }
};

INSTANTIATE_TEST_SUITE_P(Library, CurrentTask,
                         testing::Values(LibraryState::kNeverInitialised, LibraryState::kInitialised,
                                         LibraryState::kUninitialised, LibraryState::kOverReleased,
                                         LibraryState::kBackToZero),
                         [](const testing::TestParamInfo<LibraryState>& state) -> std::string {
                             switch (state.param) {
                                 case LibraryState::kNeverInitialised: return "NeverInitialised";
                                 case LibraryState::kInitialised: return "Initialised";
                                 case LibraryState::kUninitialised: return "Uninitialised";
                                 case LibraryState::kOverReleased: return "OverReleased";
                                 case LibraryState::kBackToZero: return "BackToZero";
                             }
                             return "Unknown";
                         });

std::shared_ptr<Future> StartedFuture() {
    std::shared_ptr<Future> future(new Future());
    future->MarkAsAttachedToTask();
    future->Start();
    return future;
}

void ExpectNoCurrentTask() {
    EXPECT_EQ(GetFutureObject(), nullptr);
    EXPECT_EQ(GetCancellationObject(), nullptr);
    EXPECT_FALSE(IsCancellationRequested());
    EXPECT_NO_THROW(CancellationPoint());
}

TEST_P(CurrentTask, ThreadThatNeverRanATaskHasNoneAndIsNotCancelled) {
    ExpectNoCurrentTask();
    Thread(ExpectNoCurrentTask).join();
}

TEST_P(CurrentTask, InstalledFutureIsTheCurrentOneAndTheResultIsTheOneBefore) {
    const auto first = StartedFuture();
    const auto second = StartedFuture();

    EXPECT_EQ(ResetFutureObject(first).lock(), nullptr);
    EXPECT_EQ(GetFutureObject(), first);

    EXPECT_EQ(ResetFutureObject(second).lock(), first);
    EXPECT_EQ(GetFutureObject(), second);
}

TEST_P(CurrentTask, ResetWithAnEmptyPointerLeavesNoCurrentTaskAndReturnsThePreviousOne) {
    const auto future = StartedFuture();
    ResetFutureObject(future);

    EXPECT_EQ(ResetFutureObject({}).lock(), future);

    ExpectNoCurrentTask();
    EXPECT_EQ(ResetFutureObject({}).lock(), nullptr);
}

TEST_P(CurrentTask, ResetWithADestroyedFutureLeavesNoCurrentTask) {
    const auto current = StartedFuture();
    ResetFutureObject(current);
    std::weak_ptr<FutureState> expired = StartedFuture();
    ASSERT_TRUE(expired.expired());

    EXPECT_EQ(ResetFutureObject(expired).lock(), current);

    ExpectNoCurrentTask();
}

TEST_P(CurrentTask, SlotDoesNotKeepTheFutureAlive) {
    auto future = StartedFuture();
    const std::weak_ptr<FutureState> observer = future;
    ResetFutureObject(future);
    EXPECT_EQ(future.use_count(), 1);

    future.reset();

    EXPECT_TRUE(observer.expired());
    ExpectNoCurrentTask();
    EXPECT_TRUE(ResetFutureObject({}).expired());
}

TEST_P(CurrentTask, FutureThatHasNotStartedHasNoCancellationObject) {
    const std::shared_ptr<Future> future(new Future());
    ResetFutureObject(future);

    EXPECT_EQ(GetFutureObject(), future);
    EXPECT_EQ(GetCancellationObject(), nullptr);
    EXPECT_FALSE(IsCancellationRequested());
    EXPECT_NO_THROW(CancellationPoint());
}

TEST_P(CurrentTask, CancellationObjectIsThatOfTheRun) {
    const RunScope run;

    EXPECT_EQ(GetCancellationObject(), run.GetFuture()->GetCancellationObject());
    EXPECT_NE(GetCancellationObject(), nullptr);
}

TEST_P(CurrentTask, CancellationIsHeardOnceItIsRequested) {
    const RunScope run;
    EXPECT_FALSE(IsCancellationRequested());
    EXPECT_NO_THROW(CancellationPoint());

    Thread([&] { run.GetFuture()->RequestCancel(); }).join();

    EXPECT_TRUE(IsCancellationRequested());
    EXPECT_THROW(CancellationPoint(), CancelRequestedException);
    EXPECT_THROW(CancellationPoint(), CancelRequestedException);
}

TEST_P(CurrentTask, CancellationIsForgottenWhenTheRunHasEnded) {
    const RunScope run;
    Thread([&] { run.GetFuture()->RequestCancel(); }).join();
    ASSERT_TRUE(IsCancellationRequested());

    run.GetFuture()->ConfirmCancel();

    EXPECT_EQ(GetCancellationObject(), nullptr);
    EXPECT_FALSE(IsCancellationRequested());
}

TEST_P(CurrentTask, BelongsToOneThreadAlone) {
    const RunScope run;
    run.Cancellation().RequestCancel();

    Thread(ExpectNoCurrentTask).join();

    EXPECT_TRUE(IsCancellationRequested());
}

// The answer comes from the future's own virtual operation, so that a derived future decides.
TEST_P(CurrentTask, CancellationObjectComesFromTheFuturesVirtualOperation) {
    struct OtherRun : Future {
        std::shared_ptr<CancellationObject> other{new CancellationObject()};
        std::shared_ptr<CancellationObject> GetCancellationObject() override { return other; }
    };
    const RunScopeOf<OtherRun> run;

    EXPECT_EQ(Orvane::Internal::GetCancellationObject(), run.GetFuture()->other);
    run.GetFuture()->other->RequestCancel();
    EXPECT_TRUE(IsCancellationRequested());
}

TEST_P(CurrentTask, TaskThatRunsAnotherInlineIsCurrentAgainAfterwards) {
    std::shared_ptr<Future> outerFuture;
    std::shared_ptr<Future> innerFuture;
    Task outer = MakeTask(
        L"outer",
        [&] {
            EXPECT_EQ(GetFutureObject(), outerFuture);
            Task inner = MakeTask(L"inner", [&] { EXPECT_EQ(GetFutureObject(), innerFuture); }, innerFuture);
            inner();
            EXPECT_TRUE(innerFuture->IsNormal());
            EXPECT_EQ(GetFutureObject(), outerFuture);
        },
        outerFuture);

    outer();

    EXPECT_TRUE(outerFuture->IsNormal());
    ExpectNoCurrentTask();
}

TEST_P(CurrentTask, TaskThatRunsAnotherInlineIsCurrentAgainWhenThatOneThrows) {
    std::shared_ptr<Future> outerFuture;
    Task outer = MakeTask(
        L"outer",
        [&] {
            Task inner = MakeTask(L"inner", [] { throw ThreadException(); });
            inner();
            EXPECT_EQ(GetFutureObject(), outerFuture);
        },
        outerFuture);

    outer();

    EXPECT_TRUE(outerFuture->IsNormal());
    ExpectNoCurrentTask();
}

TEST_P(CurrentTask, CancellingTheOuterTaskDoesNotCancelTheOneThatItRunsInline) {
    const RunScope outer;
    outer.Cancellation().RequestCancel();
    {
        const RunScope inner;
        EXPECT_FALSE(IsCancellationRequested());
    }

    EXPECT_TRUE(IsCancellationRequested());
}

TEST_P(CurrentTask, TaskSeesItsOwnFutureAndItsOwnCancellation) {
    std::shared_ptr<Future> future;
    bool sawItself = false;
    Task task = MakeTask(
        L"self",
        [&] {
            sawItself = GetFutureObject() == future;
            Thread([&] { future->RequestCancel(); }).join();
            CancellationPoint();
        },
        future);

    task();

    EXPECT_TRUE(sawItself);
    EXPECT_TRUE(future->IsCancelled());
}

}  // namespace
