#include "concurrency/threadpool/work_queue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/support/plain_thread.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::uint64_t kSpare = 2;

WorkQueue::Entries EntryOf(const Task& task) {
    WorkQueue::Entries entry;
    entry.emplace_back(task);
    return entry;
}

// A task that comes after the shutdown has cancelled everything stays where it is: its caller cancels it.
TEST(WorkQueue, WorkerLeavesWhatIsQueuedOnceAllIsCancelled) {
    WorkQueue queue;
    WorkerBatch batch;
    queue.CountWorkers(batch, 1);
    queue.Stop();
    queue.CancelAll();
    std::shared_ptr<FutureImpl<void>> future;
    WorkQueue::Entries entry = EntryOf(MakeTask(L"late", [] {}, future));
    queue.Append(entry);

    TaskNote note;
    queue.RunWorker(batch, note);  // on this thread

    EXPECT_FALSE(future->IsReady());
    EXPECT_EQ(queue.GetLoad().queued, 1U);
    EXPECT_EQ(queue.GetLoad().workers, 0U);
}

// A queue with workers of its own. `others` count as well, but never come.
class WorkQueueWithWorkers : public testing::Test {
  protected:
    ~WorkQueueWithWorkers() override { m_queue.Stop(); }

    void Start(int workers, std::uint64_t others = 0) {
        for (int i = 0; i < workers; ++i) {
            m_workers.emplace_back([this] {
                TaskNote note;
                m_queue.RunWorker(m_batch, note);
            });
        }
        m_queue.CountWorkers(m_batch, static_cast<std::uint64_t>(workers) + others);
    }

    void Append(const Task& task) {
        WorkQueue::Entries entry = EntryOf(task);
        m_queue.Append(entry);
    }

    auto Appending() {
        return [this](const Task& task) { Append(task); };
    }

    bool AreIdle(std::uint32_t workers) {
        return Eventually([this, workers] { return WorkQueuePeer::IdleWorkers(m_queue) == workers; });
    }

    WorkQueue m_queue;
    WorkerBatch m_batch;
    std::list<PlainThread> m_workers;
};

// The time-out is out of reach: what ends the wait is what makes room.
class CallerWithoutRoom : public WorkQueueWithWorkers {
  protected:
    void ExpectToWait() {
        m_caller = std::make_unique<BackgroundCall>([this] { m_queue.WaitForRoom(kSpare, 1h); });
        ASSERT_TRUE(Eventually([this] { return WorkQueuePeer::CallersWithoutRoom(m_queue) == 1; }));
    }

    std::unique_ptr<BackgroundCall> m_caller;
    HeldTasks m_held;
};

TEST_F(CallerWithoutRoom, GoesOnWhenATaskHasEnded) {
    Start(1, 2);
    ASSERT_TRUE(m_held.Start(1, Appending()));
    ExpectToWait();
    m_held.Release();
    EXPECT_TRUE(m_caller->Ends());
}

TEST_F(CallerWithoutRoom, WaitsOnWhenThePoolIsStillFullThen) {
    Start(2, 1);
    HeldTasks first;
    ASSERT_TRUE(first.Start(1, Appending()));
    ASSERT_TRUE(m_held.Start(1, Appending()));
    ExpectToWait();
    first.Release();
    ASSERT_TRUE(AreIdle(1));
    Sleep(50);
    EXPECT_TRUE(m_caller->IsRunning());
    m_held.Release();
    EXPECT_TRUE(m_caller->Ends());
}

TEST_F(CallerWithoutRoom, GoesOnWhenWorkersHaveCome) {
    Start(1, 2);
    ASSERT_TRUE(m_held.Start(1, Appending()));
    ExpectToWait();
    WorkerBatch more;
    m_queue.CountWorkers(more, 1);
    EXPECT_TRUE(m_caller->Ends());
}

TEST_F(CallerWithoutRoom, GoesOnWhenThePoolStops) {
    Start(1, 2);
    ASSERT_TRUE(m_held.Start(1, Appending()));
    ExpectToWait();
    m_queue.Stop();
    EXPECT_TRUE(m_caller->Ends());
}

TEST_F(CallerWithoutRoom, IsNoneWhileThereIsRoom) {
    Start(1, 2);
    m_queue.WaitForRoom(kSpare, 1h);
}

TEST_F(WorkQueueWithWorkers, HintsForThoseWithoutTheLockSayWhatIsThere) {
    using Hints = std::pair<std::uint64_t, std::uint64_t>;
    HeldTasks held;
    Append(held.Make());
    EXPECT_EQ(WorkQueuePeer::Hints(m_queue), Hints(1, 1));
    Append(held.Make());
    EXPECT_EQ(WorkQueuePeer::Hints(m_queue), Hints(2, 2));
    Start(1);
    ASSERT_TRUE(Eventually([&] { return held.Entered() == 1; }));
    EXPECT_EQ(WorkQueuePeer::Hints(m_queue), Hints(1, 2));
    held.Release();
    ASSERT_TRUE(AreIdle(1));
    EXPECT_EQ(WorkQueuePeer::Hints(m_queue), Hints(0, 0));
}

TEST_F(WorkQueueWithWorkers, HintsSayThatNothingIsThereOnceAllIsCancelled) {
    Append(MakeTask(L"queued", [] {}));
    m_queue.CancelAll();
    EXPECT_EQ(WorkQueuePeer::Hints(m_queue), (std::pair<std::uint64_t, std::uint64_t>(0, 0)));
}

// Or the next task would rely on a worker that sleeps, and nobody would wake that.
TEST_F(WorkQueueWithWorkers, NoTaskReliesOnWorkersThatSleep) {
    Start(2);
    for (int i = 0; i < 300; ++i) {
        Task task = MakeTask(L"short", [] {});
        Append(task);
        task.Wait();
    }
    ASSERT_TRUE(AreIdle(2));
    EXPECT_EQ(WorkQueuePeer::LookingAndClaimed(m_queue), (std::pair<std::uint32_t, std::uint32_t>(0, 0)));
}

std::atomic<std::uint64_t> g_tick = 0;

TEST(WorkQueue, SaysSinceWhenItsOldestTaskStandsThere) {
    const ImportPatch clock(LibraryUnderTest(), "GetTickCount64", +[]() -> std::uint64_t { return g_tick; });
    WorkQueue queue;
    EXPECT_EQ(queue.GetLoad().oldestAt, 0U);
    const auto put = [&](std::uint64_t tick, void (WorkQueue::*where)(WorkQueue::Entries&)) {
        g_tick = tick;
        WorkQueue::Entries entry = EntryOf(MakeTask(L"task", [] {}));
        (queue.*where)(entry);
        return queue.GetLoad().oldestAt;
    };
    EXPECT_EQ(put(1000, &WorkQueue::Append), 1000U);
    EXPECT_EQ(put(2000, &WorkQueue::Append), 1000U);
    EXPECT_EQ(put(3000, &WorkQueue::PrependUnlessStopping), 1000U) << "a growth, which came later";
}

}  // namespace
