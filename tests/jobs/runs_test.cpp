// ListRuns().
#include "concurrency/jobs/runs.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "concurrency/jobs/job_group.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using Orvane::Internal::GlobalThreadPool;

class Runs : public JobTest {};

std::vector<RunInfo> RunsOf(const std::wstring& path) {
    std::vector<RunInfo> runs = ListRuns();
    std::erase_if(runs, [&path](const RunInfo& run) { return run.path != path; });
    return runs;
}

// The one run with the path, once it is in the wait.
std::optional<RunInfo> RunThatWaits(const std::wstring& path, const std::wstring& wait) {
    std::optional<RunInfo> found;
    EXPECT_TRUE(Eventually([&] {
        const auto runs = RunsOf(path);
        if (runs.size() == 1 && runs.front().wait == wait) {
            found = runs.front();
        }
        return found.has_value();
    })) << "the wait is "
        << std::string(ListRuns().empty() ? "nowhere" : "another");
    return found;
}

TEST_F(Runs, OfAJobHaveItsNameItsThreadAndItsWait) {
    std::atomic<DWORD> thread = 0;
    const auto job = Run(L"Nap", [&thread] {
        thread = GetCurrentThreadId();
        SleepUntilAsked();
    });
    const auto run = RunThatWaits(L"Nap", L"CancellableSleep");
    ASSERT_TRUE(run.has_value());
    EXPECT_EQ(run->name, L"Nap");
    EXPECT_EQ(run->thread, thread);
    EXPECT_EQ(run->reason.cause, CancelCause::None);
    EXPECT_LE(run->waits, run->runs);
}

TEST_F(Runs, OfAJobInAGroupStandBehindTheGroupsName) {
    JobGroup group(L"Import");
    auto job = group.Run(L"Fetch 17", [] { SleepUntilAsked(); });
    EXPECT_TRUE(RunThatWaits(L"Import > Fetch 17", L"CancellableSleep").has_value());
    EXPECT_TRUE(RunsOf(L"Import").empty());  // its runner is no run of its own
    group.Cancel();
}

TEST_F(Runs, OfAJobThatWaitsForAnotherSayForWhich) {
    auto outer = Run(L"Outer", [] {
        auto inner = Orvane::Run(L"Inner", [] { SleepUntilAsked(); });
        inner.Wait();
    });
    EXPECT_TRUE(RunThatWaits(L"Outer > Inner", L"CancellableSleep").has_value());
    EXPECT_TRUE(RunThatWaits(L"Outer", L"a wait for Outer > Inner").has_value());
    outer.Cancel();
}

TEST_F(Runs, OfAJobAreNotListedAsTheTaskThatCarriesIt) {
    const auto job = RunSleeper(L"once");
    EXPECT_EQ(RunsOf(L"once").size(), 1U);
}

TEST_F(Runs, EndWithTheJob) {
    auto job = Run(L"short", [] {});
    job.Get();
    EXPECT_TRUE(RunsOf(L"short").empty());
}

TEST_F(Runs, OfJobsThatHaveNotBegunAreNone) {
    JobGroup group(L"Queue", 1);
    auto first = group.Run(L"first", [] { SleepUntilAsked(); });
    auto second = group.Run(L"second", [] {});
    EXPECT_TRUE(RunThatWaits(L"Queue > first", L"CancellableSleep").has_value());
    EXPECT_TRUE(RunsOf(L"Queue > second").empty());
    group.Cancel();
}

TEST_F(Runs, SayWhyAndHowLongAgoTheyWereAsked) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd, L"deaf");
    job.Cancel();
    const auto runs = RunsOf(L"deaf");
    mayEnd->Open();
    ASSERT_EQ(runs.size(), 1U);
    EXPECT_EQ(runs.front().reason.cause, CancelCause::Handle);
    EXPECT_EQ(runs.front().wait, L"");
    const std::wstring text = ToText(runs.front());
    EXPECT_TRUE(text.starts_with(L"deaf: asked ")) << Orvane::ToText(runs.front().reason).size();
    EXPECT_TRUE(text.ends_with(L" s ago through its handle, in no wait of the library"));
}

TEST_F(Runs, OfATaskAreListedWithItsWaitAndTheRequest) {
    Internal::Task task = MakeTask(L"Stated", [] {
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            const auto asked = RunsOf(L"Stated");
            ASSERT_EQ(asked.size(), 1U);
            EXPECT_EQ(asked.front().reason.cause, CancelCause::Task);
            throw;
        }
    });
    GlobalThreadPool::Queue(task);
    EXPECT_TRUE(RunThatWaits(L"Stated", L"CancellableSleep").has_value());
    task.Cancel();
    task.Wait();
    EXPECT_TRUE(Eventually([] { return RunsOf(L"Stated").empty(); }));
}

TEST_F(Runs, ThatWaitForATaskNameIt) {
    Internal::Task awaited = MakeTask(L"Awaited", [] { SleepUntilAsked(); });
    GlobalThreadPool::Queue(awaited);
    auto job = Run(L"Waiter", [&awaited] { awaited.Wait(); });
    EXPECT_TRUE(RunThatWaits(L"Awaited", L"CancellableSleep").has_value());
    EXPECT_TRUE(RunThatWaits(L"Waiter", L"Task::Wait(Awaited), which no request wakes").has_value());
    awaited.Cancel();
}

TEST_F(Runs, ThatWaitWhereNoRequestWakesThemSaySo) {
    checked_mutex mutex;
    mutex.lock();
    auto job = Run(L"Locker", [&mutex] {
        mutex.lock();
        mutex.unlock();
    });
    EXPECT_TRUE(Eventually([] {
        const auto runs = RunsOf(L"Locker");
        return runs.size() == 1 && runs.front().wait.starts_with(L"checked_mutex::lock(0x") &&
               runs.front().wait.ends_with(L"), which cannot be cancelled");
    }));
    mutex.unlock();
}

TEST_F(Runs, OfManyJobsAreAllThere) {
    constexpr std::size_t kMany = 12;
    const std::wstring name(500, L'n');  // more than there is room for at first
    std::vector<Job<void>> jobs;
    for (std::size_t i = 0; i < kMany; ++i) {
        jobs.push_back(RunSleeper(name.c_str()));
    }
    EXPECT_EQ(RunsOf(name).size(), kMany);
}

TEST_F(Runs, ThatAreAskedNeedOneMoreThreadForAllOfThem) {
    std::vector<Job<void>> jobs;
    for (int i = 0; i < 4; ++i) {
        jobs.push_back(RunSleeper());
    }
    const ThreadStarts starts;
    for (auto& job : jobs) {
        job.Cancel();
        job.Wait();
    }
    EXPECT_EQ(starts.Count(), 1);
}

TEST_F(Runs, ThatCannotBeWatchedLeaveAllTheSameAndTheLossIsSaidOnce) {
    const RecordedReports reports;
    auto first = RunSleeper();
    auto second = RunSleeper();
    ThreadStarts starts;
    starts.FailAt(1);
    first.Cancel();
    first.Wait();
    starts.FailAt(2);
    second.Cancel();
    second.Wait();
    EXPECT_EQ(starts.Count(), 2);
    EXPECT_EQ(reports.Count(L"Concurrency.Job", L"Jobs that do not leave when they are asked are not reported: %hs"),
              1U);
}

TEST_F(Runs, CanBeListedInsideARun) {
    auto job = Run(L"Self", [] { return RunsOf(L"Self").size(); });
    EXPECT_EQ(job.Get(), 1U);
}

}  // namespace
