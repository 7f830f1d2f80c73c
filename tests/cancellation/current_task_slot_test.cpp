// Where the current task is kept: never in a thread-local slot that belongs to somebody else, and without a leak when
// the platform fails.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/future_impl.h"
#include "tests/cancellation/run_scope.h"
#include "tests/lifetime/slot_ledger.h"
#include "tests/support/allocations.h"
#include "tests/support/gate.h"
#include "tests/support/resource_probe.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Future = FutureImpl<void>;

std::shared_ptr<Future> FutureOfARun() {
    std::shared_ptr<Future> future(new Future());
    future->Start();
    return future;
}

void UseEveryFunction() {
    {
        const RunScope run;
        EXPECT_EQ(GetFutureObject(), run.GetFuture());
        EXPECT_NE(GetCancellationObject(), nullptr);
        EXPECT_FALSE(IsCancellationRequested());
        EXPECT_NO_THROW(CancellationPoint());
    }
    EXPECT_EQ(GetFutureObject(), nullptr);
}

void UseInnerRun(const RunScope& outer) {
    const RunScope inner;
    EXPECT_EQ(GetFutureObject(), inner.GetFuture());
    EXPECT_NE(inner.GetFuture(), outer.GetFuture());
}

// Slots of somebody else, the wanted one among them, each with a value that would crash whoever took it for a cell.
class ForeignSlots {
  public:
    explicit ForeignSlots(DWORD wanted) {
        do {
            m_slots.push_back(TlsAlloc());
            TlsSetValue(m_slots.back(), Value(m_slots.back()));
        } while (m_slots.back() != wanted && m_slots.back() != TLS_OUT_OF_INDEXES);
    }
    ~ForeignSlots() {
        for (const DWORD slot : m_slots) {
            TlsFree(slot);
        }
    }
    ForeignSlots(const ForeignSlots&) = delete;
    ForeignSlots& operator=(const ForeignSlots&) = delete;

    bool GotTheWantedOne() const { return m_slots.back() != TLS_OUT_OF_INDEXES; }

    bool AreUnchanged() const {
        for (const DWORD slot : m_slots) {
            if (TlsGetValue(slot) != Value(slot)) {
                return false;
            }
        }
        return true;
    }

  private:
    static void* Value(DWORD slot) { return reinterpret_cast<void*>(std::uintptr_t{0x100} + slot); }

    std::vector<DWORD> m_slots;
};

TEST(CurrentTaskSlot, BeforeInitialisationNoForeignSlotIsTouched) {
    const SlotLedger ledger;
    void* const firstSlot = TlsGetValue(0);

    UseEveryFunction();
    Thread(UseEveryFunction).join();

    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
    EXPECT_EQ(TlsGetValue(0), firstSlot);
}

TEST(CurrentTaskSlot, WhileInitialisedTheAllocatedSlotIsUsedAndNoOther) {
    const SlotLedger ledger;
    const ConcurrencyLifetime lifetime;

    UseEveryFunction();

    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
    EXPECT_EQ(ledger.Held().size(), 1U);
}

TEST(CurrentTaskSlot, RunThatBeginsBeforeTheInitialisationKeepsItsCurrentTaskAndLeavesNothing) {
    const auto once = [] {
        std::optional<ConcurrencyLifetime> lifetime;
        {
            const RunScope run;
            lifetime.emplace();
            EXPECT_EQ(GetFutureObject(), run.GetFuture());
            UseInnerRun(run);
            EXPECT_EQ(GetFutureObject(), run.GetFuture());
        }
        EXPECT_EQ(GetFutureObject(), nullptr);
    };
    once();  // what is made once per process is no leak
    const ResourceProbe probe;
    once();
    EXPECT_EQ(probe.Growth().blocks, 0);
}

TEST(CurrentTaskSlot, AfterTheLastUninitialisationTheFreedSlotIsLeftToItsNewOwner) {
    const SlotLedger ledger;
    {
        const ConcurrencyLifetime lifetime;
    }
    const ForeignSlots foreign(ledger.LastFreed());
    ASSERT_TRUE(foreign.GotTheWantedOne());

    EXPECT_EQ(GetFutureObject(), nullptr);
    UseEveryFunction();

    EXPECT_TRUE(foreign.AreUnchanged());
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(CurrentTaskSlot, AfterAnOverReleaseTheFreedSlotIsLeftToItsNewOwner) {
    const SlotLedger ledger;
    {
        const ConcurrencyLifetime lifetime;
    }
    const ForeignSlots foreign(ledger.LastFreed());
    ASSERT_TRUE(foreign.GotTheWantedOne());

    ConcurrencyUninitialize();
    UseEveryFunction();
    ConcurrencyInitialize();  // back to 0: still without a slot
    UseEveryFunction();

    EXPECT_TRUE(foreign.AreUnchanged());
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(CurrentTaskSlot, AfterAnOverReleaseOfAFreshLibraryNoForeignSlotIsTouched) {
    const SlotLedger ledger;
    void* const firstSlot = TlsGetValue(0);

    ConcurrencyUninitialize();
    UseEveryFunction();

    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
    EXPECT_EQ(TlsGetValue(0), firstSlot);
}

// Nothing is kept for a thread without a current task, nor for one whose future had gone when it was installed.
TEST(CurrentTaskSlot, HoldsNothingWithoutACurrentTask) {
    const SlotLedger ledger;
    const ConcurrencyLifetime lifetime;
    const DWORD slot = *ledger.Held().begin();
    const auto future = FutureOfARun();
    const std::weak_ptr<FutureState> expired = FutureOfARun();
    EXPECT_EQ(TlsGetValue(slot), nullptr);

    ResetFutureObject(expired);
    EXPECT_EQ(TlsGetValue(slot), nullptr);

    ResetFutureObject(future);
    EXPECT_NE(TlsGetValue(slot), nullptr);
    ResetFutureObject(expired);
    EXPECT_EQ(TlsGetValue(slot), nullptr);

    ResetFutureObject(future);
    ResetFutureObject({});
    EXPECT_EQ(TlsGetValue(slot), nullptr);
}

TEST(CurrentTaskSlot, NewLifetimeBeginsWithoutACurrentTask) {
    const auto future = FutureOfARun();
    ConcurrencyInitialize();
    ResetFutureObject(future);
    ConcurrencyUninitialize();

    const ConcurrencyLifetime lifetime;

    EXPECT_EQ(GetFutureObject(), nullptr);
}

// Many threads may ask before the library is initialised; they agree on one slot.
TEST(CurrentTaskSlot, FirstUseFromManyThreadsBeforeInitialisationKeepsOneSlot) {
    constexpr std::size_t kThreads = 16;
    SlotLedger ledger;
    ledger.PairAllocations();
    Countdown start(kThreads);
    std::list<Thread> threads;
    for (std::size_t index = 0; index < kThreads; ++index) {
        threads.emplace_back([&start] {
            start.Meet();
            UseEveryFunction();
        });
    }
    for (Thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(ledger.Held().size(), 1U);
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(CurrentTaskSlot, SlotThatCannotBeWrittenLeavesNoCurrentTaskAndNoLeak) {
    SlotLedger ledger;
    const ConcurrencyLifetime lifetime;
    const auto future = FutureOfARun();
    UseEveryFunction();
    ledger.FailStores(true);
    const ResourceProbe probe;

    for (int round = 0; round < 100; ++round) {
        EXPECT_TRUE(ResetFutureObject(future).expired());
        EXPECT_EQ(GetFutureObject(), nullptr);
    }

    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST(CurrentTaskSlot, SlotThatCannotBeClearedLeavesNoCurrentTaskAndNoLeak) {
    SlotLedger ledger;
    const ConcurrencyLifetime lifetime;
    const auto future = FutureOfARun();
    UseEveryFunction();
    const ResourceProbe probe;
    ResetFutureObject(future);

    ledger.FailStores(true);
    EXPECT_EQ(ResetFutureObject({}).lock(), future);
    EXPECT_EQ(GetFutureObject(), nullptr);

    ledger.FailStores(false);
    EXPECT_TRUE(ResetFutureObject({}).expired());
    EXPECT_EQ(probe.Growth(), Resources{});
}

TEST(CurrentTaskSlot, WithoutASlotToBeHadInitialisationCountsAndTasksHaveNoCurrentFuture) {
    SlotLedger ledger;
    ledger.FailAllocations(true);
    const auto future = FutureOfARun();

    ConcurrencyInitialize();
    EXPECT_TRUE(IsConcurrencyInitialized());
    const ResourceProbe probe;
    for (int round = 0; round < 100; ++round) {
        EXPECT_TRUE(ResetFutureObject(future).expired());
    }
    EXPECT_EQ(probe.Growth(), Resources{});
    EXPECT_EQ(GetFutureObject(), nullptr);
    EXPECT_FALSE(IsCancellationRequested());
    ConcurrencyUninitialize();

    EXPECT_FALSE(IsConcurrencyInitialized());
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(CurrentTaskSlot, WithoutASlotToBeHadBeforeInitialisationNothingIsTouched) {
    SlotLedger ledger;
    ledger.FailAllocations(true);
    const auto future = FutureOfARun();

    EXPECT_TRUE(ResetFutureObject(future).expired());

    EXPECT_EQ(GetFutureObject(), nullptr);
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(CurrentTaskSlot, InstallingAndRestoringLeaksNothing) {
    const ConcurrencyLifetime lifetime;
    UseEveryFunction();
    const ResourceProbe probe;

    for (int round = 0; round < 1000; ++round) {
        const RunScope outer;
        const RunScope inner;
    }

    EXPECT_EQ(probe.Growth(), Resources{});
}

// A task's end restores the task around it while the stack unwinds: that must not depend on memory.
TEST(CurrentTaskSlot, RestoringThePreviousFutureNeedsNoMemory) {
    const ConcurrencyLifetime lifetime;
    const auto outer = FutureOfARun();
    const auto inner = FutureOfARun();
    ResetFutureObject(outer);
    std::weak_ptr<FutureState> previous = ResetFutureObject(inner);

    {
        const NoMemory noMemory;
        EXPECT_NO_THROW(ResetFutureObject(std::move(previous)));
    }

    EXPECT_EQ(GetFutureObject(), outer);
    ResetFutureObject({});
}

TEST(CurrentTaskSlot, InstallingAFutureWithoutMemoryIsBadAllocAndLeavesNoCurrentTask) {
    const ConcurrencyLifetime lifetime;
    const auto future = FutureOfARun();

    {
        const NoMemory noMemory;
        EXPECT_THROW(ResetFutureObject(future), std::bad_alloc);
    }

    EXPECT_EQ(GetFutureObject(), nullptr);
}

}  // namespace
