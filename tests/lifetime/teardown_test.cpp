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
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::size_t kPoolSize = 8;

// A last uninitialisation on a thread of its own that has begun and cannot end: the scheduler has gone, and the pool
// waits for a task that stays until it is released. Initialise the library before.
class HeldTeardown {
  public:
    // `atEnd` is called in the task before it ends.
    explicit HeldTeardown(std::function<void()> atEnd = [] {}) : m_atEnd(std::move(atEnd)) {
        CreateScheduler();
        GlobalThreadPool::Queue(MakeTask(L"held", [this] {
            m_entered.Open();
            m_release.Wait();
            m_atEnd();
        }));
        m_entered.Wait();
        m_thread = Thread([this] {
            ConcurrencyUninitialize();
            m_returned = true;
        });
        m_hasBegun = Eventually([this] { return !m_threads.IsAlive(kScheduler); }, 20s);
    }
    ~HeldTeardown() { Finish(); }
    HeldTeardown(const HeldTeardown&) = delete;
    HeldTeardown& operator=(const HeldTeardown&) = delete;

    // Whether the scheduler has gone although the pool is still there.
    bool HasBegun() const { return m_hasBegun; }
    bool HasReturned() const { return m_returned; }
    const StartedThreads& Threads() const { return m_threads; }

    // Releases the task and waits for the end.
    void Finish() {
        m_release.Open();
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }

  private:
    static constexpr std::size_t kScheduler = 0;  // the first thread to be started

    const StartedThreads m_threads;
    const std::function<void()> m_atEnd;
    Gate m_entered;
    Gate m_release;
    std::atomic<bool> m_returned = false;
    Thread m_thread;
    bool m_hasBegun = false;
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

// The scheduler queues into the pool: while a task keeps the pool from ending, the scheduler must have gone.
TEST(Teardown, SchedulerGoesBeforeThePool) {
    ConcurrencyInitialize();
    HeldTeardown teardown;

    EXPECT_TRUE(teardown.HasBegun());
    EXPECT_FALSE(teardown.HasReturned());
    EXPECT_GE(teardown.Threads().AliveCount(), 1U);

    teardown.Finish();
    EXPECT_TRUE(teardown.HasReturned());
    EXPECT_EQ(teardown.Threads().AliveCount(), 0U);
}

TEST(Teardown, TaskThatTheLastUninitialisationWaitsForStillHasItsSlot) {
    const SlotLedger ledger;
    ConcurrencyInitialize();
    bool hadATask = false;
    bool hadTheSlot = false;
    HeldTeardown teardown([&] {
        hadATask = GetCancellationObject() != nullptr;
        hadTheSlot = ledger.FreeCount() == 0;
    });
    ASSERT_TRUE(teardown.HasBegun());

    teardown.Finish();

    EXPECT_TRUE(hadATask);
    EXPECT_TRUE(hadTheSlot);
    EXPECT_EQ(ledger.FreeCount(), 1U);
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

// The scheduler's thread asks while it is waited for; until the teardown is over the answer is the one before it.
TEST(Teardown, AskingWhetherTheLibraryIsInitialisedDoesNotBlockDuringIt) {
    ConcurrencyInitialize();
    bool answerInTheTask = false;
    HeldTeardown teardown([&] { answerInTheTask = IsConcurrencyInitialized(); });
    ASSERT_TRUE(teardown.HasBegun());

    EXPECT_TRUE(IsConcurrencyInitialized());
    EXPECT_FALSE(teardown.HasReturned());

    teardown.Finish();
    EXPECT_TRUE(answerInTheTask);
    EXPECT_FALSE(IsConcurrencyInitialized());
}

TEST(Teardown, InitialisationFromAnotherThreadWaitsUntilItIsOver) {
    ConcurrencyInitialize();
    HeldTeardown teardown;
    ASSERT_TRUE(teardown.HasBegun());
    std::atomic<bool> initialised = false;
    std::size_t aliveThen = 99;
    Thread initialising([&] {
        ConcurrencyInitialize();
        aliveThen = teardown.Threads().AliveCount();
        initialised = true;
    });

    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(initialised);

    teardown.Finish();
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
    EXPECT_EQ(GrowthOver(200, cycle), Resources{});
}

TEST(Teardown, NothingIsLeftOf200CyclesWithoutUse) {
    {
        const ConcurrencyLifetime lifetime;
    }
    const ResourceProbe probe;

    for (int round = 0; round < 200; ++round) {
        const ConcurrencyLifetime lifetime;
    }

    EXPECT_EQ(probe.Growth(), Resources{});
}

}  // namespace
