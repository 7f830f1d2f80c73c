// Callables that the last uninitialisation destroys: their destructors are user code on its thread.
#include <gtest/gtest.h>

#include <chrono>

#include "concurrency/base/time.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/scheduled_task.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/lifetime/library_use.h"
#include "tests/lifetime/slot_ledger.h"
#include "tests/lifetime/started_threads.h"
#include "tests/support/eventually.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

void ExpectOneSlotGivenBack(const SlotLedger& ledger) {
    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.AllocationCount(), 1U);
    EXPECT_EQ(ledger.FreeCount(), 1U);
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(TeardownOfCallables, MayInitialiseAndUninitialise) {
    const SlotLedger ledger;
    bool wasInitialised = false;
    {
        const ConcurrencyLifetime lifetime;
        const auto use = [&] {
            const ConcurrencyLifetime own;
            wasInitialised = IsConcurrencyInitialized();
            UsePool();
        };
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"left", [end = AtEnd(use)] {}), TimeFromNow(1h), Duration(0)));
    }
    EXPECT_TRUE(wasInitialised);
    ExpectOneSlotGivenBack(ledger);
}

// An initialisation that is left behind counts: the slot goes with its own uninitialisation.
TEST(TeardownOfCallables, MayInitialiseForGood) {
    const SlotLedger ledger;
    {
        const ConcurrencyLifetime lifetime;
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"left", [end = AtEnd([] { ConcurrencyInitialize(); })] {}),
                                              TimeFromNow(1h), Duration(0)));
    }
    EXPECT_TRUE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.FreeCount(), 0U);
    UsePool();

    ConcurrencyUninitialize();
    ExpectOneSlotGivenBack(ledger);
}

// As anywhere else, one uninitialisation too many only counts.
TEST(TeardownOfCallables, MayUninitialiseOnceTooOften) {
    const SlotLedger ledger;
    {
        const ConcurrencyLifetime lifetime;
        UsePool();
        GlobalScheduler::Insert(ScheduledTask(MakeTask(L"left", [end = AtEnd([] { ConcurrencyUninitialize(); })] {}),
                                              TimeFromNow(1h), Duration(0)));
    }
    ExpectOneSlotGivenBack(ledger);
    ConcurrencyInitialize();  // from -1
    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.AllocationCount(), 1U);
}

// Queued when all workers have left, it stays in the queue.
TEST(TeardownOfCallables, LeftInThePoolAreDestroyedWithoutTheLockOfItsCreation) {
    const StartedThreads threads;
    bool poolWasFree = false;
    {
        const ConcurrencyLifetime lifetime;
        UsePool();
        GlobalThreadPool::LaunchInNewThread(MakeTask(L"late", [&] {
            ASSERT_TRUE(Eventually([&] { return threads.AliveCount() == 1; }));
            GlobalThreadPool::Queue(MakeTask(L"left", [end = AtEnd([&] {
                                                           const BackgroundCall other([] { UsePool(); });
                                                           poolWasFree = other.Ends();
                                                       })] {}));
        }));
    }
    EXPECT_TRUE(poolWasFree);
    const ConcurrencyLifetime thatOfTheOther;
}

}  // namespace
