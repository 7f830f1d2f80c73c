#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "tests/cancellation/notifiers.h"
#include "tests/cancellation/run_scope.h"
#include "tests/cancellation/wait_faults.h"
#include "tests/support/resource_probe.h"
#include "tests/support/stopwatch.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(CancellableSleep, OutsideATaskItIsAnOrdinarySleep) {
    const Stopwatch stopwatch;

    CancellableSleep(100);

    EXPECT_GE(stopwatch.Elapsed(), 99ms);
}

TEST(CancellableSleep, InATaskThatIsNotCancelledItIsAnOrdinarySleep) {
    const RunScope run;
    const Stopwatch stopwatch;

    CancellableSleep(100);

    EXPECT_GE(stopwatch.Elapsed(), 99ms);
}

TEST(CancellableSleep, OfZeroDoesNotWaitInsideNorOutsideATask) {
    const RecordedSleeps sleeps;
    CancellableSleep(0);
    const RunScope run;
    CancellableSleep(0);
    EXPECT_TRUE(sleeps.List().empty());

    CancellableSleep(1);
    EXPECT_EQ(sleeps.List().size(), 1U);
}

// One of them may end early.
TEST(CancellableSleep, OfAMillisecondIsOne) {
    const Stopwatch stopwatch;
    for (int i = 0; i < 20; ++i) {
        CancellableSleep(1);
    }
    EXPECT_GE(stopwatch.Elapsed(), 10ms);
}

TEST(CancellableSleep, WaitsOnceForTheGivenTime) {
    const RecordedSleeps sleeps;

    CancellableSleep(10'000);

    ASSERT_EQ(sleeps.List().size(), 1U);
    EXPECT_LE(sleeps.List()[0], 10'000U);
    EXPECT_GT(sleeps.List()[0], 9'000U);
}

TEST(CancellableSleep, WaitsOnceWithoutALimitForInfiniteTime) {
    const RecordedSleeps sleeps;
    const CountedEndlessSleeps endless;

    CancellableSleep(INFINITE);

    EXPECT_EQ(endless.Count(), 1);
    EXPECT_TRUE(sleeps.List().empty());
}

TEST(CancellableSleep, ThrowsBeforeItWaitsWhenCancellationWasRequested) {
    const RunScope run;
    run.Cancellation().RequestCancel();

    const Stopwatch stopwatch;

    EXPECT_THROW(CancellableSleep(0), CancelRequestedException);
    EXPECT_THROW(CancellableSleep(1), CancelRequestedException);
    EXPECT_THROW(CancellableSleep(60'000), CancelRequestedException);

    EXPECT_LT(stopwatch.Elapsed(), 30s);
}

TEST(CancellableSleep, OfInfiniteTimeLastsUntilTheTaskIsCancelled) {
    TaskThread sleeper([] { CancellableSleep(INFINITE); });
    EXPECT_TRUE(sleeper.IsRunning());

    sleeper.Cancel();

    EXPECT_TRUE(sleeper.EndedCancelled());
}

// One slot for each run: the sleep takes it over and leaves it empty.
TEST(CancellableSleep, ReplacesTheTasksOwnNotifierAndDoesNotRestoreIt) {
    const RunScope run;
    const auto own = std::make_shared<CountingNotifier>();
    run.Cancellation().RegisterNotifier(own);

    CancellableSleep(0);
    run.Cancellation().RequestCancel();

    EXPECT_EQ(own->Count(), 0);
}

TEST(CancellableSleep, EveryWayOutReleasesItsNotifier) {
    const auto leaveInEveryWay = [] {
        CancellableSleep(0);
        const RunScope run;
        CancellableSleep(0);
        run.Cancellation().RequestCancel();
        EXPECT_THROW(CancellableSleep(INFINITE), CancelRequestedException);
    };
    leaveInEveryWay();
    const ResourceProbe probe;

    for (int round = 0; round < 300; ++round) {
        leaveInEveryWay();
    }

    EXPECT_EQ(probe.Growth(), Resources{});
}

}  // namespace
