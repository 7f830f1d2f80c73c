// The platform refuses to start a thread.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/scheduled_task.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/resource_probe.h"
#include "tests/tasks/task_fixture.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/held_worker.h"
#include "tests/threadpool/pool_numbers.h"
#include "tests/threadpool/task_records.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// What the call throws as std::runtime_error: its message.
template <typename Call>
std::string RuntimeErrorOf(Call call) {
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "nothing thrown";
}

constexpr const char* kSpawnError = "Failed to spawn thread, resource error";

void RunOneTask() {
    Task task = MakeTask(L"task", [] {});
    GlobalThreadPool::Queue(task);
    task.Wait();
}

class FailedFirstBatch : public testing::TestWithParam<int> {};

TEST_P(FailedFirstBatch, ThrowsAndTheNextCallTriesAgain) {
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    starts.FailAt(GetParam());
    const Task task = MakeTask(L"refused", [] {});
    EXPECT_EQ(RuntimeErrorOf([&] { GlobalThreadPool::Queue(task); }), kSpawnError);
    EXPECT_EQ(starts.Count(), GetParam());

    starts.FailAt(starts.Count() + 1);
    EXPECT_EQ(RuntimeErrorOf([&] { GlobalThreadPool::LaunchInNewThread(task); }), kSpawnError);
    starts.FailAt(starts.Count() + 1);
    EXPECT_EQ(RuntimeErrorOf([&] { GlobalThreadPool::IsPresent(task); }), kSpawnError);
    starts.FailAt(starts.Count() + 1);
    EXPECT_EQ(RuntimeErrorOf([] { GlobalThreadPool::IncreaseKilledThreadCount(); }), kSpawnError);

    const int before = starts.Count();
    RunOneTask();
    EXPECT_EQ(starts.Count(), before + kBatch);
    EXPECT_FALSE(GlobalThreadPool::IsPresent(task));
}

// Workers that were started before the failure leave by themselves.
TEST_P(FailedFirstBatch, LeavesNothingBehind) {
    ThreadStarts starts;
    const Resources atFirst = Resources::Now();
    const auto allThreadsHaveLeft = [&] { return Resources::Now().threads == atFirst.threads; };
    const auto tryOnce = [&] {
        const ConcurrencyLifetime lifetime;
        starts.FailAt(starts.Count() + GetParam());
        EXPECT_EQ(RuntimeErrorOf([&] { GlobalThreadPool::IsPresent(Task()); }), kSpawnError);
    };
    {
        const ConcurrencyLifetime lifetime;
        RunOneTask();
    }
    tryOnce();
    ASSERT_TRUE(Eventually(allThreadsHaveLeft));
    EXPECT_EQ(GrowthOver(10, tryOnce), Resources{});
}

INSTANTIATE_TEST_SUITE_P(At, FailedFirstBatch, testing::Values(1, 4, 8));

class FailedGrowth : public testing::TestWithParam<int> {};

TEST_P(FailedGrowth, EndsTheGrowthTaskAndLaterCallersWaitUntilThePoolStops) {
    const RecordedReports reports;
    FakeTicks ticks(100'000);
    ThreadStarts starts;
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, &GlobalThreadPool::Queue));
    starts.FailAt(kBatch + GetParam());
    ASSERT_TRUE(held.Start(1, &GlobalThreadPool::Queue));  // what called for the growth runs all the same

    // The process lives on, and so does the worker that ran the growth.
    EXPECT_TRUE(Eventually([&] { return CountTasks(reports, kStopped, kGrowthTask) == 1; }));
    EXPECT_EQ(starts.Count(), kBatch + GetParam());

    ticks.Advance(250);  // enough for another growth
    const Task late = held.Make(L"late");
    const BackgroundCall caller([&] { GlobalThreadPool::Queue(late); });
    Sleep(100);
    EXPECT_TRUE(caller.IsRunning());
    EXPECT_FALSE(GlobalThreadPool::IsPresent(late));

    const BackgroundCall stop([&] { lifetime.reset(); });
    EXPECT_TRUE(caller.Ends());
    held.Release();
    EXPECT_TRUE(stop.Ends());
    // A worker of the failed growth may have taken one: nobody has waited for that.
    EXPECT_TRUE(Eventually([&] { return CountTasks(reports, kStopped, L"held") == kFirstFull + 1; }));
    EXPECT_EQ(starts.Count(), kBatch + GetParam());
}

INSTANTIATE_TEST_SUITE_P(At, FailedGrowth, testing::Values(1, 4, 8));

// The scheduler's thread, for which the last uninitialisation waits first, is one of the callers that wait.
TEST(ThreadStartFailure, OfAGrowthDoesNotKeepTheSchedulerFromEnding) {
    class AskedState : public ScriptedState {
      public:
        AskedState() : ScriptedState(AttachedFutureIn(State::NotStarted)) {}
        std::shared_ptr<IFutureState> GetFuture() override {
            isAsked = true;
            return future;
        }
        std::atomic<bool> isAsked = false;
    };
    const RecordedReports reports;
    ThreadStarts starts;
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, &GlobalThreadPool::Queue));
    starts.FailAt(kBatch + 1);
    ASSERT_TRUE(held.Start(1, &GlobalThreadPool::Queue));  // calls for the growth
    ASSERT_TRUE(Eventually([&] { return CountTasks(reports, kStopped, kGrowthTask) == 1; }));
    const auto due = std::make_shared<AskedState>();
    GlobalScheduler::Insert(ScheduledTask(Task(L"due", due), TimePoint(), Duration(0)));
    ASSERT_TRUE(Eventually([&] { return due->isAsked.load(); }));  // right before it is queued

    const BackgroundCall stop([&] { lifetime.reset(); });
    held.Release();
    EXPECT_TRUE(stop.Ends());
}

// The second start of the growth fails, so one new worker is there. Nobody else can take the seventh task: six workers
// are busy, one is held, and the one that runs the growth waits for it.
TEST(ThreadStartFailure, WorkerOfAFailedGrowthWorksButShutdownDoesNotWaitForIt) {
    Gate seventhRuns;
    Gate seventhMayEnd;
    std::shared_ptr<FutureImpl<void>> seventh;
    ThreadStarts starts;
    starts.Before([&](int number) {
        if (number == kBatch + 2) {
            seventhRuns.Wait();
        }
    });
    starts.FailAt(kBatch + 2);
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    HeldWorker worker(&GlobalThreadPool::Queue);
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, &GlobalThreadPool::Queue));
    GlobalThreadPool::Queue(MakeTask(
        L"seventh",
        [&] {
            seventhRuns.Open();
            seventhMayEnd.Wait();
        },
        seventh));
    ASSERT_TRUE(Eventually([&] { return seventhRuns.IsOpen(); }));

    worker.Release();
    held.Release();
    {
        const BackgroundCall stop([&] { lifetime.reset(); });
        EXPECT_TRUE(stop.Ends());
    }
    EXPECT_TRUE(seventh->IsBusy());
    seventhMayEnd.Open();
    EXPECT_TRUE(Eventually([&] { return seventh->IsNormal(); }));
}

TEST(ThreadStartFailure, FailedLaunchIsASystemErrorAndChangesNothing) {
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    RunOneTask();
    std::atomic<int> ran = 0;
    Task task = MakeTask(L"task", [&] { ++ran; });
    starts.FailAt(kBatch + 1);
    try {
        GlobalThreadPool::LaunchInNewThread(task);
        ADD_FAILURE() << "nothing thrown";
    } catch (const std::system_error& error) {
        EXPECT_TRUE(error.code() == std::errc::resource_unavailable_try_again) << error.what();
    }
    EXPECT_EQ(ran, 0);
    EXPECT_FALSE(task.IsCancelled());
    EXPECT_FALSE(task.IsBusy());

    GlobalThreadPool::LaunchInNewThread(task);
    task.Wait();
    EXPECT_EQ(ran, 1);
    RunOneTask();
}

TEST(ThreadStartFailure, FailedLaunchesLeaveNothingBehind) {
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    const Task task = MakeTask(L"task", [] {});
    const auto fail = [&] {
        starts.FailAt(starts.Count() + 1);
        EXPECT_THROW(GlobalThreadPool::LaunchInNewThread(task), std::system_error);
    };
    RunOneTask();
    fail();
    const ResourceProbe probe;
    for (int i = 0; i < 100; ++i) {
        fail();
    }
    // Less is no leak: the worker may still have been letting go of its task when the count began.
    Resources growth;
    EXPECT_TRUE(Eventually([&] {
        growth = probe.Growth();
        return growth.handles == 0 && growth.threads == 0 && growth.blocks <= 0;
    })) << growth;
}

}  // namespace
