// Tasks on threads of their own.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/task_records.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

const auto kLaunch = &GlobalThreadPool::LaunchInNewThread;

std::wstring DescriptionOfThisThread() {
    using GetDescription = HRESULT(WINAPI*)(HANDLE, PWSTR*);
    void* const address =
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32"), "GetThreadDescription"));
    if (address == nullptr) {
        return L"<not known here>";
    }
    PWSTR text = nullptr;
    if (FAILED(reinterpret_cast<GetDescription>(address)(GetCurrentThread(), &text))) {
        return L"<failed>";
    }
    std::wstring description = text;
    LocalFree(text);
    return description;
}

// The task may run before the launcher has described its thread.
bool IsDescribedAs(const std::wstring& expected) {
    return Eventually([&] { return DescriptionOfThisThread() == expected; });
}

void RunOnOwnThread(Task task) {
    GlobalThreadPool::LaunchInNewThread(task);
    task.Wait();
}

TEST(DedicatedThread, RunsTheTaskOnAThreadOfItsOwn) {
    const RecordedReports reports;
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    GlobalThreadPool::IsPresent(Task());
    const int before = starts.Count();
    HeldTasks held;
    ASSERT_TRUE(held.Start(20, kLaunch));  // all at the same time, whatever the pool has
    EXPECT_EQ(starts.Count(), before + 20);
    held.Release();
    EXPECT_TRUE(Eventually([&] { return CountTasks(reports, kStopped, L"held") == 20; }));
    EXPECT_EQ(CountTasks(reports, kStarted, kGrowthTask), 0);
}

TEST(DedicatedThread, IsDescribedByTheNameOfItsTask) {
    const ConcurrencyLifetime lifetime;
    std::atomic<bool> described = false;
    RunOnOwnThread(
        MakeTask(L"Read \x00e4\x4e2d index", [&] { described = IsDescribedAs(L"Read \x00e4\x4e2d index"); }));
    EXPECT_TRUE(described);
}

TEST(DedicatedThread, DescriptionIsTheNameAsTheTaskKeptIt) {
    const ConcurrencyLifetime lifetime;
    std::atomic<bool> described = false;
    RunOnOwnThread(MakeTask(L"123456789012345678901234567890",
                            [&] { described = IsDescribedAs(L"12345678901234567890123456789"); }));
    EXPECT_TRUE(described);
}

TEST(DedicatedThread, WorkersAreNotDescribed) {
    const ConcurrencyLifetime lifetime;
    std::wstring description;
    Task task = MakeTask(L"queued", [&] { description = DescriptionOfThisThread(); });
    GlobalThreadPool::Queue(task);
    task.Wait();
    EXPECT_EQ(description, L"");
}

TEST(DedicatedThread, RunsWhereThePlatformKnowsNoDescriptions) {
    const ImportPatch nothingKnown(
        LibraryUnderTest(), "GetProcAddress", +[](HMODULE, LPCSTR) -> FARPROC { return nullptr; });
    const ConcurrencyLifetime lifetime;
    std::wstring description;
    RunOnOwnThread(MakeTask(L"task", [&] { description = DescriptionOfThisThread(); }));
    EXPECT_EQ(description, L"");
}

TEST(DedicatedThread, TaskIsNotPresentInThePool) {
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    const Task task = held.Make();
    ASSERT_TRUE(held.Start(1, [&](const Task&) { GlobalThreadPool::LaunchInNewThread(task); }));
    EXPECT_TRUE(task.IsBusy());
    EXPECT_FALSE(GlobalThreadPool::IsPresent(task));
}

TEST(DedicatedThread, TasksDoNotCountAsBusyForGrowth) {
    const ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks dedicated;
    HeldTasks queued;
    ASSERT_TRUE(dedicated.Start(10, kLaunch));
    ASSERT_TRUE(queued.Start(6, &GlobalThreadPool::Queue));
    EXPECT_EQ(starts.Count(), 8 + 10);
}

TEST(DedicatedThread, CancelReachesTheTask) {
    const ConcurrencyLifetime lifetime;
    Gate entered;
    std::shared_ptr<FutureImpl<void>> future;
    Task task = MakeTask(
        L"task",
        [&] {
            entered.Open();
            for (;;) {
                CancellationPoint();
                PauseBriefly();
            }
        },
        future);
    GlobalThreadPool::LaunchInNewThread(task);
    entered.Wait();
    task.Cancel();
    EXPECT_TRUE(Eventually([&] { return future->IsCancelled(); }));
}

TEST(DedicatedThread, CancelledTaskIsNotRun) {
    const ConcurrencyLifetime lifetime;
    std::atomic<bool> ran = false;
    Gate gone;
    Task task = MakeTask(L"task", [&ran, end = AtEnd([&] { gone.Open(); })] { ran = true; });
    task.Cancel();
    GlobalThreadPool::LaunchInNewThread(task);
    task = Task();
    EXPECT_TRUE(Eventually([&] { return gone.IsOpen(); }));
    EXPECT_FALSE(ran);
}

TEST(DedicatedThread, TaskMayLaunchAnother) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> depth = 0;
    std::function<void()> descend = [&] {
        if (++depth < 20) {
            GlobalThreadPool::LaunchInNewThread(MakeTask(L"next", descend));
        }
    };
    GlobalThreadPool::LaunchInNewThread(MakeTask(L"first", descend));
    EXPECT_TRUE(Eventually([&] { return depth == 20; }));
}

TEST(DedicatedThread, CallableThatReturnedMayLaunchFromItsDestructor) {
    const ConcurrencyLifetime lifetime;
    std::shared_ptr<FutureImpl<void>> future;
    const Task next = MakeTask(L"next", [] {}, future);
    GlobalThreadPool::LaunchInNewThread(
        MakeTask(L"first", [end = AtEnd([next] { GlobalThreadPool::LaunchInNewThread(next); })] {}));
    EXPECT_TRUE(Eventually([&] { return future->IsNormal(); }));
}

// A callable that threw dies with the thread's own handle of the task, the last one here.
TEST(DedicatedThread, CallableThatThrewMayLaunchFromItsDestructor) {
    const ConcurrencyLifetime lifetime;
    Gate handleIsGone;
    std::shared_ptr<FutureImpl<void>> future;
    const Task next = MakeTask(L"next", [] {}, future);
    const auto launchNext = [next] { GlobalThreadPool::LaunchInNewThread(next); };
    GlobalThreadPool::LaunchInNewThread(MakeTask(L"first", [&handleIsGone, end = AtEnd(launchNext)] {
        handleIsGone.Wait();
        throw Unexpected(L"kept");
    }));
    handleIsGone.Open();
    EXPECT_TRUE(Eventually([&] { return future->IsNormal(); }));
}

TEST(DedicatedThread, ShutdownJoinsThreadsThatNoLaunchCameAfter) {
    const ResourceProbe probe;
    const auto cycle = [] {
        const ConcurrencyLifetime lifetime;
        HeldTasks held;
        EXPECT_TRUE(held.Start(10, kLaunch));
    };
    cycle();
    EXPECT_TRUE(Eventually([&] { return probe.Growth().threads == 0; })) << probe.Growth();
    // Some blocks are made once per process, on paths that not every cycle takes: a leak would make one a cycle.
    constexpr int kCycles = 30;
    const ResourceProbe later;
    for (int i = 0; i < kCycles; ++i) {
        cycle();
    }
    Resources growth;
    EXPECT_TRUE(Eventually([&] {
        growth = later.Growth();
        return growth.handles == 0 && growth.threads == 0 && growth.blocks < kCycles;
    })) << growth;
}

TEST(DedicatedThread, ErrorOfItsTaskStaysInTheFuture) {
    const ConcurrencyLifetime lifetime;
    std::shared_ptr<FutureImpl<void>> future;
    GlobalThreadPool::LaunchInNewThread(MakeTask(L"fails", [] { throw Unexpected(L"failed on purpose"); }, future));
    EXPECT_THROW(future->GetValue(), Unexpected);
}

}  // namespace
