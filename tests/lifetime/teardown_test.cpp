// What the last uninitialisation destroys, in which order, and what comes after it.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <thread>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/lifetime/library_use.h"
#include "tests/lifetime/slot_ledger.h"
#include "tests/lifetime/started_threads.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/resource_probe.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::size_t kPoolSize = 8;

// A pool task that stays until the gate is opened.
class HeldTask {
  public:
    HeldTask()
        : m_task(MakeTask(L"held", [this] {
              m_entered.Open();
              m_release.Wait();
              if (m_atEnd) {
                  m_atEnd();
              }
          })) {
        GlobalThreadPool::Queue(m_task);
        m_entered.Wait();
    }

    void AtEnd(std::function<void()> action) { m_atEnd = std::move(action); }
    void Release() { m_release.Open(); }

  private:
    std::function<void()> m_atEnd;
    Gate m_entered;
    Gate m_release;
    Task m_task;
};

TEST(Teardown, PoolAndSchedulerStayUntilTheSecondOfTwoUninitialisations) {
    const StartedThreads threads;
    ConcurrencyInitialize();
    ConcurrencyInitialize();
    UseScheduler();
    ASSERT_EQ(threads.Count(), 1 + kPoolSize);

    ConcurrencyUninitialize();
    EXPECT_EQ(threads.AliveCount(), 1 + kPoolSize);
    UseScheduler();
    EXPECT_EQ(threads.Count(), 1 + kPoolSize);

    ConcurrencyUninitialize();
    EXPECT_EQ(threads.AliveCount(), 0U);
}

TEST(Teardown, PoolAloneIsTornDown) {
    const StartedThreads threads;
    ConcurrencyInitialize();
    UsePool();
    ASSERT_EQ(threads.Count(), kPoolSize);

    ConcurrencyUninitialize();

    EXPECT_EQ(threads.AliveCount(), 0U);
    EXPECT_EQ(threads.Count(), kPoolSize);
}

TEST(Teardown, SchedulerAloneIsTornDown) {
    const StartedThreads threads;
    ConcurrencyInitialize();
    CreateScheduler();
    ASSERT_EQ(threads.Count(), 1U);

    ConcurrencyUninitialize();

    EXPECT_EQ(threads.AliveCount(), 0U);
    EXPECT_EQ(threads.Count(), 1U);
}

TEST(Teardown, TaskQueuedAfterAFullCycleGetsAFreshPool) {
    const StartedThreads threads;
    for (std::size_t cycle = 1; cycle <= 3; ++cycle) {
        const ConcurrencyLifetime lifetime;
        UsePool();
        EXPECT_EQ(threads.Count(), cycle * kPoolSize);
        EXPECT_EQ(threads.AliveCount(), kPoolSize);
    }
    EXPECT_EQ(threads.AliveCount(), 0U);
}

TEST(Teardown, TaskScheduledAfterAFullCycleGetsAFreshScheduler) {
    const StartedThreads threads;
    for (std::size_t cycle = 1; cycle <= 3; ++cycle) {
        const ConcurrencyLifetime lifetime;
        UseScheduler();
        EXPECT_EQ(threads.Count(), cycle * (1 + kPoolSize));
        EXPECT_EQ(threads.AliveCount(), 1 + kPoolSize);
    }
    EXPECT_EQ(threads.AliveCount(), 0U);
}

// While a task keeps the pool from ending, the scheduler, which queues into it, must have gone.
TEST(Teardown, SchedulerGoesBeforeThePool) {
    const StartedThreads threads;
    ConcurrencyInitialize();
    CreateScheduler();
    constexpr std::size_t kScheduler = 0;
    HeldTask held;
    ASSERT_EQ(threads.Count(), 1 + kPoolSize);
    std::atomic<bool> returned = false;
    std::thread uninitialising([&] {
        ConcurrencyUninitialize();
        returned = true;
    });

    EXPECT_TRUE(Eventually([&] { return !threads.IsAlive(kScheduler); }, 20s));
    EXPECT_FALSE(returned);
    EXPECT_GE(threads.AliveCount(), 1U);

    held.Release();
    uninitialising.join();
    EXPECT_EQ(threads.AliveCount(), 0U);
}

TEST(Teardown, TaskThatTheLastUninitialisationWaitsForStillHasItsSlot) {
    const SlotLedger ledger;
    ConcurrencyInitialize();
    HeldTask held;
    bool hadATask = false;
    bool slotWasAllocated = false;
    held.AtEnd([&] {
        hadATask = GetCancellationObject() != nullptr;
        slotWasAllocated = ledger.FreeCount() == 0;
    });
    std::thread uninitialising([] { ConcurrencyUninitialize(); });
    std::this_thread::sleep_for(50ms);

    EXPECT_EQ(ledger.FreeCount(), 0U);
    held.Release();
    uninitialising.join();

    EXPECT_TRUE(hadATask);
    EXPECT_TRUE(slotWasAllocated);
    EXPECT_EQ(ledger.FreeCount(), 1U);
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

// The scheduler's thread asks while it is waited for; until the teardown is over the answer is the one before it.
TEST(Teardown, AskingWhetherTheLibraryIsInitialisedDoesNotBlockDuringIt) {
    ConcurrencyInitialize();
    HeldTask held;
    bool answerInTheTask = false;
    held.AtEnd([&] { answerInTheTask = IsConcurrencyInitialized(); });
    std::thread uninitialising([] { ConcurrencyUninitialize(); });
    std::this_thread::sleep_for(50ms);

    EXPECT_TRUE(IsConcurrencyInitialized());
    held.Release();
    uninitialising.join();

    EXPECT_TRUE(answerInTheTask);
    EXPECT_FALSE(IsConcurrencyInitialized());
}

TEST(Teardown, InitialisationFromAnotherThreadWaitsUntilItIsOver) {
    const StartedThreads threads;
    ConcurrencyInitialize();
    HeldTask held;
    std::thread uninitialising([] { ConcurrencyUninitialize(); });
    std::this_thread::sleep_for(50ms);
    std::atomic<bool> initialised = false;
    std::size_t aliveThen = 99;
    std::thread initialising([&] {
        ConcurrencyInitialize();
        aliveThen = threads.AliveCount();
        initialised = true;
    });

    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(initialised);
    held.Release();
    uninitialising.join();
    initialising.join();

    EXPECT_EQ(aliveThen, 0U);
    EXPECT_TRUE(IsConcurrencyInitialized());
    ConcurrencyUninitialize();
}

TEST(Teardown, UninitialisationInAPoolTaskThatIsNotTheLastIsAllowed) {
    ConcurrencyInitialize();
    ConcurrencyInitialize();
    Task task = MakeTask(L"uninitialises", [] { ConcurrencyUninitialize(); });
    GlobalThreadPool::Queue(task);
    task.Wait();

    EXPECT_TRUE(IsConcurrencyInitialized());
    ConcurrencyUninitialize();
    EXPECT_FALSE(IsConcurrencyInitialized());
}

// Pool and scheduler may be used without initialisation; what is left of them goes with the next lifetime.
TEST(Teardown, OverReleaseDestroysNothing) {
    const StartedThreads threads;
    UseScheduler();
    ASSERT_EQ(threads.AliveCount(), 1 + kPoolSize);

    ConcurrencyUninitialize();  // to -1
    EXPECT_EQ(threads.AliveCount(), 1 + kPoolSize);

    ConcurrencyInitialize();  // to 0
    EXPECT_EQ(threads.AliveCount(), 1 + kPoolSize);
    UseScheduler();
    EXPECT_EQ(threads.Count(), 1 + kPoolSize);

    ConcurrencyInitialize();    // to 1
    ConcurrencyUninitialize();  // to 0
    EXPECT_EQ(threads.AliveCount(), 0U);
}

TEST(Teardown, WhatWasUsedBeforeInitialisationIsTornDownByTheLastUninitialisation) {
    const StartedThreads threads;
    UseScheduler();
    EXPECT_FALSE(IsConcurrencyInitialized());

    { const ConcurrencyLifetime lifetime; }

    EXPECT_EQ(threads.AliveCount(), 0U);
}

// A task that overruns makes the scheduler's thread ask whether the library is initialised, also while the last
// uninitialisation waits for that thread.
TEST(Teardown, EndsWhileARecurrentTaskOverruns) {
    const RecordedReports reports;
    for (int cycle = 0; cycle < 20; ++cycle) {
        const ConcurrencyLifetime lifetime;
        const auto count = reports.Count(L"Scheduler");
        Task slow = MakeTask(L"slow", [] { std::this_thread::sleep_for(5ms); });
        GlobalScheduler::Insert(ScheduledTask(slow, TimeFromNow(0ms), 1ms));
        ASSERT_TRUE(Eventually([&] { return reports.Count(L"Scheduler") > count; }));
    }
    EXPECT_FALSE(IsConcurrencyInitialized());
}

TEST(Teardown, NothingIsLeftOf200CyclesOfUse) {
    const auto cycle = [] {
        const ConcurrencyLifetime lifetime;
        UsePool();
        UseScheduler();
        UseDedicatedThread();
    };
    cycle();
    const ResourceProbe probe;

    for (int round = 0; round < 200; ++round) {
        cycle();
    }

    EXPECT_TRUE(Eventually([&] { return probe.Growth() == Resources{}; }, 10s)) << probe.Growth();
}

TEST(Teardown, NothingIsLeftOf200CyclesWithoutUse) {
    { const ConcurrencyLifetime lifetime; }
    const ResourceProbe probe;

    for (int round = 0; round < 200; ++round) {
        const ConcurrencyLifetime lifetime;
    }

    EXPECT_EQ(probe.Growth(), Resources{});
}

}  // namespace
