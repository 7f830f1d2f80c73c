// The 30 s that shutdown gives to tasks, by a clock that the test moves.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/null_future_state.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/arrivals.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_monotonic_clock.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"
#include "tests/tasks/task_fixture.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using Futures = std::vector<std::shared_ptr<FutureImpl<void>>>;

void SleepUntilCancelled() {
    for (;;) {
        CancellableSleep(INFINITE);
    }
}

// A pool whose shutdown goes by the test's clock.
class ThreadPoolStopGrace : public testing::Test {
  protected:
    ThreadPoolStopGrace() { m_core->SpawnThreads(kWorkers); }
    ~ThreadPoolStopGrace() override {
        if (!m_stop) {
            m_core->Stop();
        }
    }

    // Queues tasks that run until they are cancelled, and returns when they run.
    Futures StartSleepers(std::size_t count) {
        Futures futures(count);
        std::atomic<std::size_t> entered = 0;
        for (auto& future : futures) {
            m_core->Queue(MakeTask(
                L"runs for ever",
                [&] {
                    ++entered;
                    SleepUntilCancelled();
                },
                future));
        }
        EXPECT_TRUE(Eventually([&] { return entered == count; }));
        return futures;
    }

    // Returns when shutdown waits for the workers.
    void StartStop() {
        m_stop.emplace([this] {
            FakeMonotonicClock::UseOnThisThread();
            m_core->Stop();
        });
        AwaitReads(2);  // one for the deadline, one for the time that is left
    }

    // Moves the clock and wakes shutdown; returns when that sleeps again, or has made up its mind.
    void Advance(std::chrono::nanoseconds by) {
        long reads = 0;
        WakeShutdown(*m_core, [&] {
            reads = m_clock.Reads();
            m_clock.Advance(by);
        });
        AwaitReads(reads + 1);
        (void)CountsOf(*m_core);  // takes the pool's lock
    }

    bool IsStopping() const { return m_stop->IsRunning(); }
    bool StopEnds() const { return m_stop->Ends(); }

    static constexpr std::uint64_t kWorkers = 2;

    // Without an owner, who would stop it once more.
    const std::shared_ptr<ThreadPoolCore> m_core = std::make_shared<ThreadPoolCore>(
        false, [](ThreadPoolCore& core, WorkerBatch& batch, TaskNote& note) { core.RunWorker(batch, note); });

  private:
    void AwaitReads(long count) const {
        ASSERT_TRUE(Eventually([&] { return m_clock.Reads() >= count; })) << "shutdown does not look at the clock";
    }

    FakeMonotonicClock m_clock;
    std::optional<BackgroundCall> m_stop;
};

TEST_F(ThreadPoolStopGrace, CancelsRunningAndQueuedTasksAfterThirtySeconds) {
    std::atomic<bool> queuedRan = false;
    const Futures running = StartSleepers(kWorkers);
    Futures queued(3);
    for (auto& future : queued) {
        m_core->Queue(MakeTask(L"queued", [&] { queuedRan = true; }, future));
    }

    StartStop();
    Advance(30s - 1ms);
    for (const auto& future : running) {
        EXPECT_TRUE(future->IsBusy());
    }
    EXPECT_EQ(CountsOf(*m_core).queue, 3U);
    EXPECT_TRUE(IsStopping());

    Advance(1ms);
    EXPECT_TRUE(StopEnds());
    for (const auto& future : running) {
        EXPECT_TRUE(future->IsCancelled());
    }
    for (const auto& future : queued) {
        EXPECT_TRUE(future->IsCancelled());
    }
    EXPECT_FALSE(queuedRan);
    EXPECT_EQ(CountsOf(*m_core).queue, 0U);
    EXPECT_EQ(CountsOf(*m_core).threads, 0U);
}

TEST_F(ThreadPoolStopGrace, DoesNotFollowTheWallClock) {
    const TimePoint start = std::chrono::sys_days(std::chrono::December / 14 / 2012);
    FakeWallClock wallClock(start);
    const Futures running = StartSleepers(1);
    StartStop();
    for (const auto step : {10'000h, -10'000h}) {
        wallClock.Set(start + step);
        Advance(1ms);
        EXPECT_TRUE(running[0]->IsBusy());
    }
    Advance(30s);
    EXPECT_TRUE(StopEnds());
}

// The newest of the running tasks first; then the queued ones, the oldest first.
TEST_F(ThreadPoolStopGrace, CancelsTheRunningTasksBeforeTheQueuedOnes) {
    class NotingFuture : public NullFutureState {
      public:
        NotingFuture(Arrivals& arrivals, std::string name) : m_arrivals(arrivals), m_name(std::move(name)) {}
        bool IsCancelled() const override { return false; }
        void RequestCancel() override { m_arrivals.Add(m_name); }

      private:
        Arrivals& m_arrivals;
        const std::string m_name;
    };
    Arrivals cancelled;
    Gate mayEnd;
    std::atomic<int> entered = 0;
    const auto queue = [&](const char* name) {
        const auto state = std::make_shared<ScriptedState>(std::make_shared<NotingFuture>(cancelled, name));
        state->run = [&] {
            ++entered;
            mayEnd.Wait();
        };
        m_core->Queue(Task(L"", state));
    };
    queue("runs");
    ASSERT_TRUE(Eventually([&] { return entered == 1; }));
    queue("runs since lately");
    ASSERT_TRUE(Eventually([&] { return entered == 2; }));
    queue("queued");
    queue("queued later");

    StartStop();
    Advance(30s);
    EXPECT_TRUE(Eventually([&] { return cancelled.List().size() == 4; }));
    EXPECT_EQ(cancelled.List(), Names({"runs since lately", "runs", "queued", "queued later"}));
    mayEnd.Open();
    EXPECT_TRUE(StopEnds());
}

// The counts are compared for equality: a worker too many that is reported as killed is waited for like one too few.
TEST_F(ThreadPoolStopGrace, WaitsForAsManyWorkersAsWereReportedAsKilledAndNotMore) {
    for (std::uint64_t i = 0; i <= kWorkers; ++i) {
        m_core->IncreaseKilledThreadCount();
    }
    HeldTasks held;
    ASSERT_TRUE(held.Start(kWorkers, [this](const Task& task) { m_core->Queue(task); }));
    StartStop();
    held.Release();
    EXPECT_TRUE(Eventually([&] { return CountsOf(*m_core).threadCount == 0; }));
    Advance(30s - 1ms);
    EXPECT_TRUE(IsStopping());

    Advance(1ms);
    EXPECT_TRUE(StopEnds());
}

// The destructor waits for another thread's call: with a lock of the pool held, neither would come back.
TEST_F(ThreadPoolStopGrace, DestroysCancelledTasksOutsideOfTheLocks) {
    Gate destroyed;
    const Futures running = StartSleepers(kWorkers);
    m_core->Queue(MakeTask(L"queued", [end = AtEnd([&] {
                                           Thread([&] { m_core->Queue(Task()); }).join();
                                           destroyed.Open();
                                       })] {}));
    StartStop();
    Advance(30s);
    EXPECT_TRUE(Eventually([&] { return destroyed.IsOpen(); }));
    EXPECT_TRUE(StopEnds());
}

// What a request calls may wait for another thread that is about to queue.
TEST_F(ThreadPoolStopGrace, CancelsOutsideOfTheLocks) {
    class QueuingFuture : public NullFutureState {
      public:
        explicit QueuingFuture(ThreadPoolCore& core) : m_core(core) {}
        bool IsCancelled() const override { return false; }
        void RequestCancel() override {
            Thread([this] { m_core.Queue(Task()); }).join();
            ++requests;
        }
        std::atomic<int> requests = 0;

      private:
        ThreadPoolCore& m_core;
    };
    const auto future = std::make_shared<QueuingFuture>(*m_core);
    Gate mayEnd;
    std::atomic<int> entered = 0;
    const auto state = std::make_shared<ScriptedState>(future);
    state->run = [&] {
        ++entered;
        mayEnd.Wait();
    };
    const Task task(L"", state);
    for (std::uint64_t i = 0; i <= kWorkers; ++i) {
        m_core->Queue(task);  // one of them stays queued
    }
    ASSERT_TRUE(Eventually([&] { return entered == static_cast<int>(kWorkers); }));
    StartStop();
    Advance(30s);
    EXPECT_TRUE(Eventually([&] { return future->requests == static_cast<int>(kWorkers) + 1; }));
    mayEnd.Open();
    EXPECT_TRUE(StopEnds());
}

TEST_F(ThreadPoolStopGrace, EndsAChainOfTasksThatQueueOneAnother) {
    std::shared_ptr<FutureImpl<void>> link;
    std::shared_ptr<FutureImpl<void>> next;
    std::atomic<bool> nextRan = false;
    std::atomic<bool> entered = false;
    Gate mayGoOn;
    m_core->Queue(MakeTask(
        L"link",
        [&] {
            entered = true;
            mayGoOn.Wait();
            m_core->Queue(MakeTask(L"next", [&] { nextRan = true; }, next));
        },
        link));
    ASSERT_TRUE(Eventually([&] { return entered.load(); }));
    StartStop();
    Advance(30s);
    EXPECT_TRUE(Eventually([&] { return link->IsCancelling(); }));
    mayGoOn.Open();
    EXPECT_TRUE(StopEnds());
    EXPECT_FALSE(nextRan);
    EXPECT_TRUE(next->IsCancelled());
}

// A task that does not listen holds shutdown up for as long as it runs.
TEST_F(ThreadPoolStopGrace, JoinsWithoutLimitOnceItHasCancelled) {
    HeldTasks held;
    std::shared_ptr<FutureImpl<void>> future;
    ASSERT_TRUE(held.Start(kWorkers, [this](const Task& task) { m_core->Queue(task); }));
    m_core->Queue(MakeTask(L"queued", [] {}, future));
    StartStop();
    Advance(30s);
    EXPECT_TRUE(future->IsCancelled());
    EXPECT_EQ(CountsOf(*m_core).queue, 0U);
    Sleep(100);
    EXPECT_TRUE(IsStopping());
    held.Release();
    EXPECT_TRUE(StopEnds());
}

// A client that ends a worker by force has to say so.
TEST_F(ThreadPoolStopGrace, WaitsForAKilledWorkerThatWasNotReported) {
    ASSERT_TRUE(Eventually([&] { return IdleWorkers(*m_core) == kWorkers; }));
    const HANDLE doomed = WorkerHandle(*m_core, 0);
    ASSERT_TRUE(TerminateThread(doomed, 0));
    ASSERT_EQ(WaitForSingleObject(doomed, 60'000), WAIT_OBJECT_0);
    StartStop();
    Advance(30s - 1ms);
    EXPECT_TRUE(IsStopping());
    Advance(1ms);
    EXPECT_TRUE(StopEnds());
}

TEST_F(ThreadPoolStopGrace, WaitsForADedicatedTaskWithoutLimitAndDoesNotCancelIt) {
    Gate entered;
    Gate mayEnd;
    std::shared_ptr<FutureImpl<void>> future;
    std::atomic<bool> cancelled = false;
    m_core->LaunchInNewThread(MakeTask(
        L"dedicated",
        [&] {
            entered.Open();
            mayEnd.Wait();
            cancelled = IsCancellationRequested();
        },
        future));
    entered.Wait();
    const Futures running = StartSleepers(1);
    StartStop();
    Advance(30s);
    EXPECT_TRUE(Eventually([&] { return running[0]->IsCancelled(); }));
    EXPECT_TRUE(IsStopping());
    mayEnd.Open();
    EXPECT_TRUE(StopEnds());
    EXPECT_TRUE(future->IsNormal());
    EXPECT_FALSE(cancelled);
}

}  // namespace
