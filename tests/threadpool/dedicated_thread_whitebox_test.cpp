#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <utility>

#include "concurrency/base/native_thread.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/stopwatch.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

using Pool = ThreadPool<NullPolicy>;

auto LaunchOf(const Pool& pool) {
    return [core = pool.Core()](const Task& task) { core->LaunchInNewThread(task); };
}

TEST(DedicatedThreadRecords, RunningThreadsAreKeptByNumber) {
    const Pool pool(1);
    HeldTasks held;
    ASSERT_TRUE(held.Start(3, LaunchOf(pool)));
    const PoolCounts counts = CountsOf(pool);
    EXPECT_EQ(counts.nextDedicatedNumber, 3U);
    EXPECT_EQ(counts.dedicatedThreads, 3U);
    EXPECT_EQ(counts.completionFutures, 3U);
    EXPECT_EQ(counts.threads, 1U + 3U);
    EXPECT_EQ(counts.finishedThreads, 0U);
    EXPECT_EQ(counts.exitedPromises, 0U);
    EXPECT_EQ(counts.threadCount, 1U);  // of workers alone
}

TEST(DedicatedThreadRecords, EndedThreadsWaitToBeJoined) {
    const Pool pool(1);
    HeldTasks held;
    ASSERT_TRUE(held.Start(3, LaunchOf(pool)));
    held.Release();
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).exitedPromises == 3; }));
    const PoolCounts counts = CountsOf(pool);
    EXPECT_EQ(counts.dedicatedThreads, 0U);
    EXPECT_EQ(counts.completionFutures, 3U);
    EXPECT_EQ(counts.threads, 1U);
    EXPECT_EQ(counts.finishedThreads, 3U);
}

TEST(DedicatedThreadRecords, NextLaunchJoinsThemAndForgetsThem) {
    const Pool pool(1);
    HeldTasks first;
    ASSERT_TRUE(first.Start(3, LaunchOf(pool)));
    first.Release();
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).exitedPromises == 3; }));
    HeldTasks second;
    ASSERT_TRUE(second.Start(1, LaunchOf(pool)));
    const PoolCounts counts = CountsOf(pool);
    EXPECT_EQ(counts.finishedThreads, 0U);
    EXPECT_EQ(counts.completionFutures, 1U);
    EXPECT_EQ(counts.exitedPromises, 0U);
    EXPECT_EQ(counts.dedicatedThreads, 1U);
    EXPECT_EQ(counts.nextDedicatedNumber, 4U);
}

TEST(DedicatedThreadRecords, DoNotPileUpOverManyLaunches) {
    const Pool pool(1);
    for (int i = 0; i < 500; ++i) {
        pool.Core()->LaunchInNewThread(MakeTask(L"task", [] {}));
        // A launch joins the threads that have reported their end, however late the scheduler lets them.
        ASSERT_TRUE(Eventually([&] { return CountsOf(pool).exitedPromises == 1; })) << "launch " << i;
        ASSERT_EQ(CountsOf(pool).finishedThreads, 1U) << "launch " << i;
    }

    HeldTasks held;
    ASSERT_TRUE(held.Start(1, LaunchOf(pool)));
    const PoolCounts counts = CountsOf(pool);
    EXPECT_EQ(counts.finishedThreads, 0U);
    EXPECT_EQ(counts.completionFutures, 1U);
    EXPECT_EQ(counts.exitedPromises, 0U);
    EXPECT_EQ(counts.threads, 1U + 1U);
    EXPECT_EQ(counts.nextDedicatedNumber, 501U);
}

TEST(DedicatedThreadRecords, NumberOfARunningThreadIsNotGivenAgain) {
    const Pool pool(1);
    HeldTasks first;
    ASSERT_TRUE(first.Start(2, LaunchOf(pool)));
    SetNextDedicatedNumber(pool, 0);  // as after 2^32 launches
    HeldTasks second;
    ASSERT_TRUE(second.Start(1, LaunchOf(pool)));
    EXPECT_EQ(CountsOf(pool).dedicatedThreads, 3U);
    EXPECT_EQ(CountsOf(pool).nextDedicatedNumber, 3U);
    second.Release();
    ASSERT_TRUE(Eventually([&] { return CountsOf(pool).exitedPromises == 1; }));
    EXPECT_EQ(CountsOf(pool).dedicatedThreads, 2U);
}

// A thread that has left the list of the running ones, but has not handed its promise back yet.
class UnreportedThread : public testing::Test {
  protected:
    UnreportedThread() {
        AddFinishedThread(m_pool, NativeThread::Start([gate = m_mayEnd] { gate->Wait(); }), m_promise.get_future());
    }
    ~UnreportedThread() override { m_mayEnd->Open(); }

    const Pool m_pool{1};
    const std::shared_ptr<Gate> m_mayEnd = std::make_shared<Gate>();
    std::promise<int> m_promise;
};

TEST_F(UnreportedThread, LaunchWaits200MillisecondsForItAndLeavesItForLater) {
    const Stopwatch stopwatch;
    m_pool.Core()->LaunchInNewThread(Task());
    EXPECT_GE(stopwatch.Elapsed(), 200ms);
    EXPECT_GE(CountsOf(m_pool).finishedThreads, 1U);

    m_promise.set_value(1);
    m_mayEnd->Open();
    ASSERT_TRUE(Eventually([&] { return CountsOf(m_pool).exitedPromises == 1; }));
    HeldTasks held;
    ASSERT_TRUE(held.Start(1, LaunchOf(m_pool)));
    EXPECT_EQ(CountsOf(m_pool).finishedThreads, 0U);
    EXPECT_EQ(CountsOf(m_pool).completionFutures, 1U);
}

// It has its last way to go, on which the destructors of its thread-local objects may need what the launch holds.
TEST_F(UnreportedThread, LaunchDoesNotJoinItBeforeItHasEnded) {
    m_promise.set_value(1);
    const BackgroundCall launch([this] { m_pool.Core()->LaunchInNewThread(Task()); });
    EXPECT_TRUE(launch.Ends());
    EXPECT_GE(CountsOf(m_pool).finishedThreads, 1U);
}

TEST_F(UnreportedThread, LaunchFailsIfNothingIsKnownOfItsEnd) {
    ForgetCompletions(m_pool);
    try {
        m_pool.Core()->LaunchInNewThread(Task());
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::future_error& error) {
        EXPECT_TRUE(error.code() == std::future_errc::no_state) << error.what();
    }
    EXPECT_EQ(CountsOf(m_pool).nextDedicatedNumber, 0U);
}

TEST_F(UnreportedThread, ShutdownWaitsForItWithoutLimit) {
    const BackgroundCall stop([this] { m_pool.Core()->Stop(); });
    Sleep(300);
    EXPECT_TRUE(stop.IsRunning());
    m_mayEnd->Open();
    EXPECT_TRUE(stop.Ends());
    EXPECT_EQ(CountsOf(m_pool).finishedThreads, 0U);
    EXPECT_EQ(CountsOf(m_pool).completionFutures, 0U);
}

// How often a launch has waited for an ending thread.
class WaitsOfLaunches {
  public:
    WaitsOfLaunches() {
        s_count = 0;
        s_wait = m_patch.Original<Wait>();
    }
    WaitsOfLaunches(const WaitsOfLaunches&) = delete;
    WaitsOfLaunches& operator=(const WaitsOfLaunches&) = delete;

    int Count() const { return s_count; }

  private:
    using Wait = DWORD WINAPI(HANDLE, DWORD);

    static DWORD WINAPI CountAndWait(HANDLE handle, DWORD milliseconds) {
        if (milliseconds == 200) {
            ++s_count;
        }
        return s_wait.load()(handle, milliseconds);
    }

    static inline std::atomic<int> s_count = 0;
    static inline std::atomic<Wait*> s_wait = nullptr;

    const ImportPatch m_patch{LibraryUnderTest(), "WaitForSingleObject", &CountAndWait};
};

// As in the destructor of a thread-local object: the thread's record waits to be joined, and it would wait for itself.
TEST(DedicatedThreadRecords, LaunchOnAnEndingThreadDoesNotWaitForThatThread) {
    const Pool pool(1);
    Gate isOnRecord;
    std::promise<int> promise;
    std::atomic<int> waits = -1;
    NativeThread thread = NativeThread::Start([&] {
        isOnRecord.Wait();
        const WaitsOfLaunches launches;
        pool.Core()->LaunchInNewThread(Task());
        waits = launches.Count();
    });
    AddFinishedThread(pool, std::move(thread), promise.get_future());
    isOnRecord.Open();
    ASSERT_TRUE(Eventually([&] { return waits != -1; }));
    EXPECT_EQ(waits, 0);
    EXPECT_GE(CountsOf(pool).finishedThreads, 1U);
}

// A callable that threw dies with its task, and its destructor may take long.
TEST(DedicatedThreadRecords, LaunchDoesNotWaitForAThreadThatIsDestroyingItsCallable) {
    Gate handleIsGone;  // the thread's is the last
    Gate isDestroying;
    Gate mayEnd;
    const Pool pool(1);
    const auto destroy = [&] {
        isDestroying.Open();
        mayEnd.Wait();
    };
    pool.Core()->LaunchInNewThread(MakeTask(L"first", [&handleIsGone, end = AtEnd(destroy)] {
        handleIsGone.Wait();
        throw Unexpected(L"kept");
    }));
    handleIsGone.Open();
    isDestroying.Wait();
    {
        const WaitsOfLaunches launches;
        pool.Core()->LaunchInNewThread(Task());
        EXPECT_EQ(launches.Count(), 0);
    }
    mayEnd.Open();
}

TEST(DedicatedThreadRecords, ShutdownPassesOverRecordsWithoutAThread) {
    const Pool pool(1);
    AddFinishedThread(pool, NativeThread(), std::future<int>());
    pool.Core()->Stop();
    EXPECT_EQ(CountsOf(pool).threads, 0U);
}

}  // namespace
