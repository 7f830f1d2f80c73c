// How long a caller that finds the pool full waits before it believes that.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>

#include "concurrency/base/processors.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/pool_growth.h"
#include "tests/support/eventually.h"
#include "tests/support/plain_thread.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::uint64_t kWorkers = 8;

// A clock that stands, eight workers and six tasks, of which no worker has taken one.
class FullPool : public testing::Test {
  protected:
    FullPool() {
        SetProcessorCountForTest(1);
        s_tick = 100'000;
        m_queue.CountWorkers(m_batch, kWorkers);
        for (int i = 0; i < 6; ++i) {
            Append(MakeTask(L"task", [] {}));
        }
    }
    ~FullPool() override { SetProcessorCountForTest(0); }

    void Append(const Task& task) {
        WorkQueue::Entries entry;
        entry.emplace_back(task);
        m_queue.Append(entry);
    }

    bool StaysFull(MonotonicClock::duration waited) { return PoolGrowthPeer::StaysFull(m_growth, waited); }

    static inline DWORD s_tick = 0;

    WorkerBatch m_batch;
    WorkQueue m_queue;
    PoolGrowth m_growth{
        m_queue, true, [](std::uint64_t) {}, {[] { return s_tick; }, [] { return MonotonicClock::time_point(); }}};
};

TEST_F(FullPool, IsBelievedAfterTwentyMillisecondsWhileWorkersAreOnTheirWayToTheTasks) {
    EXPECT_FALSE(StaysFull(20ms - 1ns));
    EXPECT_TRUE(StaysFull(20ms));
}

TEST_F(FullPool, IsBelievedAfterTwoMillisecondsIfThereAreFewerWorkersThanProcessors) {
    SetProcessorCountForTest(kWorkers);
    EXPECT_FALSE(StaysFull(2ms));
    SetProcessorCountForTest(kWorkers + 1);
    EXPECT_FALSE(StaysFull(2ms - 1ns));
    EXPECT_TRUE(StaysFull(2ms));
    s_tick = 249;  // since the last growth
    EXPECT_FALSE(StaysFull(2ms));
}

// It would only ask again and again, and take the workers' time.
TEST_F(FullPool, LetsItsCallerSleepUntilItIsBelieved) {
    const BackgroundCall caller([this] {
        WorkQueue::Entries entry;
        entry.emplace_back(MakeTask(L"seventh", [] {}));
        m_growth.Queue(entry);
    });
    EXPECT_TRUE(Eventually([this] { return WorkQueuePeer::CallersWithoutRoom(m_queue) == 1; }));
    WorkerBatch more;
    m_queue.CountWorkers(more, 1);
    EXPECT_TRUE(caller.Ends());
    EXPECT_EQ(m_queue.GetLoad().queued, 7U);
}

// One worker, which runs a task.
class BusyPool : public testing::Test {
  protected:
    BusyPool() {
        SetProcessorCountForTest(1);
        m_queue.CountWorkers(m_batch, 1);
    }
    ~BusyPool() override {
        SetProcessorCountForTest(0);
        m_queue.Stop();
    }

    bool Start(int tasks) {
        return m_held.Start(tasks, [this](const Task& task) {
            WorkQueue::Entries entry;
            entry.emplace_back(task);
            m_queue.Append(entry);
        });
    }

    WorkerBatch m_batch;
    WorkQueue m_queue;
    PoolGrowth m_growth{m_queue, true, [](std::uint64_t) {}, GrowthClock::Real()};
    PlainThread m_worker{[this] {
        TaskNote note;
        m_queue.RunWorker(m_batch, note);
    }};
    HeldTasks m_held;
};

TEST_F(BusyPool, IsBelievedAfterAMillisecond) {
    ASSERT_TRUE(Start(1));
    EXPECT_FALSE(PoolGrowthPeer::StaysFull(m_growth, 1ms - 1ns));
    EXPECT_TRUE(PoolGrowthPeer::StaysFull(m_growth, 1ms));
}

TEST_F(BusyPool, IsBelievedAsSoonThoughATaskWaitsForTheWorker) {
    ASSERT_TRUE(Start(1));
    WorkQueue::Entries entry;
    entry.emplace_back(MakeTask(L"waits", [] {}));
    m_queue.Append(entry);
    EXPECT_FALSE(PoolGrowthPeer::StaysFull(m_growth, 1ms - 1ns));
    EXPECT_TRUE(PoolGrowthPeer::StaysFull(m_growth, 1ms));
}

TEST_F(BusyPool, IsBelievedAsSoonThoughAnIdleWorkerIsThere) {
    ASSERT_TRUE(Start(1));
    WorkerBatch more;
    m_queue.CountWorkers(more, 1);
    EXPECT_TRUE(PoolGrowthPeer::StaysFull(m_growth, 1ms));
}

}  // namespace
