#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/cancellation/notifiers.h"
#include "tests/cancellation/run_scope.h"
#include "tests/cancellation/wait_faults.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/support/resource_probe.h"
#include "tests/support/stopwatch.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// Each claim holds on a thread without a task and on one whose task is not cancelled.
class CancellableWaitForSingleObjectAnywhere : public testing::TestWithParam<bool> {
  protected:
    CancellableWaitForSingleObjectAnywhere() {
        if (GetParam()) {
            m_run.emplace();
        }
    }

  private:
    std::optional<RunScope> m_run;
};
INSTANTIATE_TEST_SUITE_P(Thread, CancellableWaitForSingleObjectAnywhere, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& inTask) -> std::string {
                             return inTask.param ? "InATask" : "OutsideATask";
                         });

TEST_P(CancellableWaitForSingleObjectAnywhere, ReturnsZeroAndTakesTheSignalOfASignalledEvent) {
    const Event event(true);

    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), 0U);

    EXPECT_FALSE(event.Take());
}

TEST_P(CancellableWaitForSingleObjectAnywhere, ReturnsZeroWhenTheEventIsSignalledDuringTheWait) {
    const Event event;
    Thread signaller([&] {
        std::this_thread::sleep_for(20ms);
        event.Signal();
    });

    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), 0U);

    signaller.join();
}

TEST_P(CancellableWaitForSingleObjectAnywhere, PollsWithATimeOutOfZero) {
    const Event signalled(true);
    const Event silent;

    EXPECT_EQ(CancellableWaitForSingleObject(signalled.Get(), 0), 0U);
    EXPECT_EQ(CancellableWaitForSingleObject(silent.Get(), 0), 0x102U);
}

TEST_P(CancellableWaitForSingleObjectAnywhere, ReturnsWaitTimeoutAfterTheTimeOut) {
    const Event event;
    const Stopwatch stopwatch;

    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), 100), 0x102U);

    EXPECT_GE(stopwatch.Elapsed(), 99ms);
}

TEST_P(CancellableWaitForSingleObjectAnywhere, ReturnsWaitAbandonedAndOwnsTheMutex) {
    const AbandonedMutex mutex;

    EXPECT_EQ(CancellableWaitForSingleObject(mutex.Get(), INFINITE), 0x80U);

    EXPECT_TRUE(ReleaseMutex(mutex.Get()));
}

TEST_P(CancellableWaitForSingleObjectAnywhere, ReturnsWaitFailedWithError6ForANullHandle) {
    SetLastError(0);

    EXPECT_EQ(CancellableWaitForSingleObject(nullptr, INFINITE), 0xFFFFFFFFU);

    EXPECT_EQ(GetLastError(), 6U);
}

TEST_P(CancellableWaitForSingleObjectAnywhere, ReturnsWaitFailedWithError6ForAHandleThatIsNone) {
    SetLastError(0);

    EXPECT_EQ(CancellableWaitForSingleObject(reinterpret_cast<HANDLE>(std::uintptr_t{0x7FFF0}), 0), 0xFFFFFFFFU);

    EXPECT_EQ(GetLastError(), 6U);
}

// The event of a failed wait is closed, which must not cover up why the wait failed.
TEST_P(CancellableWaitForSingleObjectAnywhere, LastErrorOfTheFailedWaitSurvivesTheRelease) {
    const NoisyClose noisyClose;

    EXPECT_EQ(CancellableWaitForSingleObject(nullptr, 0), 0xFFFFFFFFU);

    const DWORD error = GetLastError();
    EXPECT_EQ(error, 6U);
    EXPECT_EQ(noisyClose.Count(), 1);  // or the error had nothing to survive
}

TEST_P(CancellableWaitForSingleObjectAnywhere, FailsAsThePlatformDecidesWhenNoEventCanBeCreated) {
    const NoEvents noEvents;
    const Event event(true);
    SetLastError(0);

    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), 0xFFFFFFFFU);

    EXPECT_EQ(GetLastError(), 6U);
    EXPECT_TRUE(event.Take());
}

TEST_P(CancellableWaitForSingleObjectAnywhere, ReturnsOneWhenItsEventIsSignalledWithoutARequest) {
    const SignalledEvents signalled;
    const Event event;

    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), 1U);
}

TEST_P(CancellableWaitForSingleObjectAnywhere, CallersHandleWinsOverTheEvent) {
    const SignalledEvents signalled;
    const Event event(true);

    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), 0U);
}

TEST_P(CancellableWaitForSingleObjectAnywhere, HandsTheTimeOutToThePlatformUnchanged) {
    const RecordedWaits waits;
    const Event event;

    for (const DWORD milliseconds : {0UL, 1UL, 123'456UL, 0xFFFFFFFEUL, 0xFFFFFFFFUL}) {
        EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), milliseconds), 0x102U);
        ASSERT_FALSE(waits.List().empty());
        EXPECT_EQ(waits.List().back().milliseconds, milliseconds);
    }
    EXPECT_EQ(waits.List().size(), 5U);
}

TEST_P(CancellableWaitForSingleObjectAnywhere, WaitsForAnyOfTwoHandlesTheCallersFirst) {
    const RecordedWaits waits;
    const Event event;

    CancellableWaitForSingleObject(event.Get(), 5);

    ASSERT_EQ(waits.List().size(), 1U);
    const RecordedWaits::Wait& wait = waits.List()[0];
    ASSERT_EQ(wait.handles.size(), 2U);
    EXPECT_EQ(wait.handles[0], event.Get());
    EXPECT_NE(wait.handles[1], nullptr);
    EXPECT_NE(wait.handles[1], event.Get());
    EXPECT_FALSE(wait.all);
}

TEST(CancellableWaitForSingleObject, ThrowsBeforeItWaitsWhenCancellationWasRequested) {
    const RunScope run;
    run.Cancellation().RequestCancel();
    const Event silent;

    EXPECT_THROW(CancellableWaitForSingleObject(silent.Get(), 10'000), CancelRequestedException);
    EXPECT_THROW(CancellableWaitForSingleObject(silent.Get(), 0), CancelRequestedException);
    EXPECT_THROW(CancellableWaitForSingleObject(nullptr, 0), CancelRequestedException);
}

TEST(CancellableWaitForSingleObject, ThrownBeforeTheWaitTheSignalIsNotTaken) {
    const RunScope run;
    run.Cancellation().RequestCancel();
    const Event signalled(true);

    EXPECT_THROW(CancellableWaitForSingleObject(signalled.Get(), 0), CancelRequestedException);

    EXPECT_TRUE(signalled.Take());
}

TEST(CancellableWaitForSingleObject, ThrowsWhenTheTaskIsCancelledDuringTheWait) {
    const Event event;
    TaskThread waiter([&] { CancellableWaitForSingleObject(event.Get(), INFINITE); });

    waiter.Cancel();

    EXPECT_TRUE(waiter.EndedCancelled());
}

TEST(CancellableWaitForSingleObject, GoesOnWhenTheHandleIsSignalledBeforeTheTaskIsCancelled) {
    const Event event;
    DWORD result = 99;
    TaskThread waiter([&] { result = CancellableWaitForSingleObject(event.Get(), INFINITE); });

    event.Signal();

    EXPECT_TRUE(waiter.EndedNormally());
    EXPECT_EQ(result, 0U);
}

TEST(CancellableWaitForSingleObject, RequestBetweenTheTestAndTheWaitIsNotMissed) {
    const RunScope run;
    const RequestAtTheWait late(run);
    const Event event;

    EXPECT_THROW(CancellableWaitForSingleObject(event.Get(), INFINITE), CancelRequestedException);
}

// Whoever was given the handle must learn it, or its ownership is lost.
TEST(CancellableWaitForSingleObject, CallersHandleWinsOverACancellationAtTheSameMoment) {
    const RunScope run;
    const Event event;
    const RequestAtTheWait late(run, event.Get());

    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), 0U);

    EXPECT_TRUE(IsCancellationRequested());
    EXPECT_FALSE(event.Take());
}

TEST(CancellableWaitForSingleObject, SignalOfAnEarlierWaitDoesNotReachALaterOne) {
    const Event event;
    {
        const RunScope run;
        const RequestAtTheWait late(run, event.Get());
        ASSERT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), 0U);
        ASSERT_TRUE(IsCancellationRequested());
    }

    const RunScope run;
    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), 0), 0x102U);
}

TEST(CancellableWaitForSingleObject, ReplacesTheTasksOwnNotifierAndDoesNotRestoreIt) {
    const RunScope run;
    const auto own = std::make_shared<CountingNotifier>();
    run.Cancellation().RegisterNotifier(own);
    const Event event(true);

    CancellableWaitForSingleObject(event.Get(), 0);
    run.Cancellation().RequestCancel();

    EXPECT_EQ(own->Count(), 0);
}

TEST(CancellableWaitForSingleObject, EveryWayOutReleasesItsEvent) {
    const RunScope run;
    const Event silent;
    const Event signalled;
    const auto leaveInEveryWay = [&] {
        signalled.Signal();
        EXPECT_EQ(CancellableWaitForSingleObject(signalled.Get(), 0), 0U);
        EXPECT_EQ(CancellableWaitForSingleObject(silent.Get(), 0), 0x102U);
        EXPECT_EQ(CancellableWaitForSingleObject(nullptr, 0), 0xFFFFFFFFU);
        const RunScope cancelled;
        cancelled.Cancellation().RequestCancel();
        EXPECT_THROW(CancellableWaitForSingleObject(silent.Get(), INFINITE), CancelRequestedException);
    };
    leaveInEveryWay();
    const ResourceProbe probe;

    for (int round = 0; round < 300; ++round) {
        leaveInEveryWay();
    }

    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST(CancellableWaitForSingleObject, UsesAnEventAgainThatNobodySignalled) {
    const CreatedEvents created;
    const Event silent;
    for (int round = 0; round < 10; ++round) {
        const RunScope run;
        EXPECT_EQ(CancellableWaitForSingleObject(silent.Get(), 0), 0x102U);
    }
    EXPECT_EQ(created.Count(), 1);
}

TEST(CancellableWaitForSingleObject, UsesAnEventAgainWhoseSignalItTook) {
    const CreatedEvents created;
    const Event silent;
    for (int round = 0; round < 10; ++round) {
        const RunScope run;
        const RequestAtTheWait late(run);
        EXPECT_THROW(CancellableWaitForSingleObject(silent.Get(), INFINITE), CancelRequestedException);
    }
    EXPECT_EQ(created.Count(), 1);
}

// It may be the event that the wait failed for.
TEST(CancellableWaitForSingleObject, DoesNotUseAnEventAgainWithWhichAWaitFailed) {
    const CreatedEvents created;
    const Event silent;
    for (int round = 1; round <= 3; ++round) {
        EXPECT_EQ(CancellableWaitForSingleObject(nullptr, 0), 0xFFFFFFFFU);
        EXPECT_EQ(created.Count(), round);
    }
    EXPECT_EQ(CancellableWaitForSingleObject(silent.Get(), 0), 0x102U);
    EXPECT_EQ(created.Count(), 4);
}

TEST(CancellableWaitForSingleObject, SecondSignalDoesNotReachALaterWait) {
    const Event silent;
    {
        const RunScope run;
        const RequestsAroundTheWait twice(run);
        ASSERT_THROW(CancellableWaitForSingleObject(silent.Get(), INFINITE), CancelRequestedException);
    }
    const RunScope run;
    EXPECT_EQ(CancellableWaitForSingleObject(silent.Get(), 0), 0x102U);
}

TEST(CancellableWaitForSingleObject, LastUninitialisationClosesTheEventsThatAreKept) {
    const Event silent;
    const auto waitInitialised = [&] {
        const ConcurrencyLifetime lifetime;
        EXPECT_EQ(CancellableWaitForSingleObject(silent.Get(), 0), 0x102U);
    };
    const CreatedEvents created;
    waitInitialised();
    const ResourceProbe probe;

    waitInitialised();

    EXPECT_EQ(created.Count(), 2);
    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST(CancellableWaitForSingleObject, WaitThatIsCancelledInTheMiddleReleasesItsEvent) {
    const Event event;
    const auto waitUntilRequested = [&] {
        const RunScope run;
        const RequestAtTheWait late(run);
        EXPECT_THROW(CancellableWaitForSingleObject(event.Get(), INFINITE), CancelRequestedException);
    };
    waitUntilRequested();
    const ResourceProbe probe;

    for (int round = 0; round < 100; ++round) {
        waitUntilRequested();
    }

    EXPECT_EQ(probe.Growth(), Resources{});
}

}  // namespace
