#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <new>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "tests/cancellation/run_scope.h"
#include "tests/cancellation/wait_faults.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/support/allocations.h"
#include "tests/support/import_patch.h"
#include "tests/support/resource_probe.h"
#include "tests/support/stopwatch.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// Each claim holds on a thread without a task and on one whose task is not cancelled.
class CancellableWaitForMultipleObjectsAnywhere : public testing::TestWithParam<bool> {
  protected:
    CancellableWaitForMultipleObjectsAnywhere() {
        if (GetParam()) {
            m_run.emplace();
        }
    }

  private:
    std::optional<RunScope> m_run;
};
INSTANTIATE_TEST_SUITE_P(Thread, CancellableWaitForMultipleObjectsAnywhere, testing::Bool(),
                         [](const testing::TestParamInfo<bool>& inTask) -> std::string {
                             return inTask.param ? "InATask" : "OutsideATask";
                         });

TEST_P(CancellableWaitForMultipleObjectsAnywhere, ReturnsTheIndexOfTheSignalledHandle) {
    const Events events(3);

    for (DWORD index = 0; index < events.Count(); ++index) {
        events.Signal(index);
        EXPECT_EQ(CancellableWaitForMultipleObjects(events.Count(), events.Data(), INFINITE), index);
        EXPECT_FALSE(events.Take(index));
    }
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, ReturnsTheIndexOfTheHandleThatIsSignalledDuringTheWait) {
    const Events events(3);
    Thread signaller([&] {
        std::this_thread::sleep_for(20ms);
        events.Signal(1);
    });

    EXPECT_EQ(CancellableWaitForMultipleObjects(events.Count(), events.Data(), INFINITE), 1U);

    signaller.join();
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, LowestSignalledIndexWinsAndTheOthersKeepTheirSignal) {
    const Events events(4);
    events.Signal(3);
    events.Signal(1);

    EXPECT_EQ(CancellableWaitForMultipleObjects(events.Count(), events.Data(), INFINITE), 1U);

    EXPECT_TRUE(events.Take(3));
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, ReturnsWaitAbandonedPlusTheCallersIndexAndOwnsTheMutex) {
    const Events events(2);
    const AbandonedMutex mutex;
    const HANDLE handles[] = {events[0], events[1], mutex.Get()};

    EXPECT_EQ(CancellableWaitForMultipleObjects(3, handles, INFINITE), 0x82U);

    EXPECT_TRUE(ReleaseMutex(mutex.Get()));
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, ReturnsWaitFailedWithError6ForANullHandleAmongThem) {
    const Events events(1);
    const HANDLE handles[] = {events[0], nullptr};
    SetLastError(0);

    EXPECT_EQ(CancellableWaitForMultipleObjects(2, handles, INFINITE), 0xFFFFFFFFU);

    EXPECT_EQ(GetLastError(), 6U);
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, SixtyThreeHandlesWork) {
    const Events events(63);
    events.Signal(62);

    EXPECT_EQ(CancellableWaitForMultipleObjects(events.Count(), events.Data(), INFINITE), 62U);
    EXPECT_EQ(CancellableWaitForMultipleObjects(events.Count(), events.Data(), 0), 0x102U);
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, SixtyFourHandlesAreRefusedWithError87) {
    const Events events(64);
    events.Signal(0);
    SetLastError(0);

    EXPECT_EQ(CancellableWaitForMultipleObjects(events.Count(), events.Data(), INFINITE), 0xFFFFFFFFU);

    EXPECT_EQ(GetLastError(), 87U);
    EXPECT_TRUE(events.Take(0));
}

// The event of a failed wait is closed, which must not cover up why the wait failed.
TEST_P(CancellableWaitForMultipleObjectsAnywhere, LastErrorOfTheFailedWaitSurvivesTheRelease) {
    const NoisyClose noisyClose;
    const Events events(64);

    EXPECT_EQ(CancellableWaitForMultipleObjects(events.Count(), events.Data(), 0), 0xFFFFFFFFU);

    const DWORD error = GetLastError();
    EXPECT_EQ(error, 87U);
    EXPECT_EQ(noisyClose.Count(), 1);  // or the error had nothing to survive
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, WithoutHandlesItReturnsWaitTimeoutAfterTheTimeOut) {
    const Stopwatch stopwatch;

    EXPECT_EQ(CancellableWaitForMultipleObjects(0, nullptr, 0), 0x102U);
    EXPECT_EQ(CancellableWaitForMultipleObjects(0, nullptr, 100), 0x102U);

    EXPECT_GE(stopwatch.Elapsed(), 99ms);
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, ReturnsTheCountWhenItsEventIsSignalledWithoutARequest) {
    const Events events(3);
    const SignalledEvents signalled;

    EXPECT_EQ(CancellableWaitForMultipleObjects(0, nullptr, INFINITE), 0U);
    EXPECT_EQ(CancellableWaitForMultipleObjects(3, events.Data(), INFINITE), 3U);
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, CallersHandleWinsOverTheEvent) {
    const Events events(3);
    const SignalledEvents signalled;
    events.Signal(2);

    EXPECT_EQ(CancellableWaitForMultipleObjects(3, events.Data(), INFINITE), 2U);
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, FailsAsThePlatformDecidesWhenNoEventCanBeCreated) {
    const Events events(2);
    const NoEvents noEvents;
    events.Signal(0);
    SetLastError(0);

    EXPECT_EQ(CancellableWaitForMultipleObjects(2, events.Data(), INFINITE), 0xFFFFFFFFU);

    EXPECT_EQ(GetLastError(), 6U);
    EXPECT_TRUE(events.Take(0));
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, WaitsForAnyOfTheCallersHandlesInTheirOrderWithTheEventLast) {
    const Events events(5);
    const RecordedWaits waits;

    CancellableWaitForMultipleObjects(events.Count(), events.Data(), 5);

    ASSERT_EQ(waits.List().size(), 1U);
    std::vector<HANDLE> handles = waits.List()[0].handles;
    ASSERT_EQ(handles.size(), 6U);
    EXPECT_NE(handles.back(), nullptr);
    handles.pop_back();
    EXPECT_EQ(handles, std::vector<HANDLE>(events.Data(), events.Data() + events.Count()));
    EXPECT_FALSE(waits.List()[0].all);
}

TEST_P(CancellableWaitForMultipleObjectsAnywhere, HandsTheTimeOutToThePlatformUnchanged) {
    const Events events(2);
    const RecordedWaits waits;

    for (const DWORD milliseconds : {0UL, 1UL, 123'456UL, 0xFFFFFFFEUL, 0xFFFFFFFFUL}) {
        CancellableWaitForMultipleObjects(events.Count(), events.Data(), milliseconds);
        ASSERT_FALSE(waits.List().empty());
        EXPECT_EQ(waits.List().back().milliseconds, milliseconds);
    }
    EXPECT_EQ(waits.List().size(), 5U);
}

TEST(CancellableWaitForMultipleObjects, ThrowsBeforeItWaitsWhenCancellationWasRequested) {
    const RunScope run;
    run.Cancellation().RequestCancel();
    const Events events(2);
    events.Signal(1);

    EXPECT_THROW(CancellableWaitForMultipleObjects(2, events.Data(), 10'000), CancelRequestedException);
    EXPECT_THROW(CancellableWaitForMultipleObjects(2, events.Data(), 0), CancelRequestedException);
    EXPECT_THROW(CancellableWaitForMultipleObjects(0, nullptr, 0), CancelRequestedException);

    EXPECT_TRUE(events.Take(1));
}

TEST(CancellableWaitForMultipleObjects, ThrowsWhenTheTaskIsCancelledDuringTheWait) {
    const Events events(3);
    TaskThread waiter([&] { CancellableWaitForMultipleObjects(events.Count(), events.Data(), INFINITE); });

    waiter.Cancel();

    EXPECT_TRUE(waiter.EndedCancelled());
}

TEST(CancellableWaitForMultipleObjects, WithSixtyThreeHandlesItThrowsWhenTheTaskIsCancelledDuringTheWait) {
    const Events events(63);
    TaskThread waiter([&] { CancellableWaitForMultipleObjects(events.Count(), events.Data(), INFINITE); });

    waiter.Cancel();

    EXPECT_TRUE(waiter.EndedCancelled());
}

TEST(CancellableWaitForMultipleObjects, WithoutHandlesItWaitsForCancellation) {
    TaskThread waiter([] { CancellableWaitForMultipleObjects(0, nullptr, INFINITE); });

    waiter.Cancel();

    EXPECT_TRUE(waiter.EndedCancelled());
}

TEST(CancellableWaitForMultipleObjects, CountIsNeverReturnedWhileARequestIsPending) {
    const RunScope run;
    const RequestAtTheWait late(run);
    const Events events(2);

    EXPECT_THROW(CancellableWaitForMultipleObjects(2, events.Data(), INFINITE), CancelRequestedException);
}

TEST(CancellableWaitForMultipleObjects, CallersIndexWinsOverACancellationAtTheSameMoment) {
    const RunScope run;
    const Events events(3);
    const RequestAtTheWait late(run, events[2]);

    EXPECT_EQ(CancellableWaitForMultipleObjects(3, events.Data(), INFINITE), 2U);

    EXPECT_TRUE(IsCancellationRequested());
    EXPECT_FALSE(events.Take(2));
}

TEST(CancellableWaitForMultipleObjects, EveryWayOutReleasesItsEventAndItsArray) {
    const RunScope run;
    const Events events(3);
    const Events tooMany(64);
    const auto leaveInEveryWay = [&] {
        events.Signal(1);
        EXPECT_EQ(CancellableWaitForMultipleObjects(3, events.Data(), 0), 1U);
        EXPECT_EQ(CancellableWaitForMultipleObjects(3, events.Data(), 0), 0x102U);
        EXPECT_EQ(CancellableWaitForMultipleObjects(64, tooMany.Data(), 0), 0xFFFFFFFFU);
    };
    const auto leaveCancelled = [&] {
        const RunScope cancelled;
        const RequestAtTheWait late(cancelled);
        EXPECT_THROW(CancellableWaitForMultipleObjects(3, events.Data(), INFINITE), CancelRequestedException);
        EXPECT_THROW(CancellableWaitForMultipleObjects(3, events.Data(), INFINITE), CancelRequestedException);
    };
    leaveInEveryWay();
    leaveCancelled();
    const ResourceProbe probe;

    for (int round = 0; round < 300; ++round) {
        leaveInEveryWay();
        leaveCancelled();
    }

    EXPECT_EQ(probe.Growth(), Resources{});
}

// The array for the largest count has one handle more than a DWORD can count.
// A gibibyte and more cannot be had.
class NoLargeMemory {
  public:
    NoLargeMemory() { g_allocate = m_patch.Original<void*(std::size_t)>(); }

  private:
    static void* Allocate(std::size_t size) { return size < std::size_t{1} << 30 ? g_allocate(size) : nullptr; }

    static inline void* (*g_allocate)(std::size_t) = nullptr;
    ImportPatch m_patch{GetModuleHandleW(L"libstdc++-6.dll"), "malloc", &Allocate};
};

TEST(CancellableWaitForMultipleObjects, NoMemoryForTheArrayIsBadAllocAlsoForTheLargestCount) {
    if (GetModuleHandleW(L"libstdc++-6.dll") == nullptr) {
        GTEST_SKIP() << "made for the GNU runtime";
    }
    const RunScope run;
    const auto ask = [] {
        const NoLargeMemory noLargeMemory;
        EXPECT_THROW(CancellableWaitForMultipleObjects(0xFFFFFFFF, nullptr, 0), std::bad_alloc);
        EXPECT_THROW(CancellableWaitForMultipleObjects(0x40000000, nullptr, 0), std::bad_alloc);
    };
    LiveBlocks();  // counting must begin before its functions are replaced once more
    ask();
    const ResourceProbe probe;

    ask();

    EXPECT_EQ(probe.Growth(), Resources{});
}

}  // namespace
