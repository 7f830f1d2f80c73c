#include "concurrency/threadpool/thread_pool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Pool = ThreadPool<NullPolicy>;

TEST(ThreadPool, QueueIsFirstInFirstOut) {
    constexpr int kTasks = 1000;
    std::vector<int> order;
    std::vector<int> expected;
    {
        const Pool pool(1);
        HeldTasks held;
        ASSERT_TRUE(held.Start(1, QueueOf(pool)));
        for (int i = 0; i < kTasks; ++i) {
            pool.Core()->Queue(MakeTask(L"task", [&order, i] { order.push_back(i); }));
            expected.push_back(i);
        }
        EXPECT_EQ(CountsOf(pool).queue, static_cast<std::size_t>(kTasks));
    }
    EXPECT_EQ(order, expected);
}

TEST(ThreadPool, QueuedTaskIsPresentUntilItHasReturned) {
    const Pool pool(1);
    HeldTasks first;
    HeldTasks second;
    const Task running = first.Make();
    const Task queued = second.Make();
    ASSERT_TRUE(first.Start(1, [&](const Task&) { pool.Core()->Queue(running); }));
    pool.Core()->Queue(queued);
    EXPECT_TRUE(pool.Core()->IsPresent(running));
    EXPECT_TRUE(pool.Core()->IsPresent(queued));
    EXPECT_FALSE(pool.Core()->IsPresent(first.Make()));
    first.Release();
    EXPECT_TRUE(Eventually([&] { return queued.IsBusy(); }));
    EXPECT_TRUE(Eventually([&] { return !pool.Core()->IsPresent(running); }));
    EXPECT_TRUE(pool.Core()->IsPresent(queued));
    second.Release();
    EXPECT_TRUE(Eventually([&] { return !pool.Core()->IsPresent(queued); }));
}

// The wake-up is passed on, though nobody else stands for the tasks that are left.
TEST(ThreadPool, WokenWorkerThatLeavesTasksBehindWakesAnother) {
    const Pool pool(3);
    HeldTasks held;
    ASSERT_TRUE(Eventually([&] { return IdleWorkers(*pool.Core()) == 3; }));
    AppendToQueue(*pool.Core(), held.Make());
    AppendToQueue(*pool.Core(), held.Make());
    pool.Core()->Queue(held.Make());  // wakes one worker
    EXPECT_TRUE(Eventually([&] { return held.Entered() == 3; }));
}

// As the pool's own task does, which starts a growth.
TEST(ThreadPool, TaskInFrontOfAllOthersWakesAnIdleWorker) {
    const Pool pool(1);
    HeldTasks held;
    ASSERT_TRUE(Eventually([&] { return IdleWorkers(*pool.Core()) == 1; }));
    WorkQueue::Entries entry;
    entry.emplace_back(held.Make());
    ThreadPoolCorePeer::Queue(*pool.Core()).PrependUnlessStopping(entry);
    EXPECT_TRUE(Eventually([&] { return held.Entered() == 1; }));
}

// Loses the pool's wake-up of this number: as if the worker that it went to were suspended or killed.
class LostWakeUp {
  public:
    explicit LostWakeUp(int number) {
        s_count = 0;
        s_lost = number;
        s_original = m_patch.Original<WakeOne>();
    }

  private:
    using WakeOne = void WINAPI(PCONDITION_VARIABLE);

    static void WINAPI Wake(PCONDITION_VARIABLE condition) {
        if (++s_count != s_lost) {
            s_original.load()(condition);
        }
    }

    static inline std::atomic<WakeOne*> s_original = nullptr;
    static inline std::atomic<int> s_count = 0;
    static inline std::atomic<int> s_lost = 0;
    const ImportPatch m_patch{LibraryUnderTest(), "WakeConditionVariable", &Wake};
};

// Eight workers without work, and bursts of tasks that stay until they are released.
class IdlePool : public testing::Test {
  protected:
    IdlePool() { AwaitIdle(); }

    void AwaitIdle() const {
        ASSERT_TRUE(Eventually([this] { return IdleWorkers(*m_pool.Core()) == kWorkers; }));
    }

    void Burst(HeldTasks& held, int tasks) const {
        for (int i = 0; i < tasks; ++i) {
            m_pool.Core()->Queue(held.Make());
        }
    }

    static constexpr std::uint32_t kWorkers = 8;
    const Pool m_pool{kWorkers};
};

TEST_F(IdlePool, LostWakeUpDelaysAtMostOneTaskOfABurst) {
    for (int lost = 1; lost <= 5; ++lost) {
        HeldTasks held;
        {
            const LostWakeUp wakeUps(lost);
            Burst(held, 5);
            EXPECT_TRUE(Eventually([&] { return held.Entered() >= 4; })) << "wake-up " << lost;
        }
        held.Release();
        AwaitIdle();
    }
}

// The worker that comes for the second task finds the first one before it.
TEST_F(IdlePool, TaskWhoseWakeUpWasLostDoesNotTakeTheNextOnesWorker) {
    HeldTasks held;
    const LostWakeUp wakeUps(1);
    Burst(held, 1);
    EXPECT_EQ(CountsOf(m_pool).queue, 1U);
    Burst(held, 1);
    EXPECT_TRUE(Eventually([&] { return held.Entered() == 2; }));
}

// The next wake-up goes to the dead worker. Only the task behind it may be late, and only once.
TEST_F(IdlePool, KilledSleeperDelaysAtMostOneTaskOnce) {
    const HANDLE doomed = WorkerHandle(*m_pool.Core(), 0);
    ASSERT_TRUE(TerminateThread(doomed, 0));
    ASSERT_EQ(WaitForSingleObject(doomed, 60'000), WAIT_OBJECT_0);
    m_pool.Core()->IncreaseKilledThreadCount();
    int late = 0;
    for (int i = 0; i < 10; ++i) {
        HeldTasks held;
        Burst(held, 6);
        ASSERT_TRUE(Eventually([&] { return held.Entered() >= 5; })) << "burst " << i;
        const bool all = Eventually([&] { return held.Entered() == 6; }, std::chrono::seconds(late == 0 ? 2 : 60));
        late += all ? 0 : 1;
        held.Release();
        ASSERT_TRUE(Eventually([&] { return held.Entered() == 6 && CountsOf(m_pool).running == 0; }));
        AwaitIdle();
    }
    EXPECT_LE(late, 1);
}

// Holds the first worker that looks for a task instead of sleeping, where it yields.
class HeldLook {
  public:
    HeldLook() { s_state = m_state; }
    ~HeldLook() { m_state->mayGoOn.Open(); }
    HeldLook(const HeldLook&) = delete;
    HeldLook& operator=(const HeldLook&) = delete;

    void AwaitLook() { m_state->looks.Wait(); }

  private:
    struct State {
        std::atomic<int> count = 0;
        Gate looks;
        Gate mayGoOn;
    };

    // What the C++ library yields by.
#ifdef GCC_GTHR_WIN32_H
    static constexpr const char* kYield = "Sleep";
#else
    static constexpr const char* kYield = "sched_yield";
#endif

    static int HoldFirst(DWORD) {
        const auto state = s_state;
        if (++state->count == 1) {
            state->looks.Open();
            state->mayGoOn.Wait();
        }
        return 0;
    }

    const std::shared_ptr<State> m_state = std::make_shared<State>();
    static inline std::shared_ptr<State> s_state;
    const ImportPatch m_patch{LibraryUnderTest(), kYield, &HoldFirst};
};

// The first task relies on the worker that looks, and gets none. It must not cost the second one its worker as well.
TEST_F(IdlePool, WorkerThatIsHeldWhileItLooksDelaysOneTaskUntilTheNextIsQueued) {
    HeldTasks held;
    HeldLook look;
    m_pool.Core()->Queue(MakeTask(L"short", [] {}));
    look.AwaitLook();
    Burst(held, 1);
    EXPECT_EQ(CountsOf(m_pool).queue, 1U);
    Burst(held, 1);
    EXPECT_TRUE(Eventually([&] { return held.Entered() == 2; }));
}

}  // namespace
