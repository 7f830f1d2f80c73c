#include "concurrency/lifetime/concurrency_lifetime.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <list>
#include <optional>
#include <type_traits>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "tests/lifetime/slot_ledger.h"
#include "tests/lifetime/started_threads.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

TEST(ConcurrencyLifetime, LibraryIsNotInitialisedAtLoad) {
    EXPECT_FALSE(IsConcurrencyInitialized());
}

TEST(ConcurrencyLifetime, LibraryIsInitialisedFromTheFirstInitialisationToTheLastUninitialisation) {
    ConcurrencyInitialize();
    EXPECT_TRUE(IsConcurrencyInitialized());
    ConcurrencyInitialize();
    EXPECT_TRUE(IsConcurrencyInitialized());

    ConcurrencyUninitialize();
    EXPECT_TRUE(IsConcurrencyInitialized());
    ConcurrencyUninitialize();
    EXPECT_FALSE(IsConcurrencyInitialized());
}

TEST(ConcurrencyLifetime, OnlyTheFirstInitialisationAllocatesTheSlot) {
    const SlotLedger ledger;

    ConcurrencyInitialize();
    EXPECT_EQ(ledger.AllocationCount(), 1U);

    ConcurrencyInitialize();
    ConcurrencyInitialize();
    EXPECT_EQ(ledger.AllocationCount(), 1U);
    EXPECT_EQ(ledger.FreeCount(), 0U);
}

TEST(ConcurrencyLifetime, OnlyTheLastUninitialisationFreesTheSlot) {
    const SlotLedger ledger;
    ConcurrencyInitialize();
    ConcurrencyInitialize();
    const DWORD slot = *ledger.Held().begin();

    ConcurrencyUninitialize();
    EXPECT_EQ(ledger.FreeCount(), 0U);

    ConcurrencyUninitialize();
    EXPECT_EQ(ledger.FreeCount(), 1U);
    EXPECT_EQ(ledger.LastFreed(), slot);
}

TEST(ConcurrencyLifetime, EachCycleAllocatesAndFreesASlotOfItsOwn) {
    const SlotLedger ledger;

    for (std::size_t cycle = 1; cycle <= 5; ++cycle) {
        ConcurrencyInitialize();
        EXPECT_TRUE(IsConcurrencyInitialized());
        EXPECT_EQ(ledger.AllocationCount(), cycle);
        ConcurrencyUninitialize();
        EXPECT_FALSE(IsConcurrencyInitialized());
        EXPECT_EQ(ledger.FreeCount(), cycle);
    }
    EXPECT_TRUE(ledger.Held().empty());
}

TEST(ConcurrencyLifetime, NeitherPoolNorSchedulerIsCreatedByInitialisation) {
    const StartedThreads threads;

    ConcurrencyInitialize();
    ConcurrencyUninitialize();

    EXPECT_EQ(threads.Count(), 0U);
}

// Each step of one uninitialisation too many.
TEST(ConcurrencyLifetime, OverReleaseIsNotRepaired) {
    const SlotLedger ledger;

    ConcurrencyUninitialize();  // to -1
    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.AllocationCount(), 0U);
    EXPECT_EQ(ledger.FreeCount(), 0U);

    ConcurrencyInitialize();  // to 0
    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.AllocationCount(), 0U);

    ConcurrencyInitialize();  // to 1
    EXPECT_TRUE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.AllocationCount(), 1U);

    ConcurrencyUninitialize();  // to 0
    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.FreeCount(), 1U);
}

TEST(ConcurrencyLifetime, OverReleaseAfterACycleDoesNotFreeTheSlotAgain) {
    const SlotLedger ledger;
    {
        const ConcurrencyLifetime cycle;
    }

    ConcurrencyUninitialize();

    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.FreeCount(), 1U);
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(ConcurrencyLifetime, TwoUninitialisationsTooManyNeedTwoExtraInitialisations) {
    ConcurrencyUninitialize();
    ConcurrencyUninitialize();

    ConcurrencyInitialize();
    EXPECT_FALSE(IsConcurrencyInitialized());
    ConcurrencyInitialize();
    EXPECT_FALSE(IsConcurrencyInitialized());
    ConcurrencyInitialize();
    EXPECT_TRUE(IsConcurrencyInitialized());
}

TEST(ConcurrencyLifetime, ObjectsAndCallsAreCountedTogether) {
    const SlotLedger ledger;
    std::optional<ConcurrencyLifetime> first(std::in_place);
    std::optional<ConcurrencyLifetime> second(std::in_place);
    ConcurrencyInitialize();

    first.reset();
    ConcurrencyUninitialize();
    EXPECT_TRUE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.FreeCount(), 0U);

    second.reset();
    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.AllocationCount(), 1U);
    EXPECT_EQ(ledger.FreeCount(), 1U);
}

TEST(ConcurrencyLifetime, ObjectIsEmptyAndItsDestructorDoesNotThrow) {
    static_assert(std::is_empty_v<ConcurrencyLifetime>);
    static_assert(std::is_nothrow_destructible_v<ConcurrencyLifetime>);
    static_assert(!std::is_copy_constructible_v<ConcurrencyLifetime>);
}

TEST(ConcurrencyLifetime, FailedAllocationOfTheSlotIsNotDetected) {
    SlotLedger ledger;
    ledger.FailAllocations(true);

    EXPECT_NO_THROW(ConcurrencyInitialize());
    EXPECT_TRUE(IsConcurrencyInitialized());

    EXPECT_NO_THROW(ConcurrencyUninitialize());
    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.FreeCount(), 1U) << "the index that is none is handed back unseen";
}

// Runs `body` on several threads at once.
template <typename Body>
void OnManyThreads(Body body) {
    constexpr std::size_t kThreads = 8;
    Countdown start(kThreads);
    std::list<Thread> threads;
    for (std::size_t index = 0; index < kThreads; ++index) {
        threads.emplace_back([&] {
            start.Meet();
            for (int round = 0; round < 1000; ++round) {
                body();
            }
        });
    }
    for (Thread& thread : threads) {
        thread.join();
    }
}

TEST(ConcurrencyLifetime, CallsFromManyThreadsWhileInitialisedKeepOneSlot) {
    const SlotLedger ledger;
    const ConcurrencyLifetime lifetime;

    OnManyThreads([] {
        const ConcurrencyLifetime nested;
        EXPECT_TRUE(IsConcurrencyInitialized());
    });

    EXPECT_TRUE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.AllocationCount(), 1U);
    EXPECT_EQ(ledger.FreeCount(), 0U);
}

TEST(ConcurrencyLifetime, CallsFromManyThreadsThatBeginAndEndLifetimesKeepNoSlot) {
    const SlotLedger ledger;

    OnManyThreads([] {
        const ConcurrencyLifetime lifetime;
        EXPECT_TRUE(IsConcurrencyInitialized());
    });

    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_GE(ledger.AllocationCount(), 1U);
    EXPECT_EQ(ledger.AllocationCount(), ledger.FreeCount());
    EXPECT_TRUE(ledger.Held().empty());
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(ConcurrencyLifetime, InitialisationAndUninitialisationMayHappenOnDifferentThreads) {
    Thread([] { ConcurrencyInitialize(); }).join();
    EXPECT_TRUE(IsConcurrencyInitialized());

    Thread([] { ConcurrencyUninitialize(); }).join();
    EXPECT_FALSE(IsConcurrencyInitialized());
}

}  // namespace
