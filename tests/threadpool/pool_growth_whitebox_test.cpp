// When a pool with fewer workers than processors believes that it is full, by a clock that the test moves; and how a stop
// comes to the callers that wait for a growth.
#include "concurrency/threadpool/pool_growth.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <stdexcept>

#include "concurrency/base/processors.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// A queue without workers. Each caller that finds it full settles for half a millisecond and then finds room for one.
class ManyProcessors : public testing::Test {
  protected:
    ManyProcessors() {
        s_tick = 100'000;
        s_now = {};
        s_settles = false;
        s_queue = &m_queue;
        AddWorkers(8);
        for (int i = 0; i < 5; ++i) {
            Queue();
        }
    }
    ~ManyProcessors() override { SetProcessorCountForTest(0); }

    void Queue() {
        WorkQueue::Entries entry;
        entry.emplace_back(MakeTask(L"task", [] {}));
        s_settles = false;
        m_growth.Queue(entry);
    }

    void SettleFor(std::chrono::microseconds time) {
        for (; time > 0us; time -= 500us) {
            Queue();
        }
    }

    // The growth's own task stands in the queue beside the caller's.
    bool NextCallerGrows() {
        const auto before = m_queue.GetLoad().queued;
        Queue();
        return m_queue.GetLoad().queued == before + 2;
    }

    static void AddWorkers(std::uint64_t count) {
        WorkerBatch batch;
        s_queue->CountWorkers(batch, count);
    }

    // The first look is that of the beginning.
    static MonotonicClock::time_point Now() {
        if (s_settles) {
            s_now += 500us;
            AddWorkers(1);
        }
        s_settles = true;
        return s_now;
    }

    static inline DWORD s_tick = 0;
    static inline MonotonicClock::time_point s_now;
    static inline bool s_settles = false;
    static inline WorkQueue* s_queue = nullptr;

    WorkQueue m_queue;
    PoolGrowth m_growth{m_queue, true, [](std::uint64_t) {}, {[] { return s_tick; }, &Now}};
};

TEST_F(ManyProcessors, CallersWhoHaveSettledForTwoMillisecondsInAllBelieveThatThePoolIsFull) {
    SetProcessorCountForTest(64);
    Queue();  // the sixth: five were there, and it finds three workers spare
    SettleFor(1500us);
    EXPECT_FALSE(NextCallerGrows());
    EXPECT_TRUE(NextCallerGrows());
}

TEST_F(ManyProcessors, NotIfThereAreAsManyWorkers) {
    SetProcessorCountForTest(8);
    Queue();
    SettleFor(20ms);
    EXPECT_FALSE(NextCallerGrows());
}

// The caller would have to pause.
TEST_F(ManyProcessors, NotWithin250MillisecondsOfTheLastGrowth) {
    SetProcessorCountForTest(64);
    Queue();
    SettleFor(2ms);
    ASSERT_TRUE(NextCallerGrows());
    m_growth.SpawnThreads(1);
    AddWorkers(1);
    SettleFor(10ms);
    s_tick += 249;
    EXPECT_FALSE(NextCallerGrows());
    s_tick += 1;
    EXPECT_TRUE(NextCallerGrows());
}

TEST_F(ManyProcessors, SettlingBeforeAGrowthDoesNotCountForTheNext) {
    SetProcessorCountForTest(64);
    Queue();
    SettleFor(2ms);
    ASSERT_TRUE(NextCallerGrows());
    m_growth.SpawnThreads(1);
    AddWorkers(1);
    s_tick += 250;
    EXPECT_FALSE(NextCallerGrows());
}

// Or a caller that has just looked at the state would fall asleep behind the wake-up.
TEST(PoolGrowth, WakesItsCallersWhenNoneStandsBetweenItsLookAndItsSleep) {
    WorkQueue queue;
    Gate isStarting;
    Gate mayStart;
    PoolGrowth growth(
        queue, true,
        [&](std::uint64_t) {
            isStarting.Open();
            mayStart.Wait();
        },
        GrowthClock::Real());
    const BackgroundCall holder([&] { growth.SpawnThreads(1); });  // in the lock under which callers look
    isStarting.Wait();
    const BackgroundCall stop([&] { growth.WakeCallers(); });
    Sleep(50);
    EXPECT_TRUE(stop.IsRunning());
    mayStart.Open();
    EXPECT_TRUE(stop.Ends());
    EXPECT_TRUE(holder.Ends());
}

// A full queue without workers, whose growth is decided; a caller sleeps behind it.
class CallerBehindAGrowth : public testing::Test {
  protected:
    CallerBehindAGrowth() {
        WorkerBatch batch;
        m_queue.CountWorkers(batch, 1);
        Queue();  // asks for the growth, which no worker runs
    }
    ~CallerBehindAGrowth() override {
        m_queue.Stop();
        m_growth.WakeCallers();
        PoolGrowth::SetFailureIsFinal(false);
    }

    void Queue() {
        WorkQueue::Entries entry;
        entry.emplace_back(MakeTask(L"task", [] {}));
        m_growth.Queue(entry);
    }

    bool CallerSleeps() {
        return Eventually([this] { return PoolGrowthPeer::SleepingCallers(m_growth) == 1; });
    }

    bool m_fails = false;
    WorkQueue m_queue;
    PoolGrowth m_growth{m_queue, true,
                        [this](std::uint64_t) {
                            if (m_fails) {
                                throw std::runtime_error("no thread");
                            }
                            WorkerBatch batch;
                            m_queue.CountWorkers(batch, kGrowthBatch);
                        },
                        GrowthClock::Real()};
};

TEST_F(CallerBehindAGrowth, IsWokenWhenItHasSucceeded) {
    const BackgroundCall caller([this] { Queue(); });
    ASSERT_TRUE(CallerSleeps());
    m_growth.SpawnThreads(kGrowthBatch);
    EXPECT_TRUE(caller.Ends());
}

TEST_F(CallerBehindAGrowth, IsWokenWhenItHasFailedForGood) {
    PoolGrowth::SetFailureIsFinal(true);
    m_fails = true;
    const BackgroundCall caller([this] { Queue(); });
    ASSERT_TRUE(CallerSleeps());
    EXPECT_THROW(m_growth.SpawnThreads(kGrowthBatch), std::runtime_error);
    EXPECT_TRUE(caller.Ends());
}

TEST_F(CallerBehindAGrowth, IsWokenWhenThePoolStops) {
    const BackgroundCall caller([this] { Queue(); });
    ASSERT_TRUE(CallerSleeps());
    m_queue.Stop();
    m_growth.WakeCallers();
    EXPECT_TRUE(caller.Ends());
}

}  // namespace
