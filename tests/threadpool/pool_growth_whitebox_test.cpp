// When a pool with fewer workers than processors believes that it is full, by a clock that the test moves.
#include "concurrency/threadpool/pool_growth.h"

#include <gtest/gtest.h>

#include <chrono>

#include "concurrency/base/processors.h"
#include "concurrency/tasks/make_task.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
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

}  // namespace
