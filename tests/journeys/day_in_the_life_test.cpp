// A program's day with the library, from its first call to its last, and another day after that.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <vector>

#include "concurrency/base/time.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/task_records.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Future = std::shared_ptr<FutureImpl<void>>;

TimePoint In(Duration time) {
    return std::chrono::time_point_cast<Duration>(TimePoint::clock::now()) + time;
}

// In the morning: a lot of small work.
void SumInManyTasks() {
    std::atomic<int> sum = 0;
    std::vector<Task> tasks;
    for (int i = 1; i <= 100; ++i) {
        tasks.push_back(MakeTask(L"add", [&sum, i] { sum += i; }));
        GlobalThreadPool::Queue(tasks.back());
    }
    for (Task& task : tasks) {
        task.Wait();
        EXPECT_TRUE(task.IsCancelled());  // emptied
    }
    EXPECT_EQ(sum, 5050);
}

// A task goes wrong: the one who reads its outcome hears of it.
void ReadAnError() {
    Future future;
    GlobalThreadPool::Queue(MakeTask(L"goes wrong", [] { throw Unexpected(L"disk %d is gone", 3); }, future));
    try {
        future->GetValue();
        ADD_FAILURE() << "nothing thrown";
    } catch (const Unexpected& error) {
        EXPECT_STREQ(error.what(), "disk 3 is gone");
    }
}

// The user has second thoughts about work that has begun, and about work that has not.
void CancelSomeWork() {
    Gate entered;
    Future sleeping;
    Future waiting;
    Task begun = MakeTask(
        L"long work",
        [&] {
            entered.Open();
            for (;;) {
                CancellableSleep(1000);
            }
        },
        sleeping);
    Task notBegun = MakeTask(L"never begun", [] { ADD_FAILURE() << "must not run"; }, waiting);
    notBegun.Cancel();
    GlobalThreadPool::Queue(begun);
    GlobalThreadPool::Queue(notBegun);
    entered.Wait();
    EXPECT_TRUE(GlobalThreadPool::IsPresent(begun));
    EXPECT_FALSE(sleeping->TimedWait(In(std::chrono::milliseconds(20))));
    begun.Cancel();
    EXPECT_THROW(sleeping->GetValue(), CancelledException);
    EXPECT_THROW(waiting->GetValue(), CancelledException);
}

// A task with parts: it waits for them, and passes on what went wrong.
void RunATaskOfTasks() {
    Future future;
    const auto parts = [] {
        std::vector<Future> results(3);
        for (Future& result : results) {
            GlobalThreadPool::Queue(MakeTask(L"part", [] {}, result));
        }
        Future last;
        GlobalThreadPool::LaunchInNewThread(MakeTask(L"last part", [] { throw Unexpected(L"no last part"); }, last));
        for (const Future& result : results) {
            result->GetValue();
        }
        last->GetValue();
    };
    GlobalThreadPool::Queue(MakeTask(L"whole", parts, future));
    EXPECT_TRUE(Eventually([&] { return future->IsReady(); }));
    EXPECT_FALSE(future->IsNormal());
    EXPECT_THROW(future->GetValue(), Unexpected);
}

// What failed is tried again, with the same handle.
void TryUntilItWorks() {
    std::atomic<int> attempts = 0;
    Task task = MakeTask(L"connect", [&] {
        if (++attempts < 3) {
            throw Unexpected(L"no connection");
        }
    });
    for (int attempt = 1; attempt <= 3; ++attempt) {
        const auto future = task.GetWrapper()->GetFuture();
        GlobalThreadPool::Queue(task);
        future->Wait();
        EXPECT_EQ(future->IsNormal(), attempt == 3);
        task.Reset();
    }
    EXPECT_EQ(attempts, 3);
    task.Wait();
}

void LiveADay() {
    const ConcurrencyLifetime program;
    SumInManyTasks();
    {
        const ConcurrencyLifetime plugin;  // comes and goes while the program goes on
        ReadAnError();
    }
    CancelSomeWork();
    RunATaskOfTasks();
    TryUntilItWorks();
    EXPECT_TRUE(IsConcurrencyInitialized());
    EXPECT_FALSE(IsCancellationRequested());
}

TEST(DayInTheLife, EveryDayIsLikeTheFirst) {
    const RecordedReports reports;
    for (int day = 0; day < 3; ++day) {
        LiveADay();
        EXPECT_FALSE(IsConcurrencyInitialized());
    }
    // What was started has stopped, and nothing went wrong that the program did not want to go wrong.
    EXPECT_EQ(reports.Count(kTaskCategory, kStarted), reports.Count(kTaskCategory, kStopped));
    EXPECT_EQ(CountTasks(reports, kStarted, L"add"), 3 * 100);
    EXPECT_EQ(CountTasks(reports, kStarted, L"never begun"), 0);
    for (const RecordedReport& report : reports.All()) {
        EXPECT_EQ(report.severity, 1) << "only the records of tasks";
    }
}

}  // namespace
