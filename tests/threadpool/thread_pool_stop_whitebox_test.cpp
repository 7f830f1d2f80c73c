#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <system_error>
#include <vector>

#include "concurrency/base/native_thread.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/stopwatch.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"
#include "tests/threadpool/stop_from_inside.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using Pool = ThreadPool<NullPolicy>;

constexpr std::chrono::seconds kLessThanTheGrace{25};  // shutdown waits 30 s before it cancels

TEST(ThreadPoolStop, IdlePoolStopsAtOnce) {
    const Pool pool(0);
    const Stopwatch stopwatch;
    pool.Core()->Stop();
    EXPECT_LT(stopwatch.Elapsed(), kLessThanTheGrace);
    const PoolCounts counts = CountsOf(pool);
    EXPECT_EQ(counts.threadCount, 0U);
    EXPECT_EQ(counts.threads, 0U);
}

TEST(ThreadPoolStop, FinishesWhatRunsAndWhatIsQueued) {
    std::vector<std::shared_ptr<FutureImpl<void>>> futures(20);
    {
        const Pool pool(2);
        HeldTasks held;
        ASSERT_TRUE(held.Start(2, QueueOf(pool)));
        for (auto& future : futures) {
            pool.Core()->Queue(MakeTask(L"task", [] {}, future));
        }
        const BackgroundCall stop([&] { pool.Core()->Stop(); });
        ASSERT_TRUE(Eventually([&] { return IsStopping(*pool.Core()); }));
        EXPECT_TRUE(stop.IsRunning());
        held.Release();
        EXPECT_TRUE(stop.Ends());
    }
    for (const auto& future : futures) {
        EXPECT_TRUE(future->IsNormal());
    }
}

TEST(ThreadPoolStop, TaskQueuedMeanwhileRunsAsLongAsAWorkerComesBack) {
    const Pool pool(1);
    HeldTasks held;
    std::shared_ptr<FutureImpl<void>> late;
    ASSERT_TRUE(held.Start(1, QueueOf(pool)));
    const BackgroundCall stop([&] { pool.Core()->Stop(); });
    ASSERT_TRUE(Eventually([&] { return IsStopping(*pool.Core()); }));
    pool.Core()->Queue(MakeTask(L"late", [] {}, late));
    held.Release();
    EXPECT_TRUE(stop.Ends());
    EXPECT_TRUE(late->IsNormal());
}

TEST(ThreadPoolStop, ThreadLaunchedMeanwhileIsWaitedForToo) {
    const Pool pool(1);
    HeldTasks held;
    HeldTasks dedicated;
    ASSERT_TRUE(held.Start(1, QueueOf(pool)));
    const BackgroundCall stop([&] { pool.Core()->Stop(); });
    ASSERT_TRUE(Eventually([&] { return IsStopping(*pool.Core()); }));
    ASSERT_TRUE(dedicated.Start(1, [&](const Task& task) { pool.Core()->LaunchInNewThread(task); }));
    held.Release();
    Sleep(100);
    EXPECT_TRUE(stop.IsRunning());
    dedicated.Release();
    EXPECT_TRUE(stop.Ends());
    EXPECT_EQ(CountsOf(pool).threads, 0U);
    EXPECT_EQ(CountsOf(pool).dedicatedThreads, 0U);
}

TEST(ThreadPoolStop, StoppedPoolTakesTasksButNeverRunsThem) {
    const Pool pool(0);
    pool.Core()->Stop();
    std::shared_ptr<FutureImpl<void>> future;
    const Task task = MakeTask(L"too late", [] {}, future);
    for (int i = 0; i < 10; ++i) {  // with no worker left every call finds the pool full
        pool.Core()->Queue(task);
    }
    EXPECT_TRUE(pool.Core()->IsPresent(task));
    EXPECT_EQ(CountsOf(pool).queue, 10U);
    Sleep(50);
    EXPECT_FALSE(future->IsBusy());
    EXPECT_FALSE(future->IsReady());
    EXPECT_EQ(CountsOf(pool).threadCount, 0U);
}

TEST(ThreadPoolStop, IsRefusedOnAWorkerAndChangesNothing) {
    const Pool pool(2);
    StopFromInside stop(pool.Core());
    Task task = stop.MakeTask();
    pool.Core()->Queue(task);
    task.Wait();
    EXPECT_EQ(stop.Refusal(), kStopRefused);
    EXPECT_FALSE(IsStopping(*pool.Core()));
    EXPECT_EQ(CountsOf(pool).threadCount, 2U);
    Task after = MakeTask(L"after", [] {});
    pool.Core()->Queue(after);
    after.Wait();
}

// Even before its batch is complete and the pool has it on record.
TEST(ThreadPoolStop, IsRefusedOnAWorkerOfABatchThatIsUnderWay) {
    const Pool pool(0);
    StopFromInside stop(pool.Core());
    ThreadStarts starts;
    starts.After([&](int) { stop.GiveItAChance(); });
    Task task = stop.MakeTask();
    AppendToQueue(*pool.Core(), task);
    pool.Core()->SpawnThreads(1);
    task.Wait();
    EXPECT_EQ(stop.Refusal(), kStopRefused);
    EXPECT_FALSE(IsStopping(*pool.Core()));
}

// Even before its launch is over and the pool has it on record.
TEST(ThreadPoolStop, IsRefusedOnADedicatedThread) {
    const Pool pool(1);
    StopFromInside stop(pool.Core());
    ThreadStarts starts;
    starts.After([&](int) { stop.GiveItAChance(); });
    Task task = stop.MakeTask();
    pool.Core()->LaunchInNewThread(task);
    task.Wait();
    EXPECT_EQ(stop.Refusal(), kStopRefused);
    EXPECT_FALSE(IsStopping(*pool.Core()));
}

TEST(ThreadPoolStop, TaskOfAnotherPoolMayStopThisOne) {
    const Pool outer(1);
    Task task = MakeTask(L"stops another pool", [] {
        const Pool inner(1);
        inner.Core()->Queue(MakeTask(L"inner", [] {}));
    });
    outer.Core()->Queue(task);
    task.Wait();
}

TEST(ThreadPoolStop, MayBeRepeated) {
    const Pool pool(3);
    pool.Core()->Stop();
    pool.Core()->Stop();
    EXPECT_EQ(CountsOf(pool).threads, 0U);
}

TEST(ThreadPoolStop, FailedJoinIsASystemError) {
    const Pool pool(1);
    const ImportPatch failingWaits(
        LibraryUnderTest(), "WaitForSingleObject", +[](HANDLE, DWORD) -> DWORD { return WAIT_FAILED; });
    try {
        pool.Core()->Stop();
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::system_error& error) {
        EXPECT_TRUE(error.code() == std::errc::no_such_process) << error.what();
    }
}

// The counts are compared for equality: one report for each worker that is gone.
TEST(ThreadPoolStop, DoesNotWaitForWorkersReportedAsKilled) {
    const Pool pool(2);
    Gate entered;
    std::atomic<DWORD> worker = 0;
    pool.Core()->Queue(MakeTask(L"doomed", [&] {
        worker = GetCurrentThreadId();
        entered.Open();
        Sleep(INFINITE);
    }));
    entered.Wait();
    const HANDLE thread = OpenThread(THREAD_TERMINATE | SYNCHRONIZE, FALSE, worker);
    ASSERT_NE(thread, nullptr);
    ASSERT_TRUE(TerminateThread(thread, 0));
    ASSERT_EQ(WaitForSingleObject(thread, 30'000), WAIT_OBJECT_0);
    CloseHandle(thread);

    pool.Core()->IncreaseKilledThreadCount();
    EXPECT_EQ(CountsOf(pool).killedCount, 1U);
    const Stopwatch stopwatch;
    pool.Core()->Stop();
    EXPECT_LT(stopwatch.Elapsed(), kLessThanTheGrace);
    EXPECT_EQ(CountsOf(pool).threadCount, 1U);
    EXPECT_EQ(CountsOf(pool).threads, 0U);
}

TEST(NativeThread, CannotJoinItself) {
    NativeThread thread;
    Gate recorded;
    std::error_code code;
    thread = NativeThread::Start([&] {
        recorded.Wait();
        try {
            thread.Join();
        } catch (const std::system_error& error) {
            code = error.code();
        }
    });
    recorded.Open();
    thread.Join();
    EXPECT_TRUE(code == std::errc::resource_deadlock_would_occur) << code.message();
}

}  // namespace
