// GetFigures(), through the library's own ways.
#include "concurrency/figures/figures.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "concurrency/errors/error_storage.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/failure_handler.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/figures/figures_scene.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;
using Orvane::Internal::GlobalThreadPool;
using Orvane::Internal::Task;

class FiguresOfNames : public JobTest {};

TEST_F(FiguresOfNames, HaveTheEndsOfJobs) {
    Run(L"Well", [] {}).Get();
    EXPECT_THROW(Run(L"Ill", []() -> void { throw std::runtime_error("ill"); }).Get(), std::runtime_error);
    auto asked = RunSleeper(L"Asked");
    asked.Cancel();
    asked.Wait();
    EXPECT_EQ(FiguresOf(L"Well").done, 1U);
    EXPECT_EQ(FiguresOf(L"Ill").failed, 1U);
    EXPECT_EQ(FiguresOf(L"Asked").cancelled, 1U);
    const Figures all = GetFigures();
    EXPECT_EQ(all.done, 1U);
    EXPECT_EQ(all.failed, 1U);
    EXPECT_EQ(all.cancelled, 1U);
    EXPECT_EQ(all.unreadFailures, 0U);
}

TEST_F(FiguresOfNames, HaveTheEndsOfTasks) {
    std::shared_ptr<Internal::FutureImpl<void>> ill;
    Task failing = MakeTask(L"Ill", [] { throw Unexpected(L"ill"); }, ill);
    Task well = MakeTask(L"Well", [] {});
    failing();
    well();
    const auto begun = std::make_shared<Gate>();
    Task asked = MakeTask(L"Asked", [begun] {
        begun->Open();
        SleepUntilAsked();
    });
    GlobalThreadPool::Queue(asked);
    begun->Wait();
    asked.Cancel();
    asked.Wait();
    EXPECT_EQ(FiguresOf(L"Well").done, 1U);
    EXPECT_EQ(FiguresOf(L"Ill").failed, 1U);
    EXPECT_EQ(FiguresOf(L"Asked").cancelled, 1U);
}

TEST_F(FiguresOfNames, CountAJobThatNeverBeganAsCancelled) {
    JobGroup group(L"One at a time", 1);
    const auto mayEnd = std::make_shared<Gate>();
    auto first = group.Run(L"First", [mayEnd] { mayEnd->Wait(); });
    auto second = group.Run(L"Second", [] {});
    second.Cancel();
    second.Wait();
    const NameFigures unbegun = FiguresOf(L"Second");
    EXPECT_EQ(unbegun.cancelled, 1U);
    EXPECT_EQ(unbegun.ran.count, 0U);
    mayEnd->Open();
    group.Wait();
}

TEST_F(FiguresOfNames, CountAFailureThatNobodyReads) {
    const auto before = GetFigures().unreadFailures;
    {
        auto dropped = Run(L"Dropped", []() -> void { throw std::runtime_error("nobody reads it"); });
        dropped.Wait();
    }
    EXPECT_EQ(GetFigures().unreadFailures, before + 1);
    EXPECT_EQ(FiguresOf(L"Dropped").failed, 1U);
}

TEST_F(FiguresOfNames, HaveTheTimeInTheQueueOnlyOfWhatWasQueued) {
    Run(L"Queued job", [] {}).Get();
    EXPECT_EQ(FiguresOf(L"Queued job").waited.count, 1U);
    Task queued = MakeTask(L"Queued task", [] {});
    GlobalThreadPool::Queue(queued);
    queued.Wait();
    EXPECT_EQ(FiguresOf(L"Queued task").waited.count, 1U);
    Task inlined = MakeTask(L"Run here", [] {});
    inlined();
    EXPECT_EQ(FiguresOf(L"Run here").waited.count, 0U);
    EXPECT_EQ(FiguresOf(L"Run here").ran.count, 1U);
}

TEST_F(FiguresOfNames, HaveTheTimeThatAJobWaitedForItsPlace) {
    JobGroup group(L"One at a time", 1);
    const auto mayEnd = std::make_shared<Gate>();
    auto first = group.Run(L"First", [mayEnd] { mayEnd->Wait(); });
    auto second = group.Run(L"Second", [] {});
    Compute(5ms);
    mayEnd->Open();
    group.Wait();
    const TimeFigures waited = FiguresOf(L"Second").waited;
    EXPECT_EQ(waited.count, 1U);
    EXPECT_GE(waited.max, 4ms);
    EXPECT_GE(waited.mean, 4ms);
}

TEST_F(FiguresOfNames, HaveTheTimeThatARunTook) {
    Run(L"Long", [] { Compute(5ms); }).Get();
    const TimeFigures ran = FiguresOf(L"Long").ran;
    EXPECT_EQ(ran.count, 1U);
    EXPECT_GE(ran.max, 4ms);
    EXPECT_EQ(ran.mean, ran.max);
    EXPECT_LE(ran.p99, ran.max);
    EXPECT_GE(ran.p50, 2ms);
}

TEST_F(FiguresOfNames, HaveTheTimeFromTheRequestToTheEndOnlyOfWhatWasAsked) {
    const auto begun = std::make_shared<Gate>();
    auto slow = Run(L"Slow to leave", [begun] {
        begun->Open();
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            Compute(5ms);
            throw;
        }
    });
    begun->Wait();
    Compute(5ms);
    slow.Cancel();
    slow.Wait();
    const NameFigures figures = FiguresOf(L"Slow to leave");
    EXPECT_EQ(figures.left.count, 1U);
    EXPECT_GE(figures.left.max, 4ms);
    EXPECT_GE(figures.ran.max, figures.left.max + 4ms);
    Run(L"Not asked", [] {}).Get();
    EXPECT_EQ(FiguresOf(L"Not asked").left.count, 0U);
}

TEST_F(FiguresOfNames, AreThoseOfManyNumberedOnesTogether) {
    for (int i = 0; i < 100; ++i) {
        Run((L"Fetch " + std::to_wstring(i)).c_str(), [] {}).Get();
    }
    EXPECT_EQ(FiguresOf(L"Fetch #").done, 100U);
}

TEST_F(FiguresOfNames, ThatRanLongestInAllComeFirst) {
    Run(L"Brief", [] {}).Get();
    Run(L"Long", [] { Compute(20ms); }).Get();
    const auto names = GetFigures().names;
    ASSERT_GE(names.size(), 2U);
    EXPECT_EQ(names.front().name, L"Long");
}

TEST_F(FiguresOfNames, GoOnFromOneInitialisationToTheNext) {
    Task task = MakeTask(L"Kept", [] {});
    task();
    {
        const ConcurrencyLifetime nested;
    }
    EXPECT_EQ(FiguresOf(L"Kept").done, 1U);
}

class FiguresOfTheSchedule : public JobTest {};

TEST_F(FiguresOfTheSchedule, AreNoneWithoutAScheduler) {
    EXPECT_EQ(GetFigures().schedule.entries, 0U);
    EXPECT_FALSE(GetFigures().schedule.earliest.has_value());
}

TEST_F(FiguresOfTheSchedule, HaveTheEntriesAndTheFirstStart) {
    const auto now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
    const Tracker later = Schedule(L"Later", now + 2h, 0s, [] {});
    const Tracker soon = Schedule(L"Soon", now + 1h, 0s, [] {});
    const ScheduleFigures schedule = GetFigures().schedule;
    EXPECT_EQ(schedule.entries, 2U);
    ASSERT_TRUE(schedule.earliest.has_value());
    EXPECT_EQ(*schedule.earliest, now + 1h);
}

TEST_F(FiguresOfTheSchedule, HaveHowLateATurnCame) {
    const auto now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
    const Tracker past = Schedule(L"Past", now - 1h, 0s, [] {});
    EXPECT_TRUE(Eventually([] { return GetFigures().schedule.lateness.count == 1; }));
    EXPECT_GE(GetFigures().schedule.lateness.max, 1h);
    EXPECT_LE(GetFigures().schedule.lateness.p50, GetFigures().schedule.lateness.max);
    const Tracker longAgo = Schedule(L"Long ago", now - 30h, 0s, [] {});
    EXPECT_TRUE(Eventually([] { return FiguresOf(L"Long ago").done == 1; }));
    EXPECT_EQ(GetFigures().schedule.lateness.count, 1U);
}

TEST_F(FiguresOfTheSchedule, HaveTheRunsThatWereSkipped) {
    const auto now = std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
    const auto mayEnd = std::make_shared<Gate>();
    // The first period has passed, and so has the second: it finds the first under way or queued.
    Tracker slow = Schedule(L"Slow", now - 3h / 2, 1h, [mayEnd] { mayEnd->Wait(); });
    EXPECT_TRUE(Eventually([] { return GetFigures().schedule.skipped == 1; }));
    mayEnd->Open();
    slow.Cancel();
}

class FiguresOfRuns : public JobTest {};

TEST_F(FiguresOfRuns, AreThoseOfListRuns) {
    JobGroup group(L"Import");
    const auto begun = std::make_shared<Gate>();
    std::atomic<DWORD> thread = 0;
    auto job = group.Run(L"Fetch 17", [&thread, begun] {
        thread = GetCurrentThreadId();
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    const auto runs = GetFigures().runs;
    ASSERT_EQ(runs.size(), 1U);
    EXPECT_EQ(runs.front().path, L"Import > Fetch 17");
    EXPECT_EQ(runs.front().thread, thread);
    group.Cancel();
}

// Tasks that run one inside the other, each with a name of its own that goes as soon as the task has it.
void RunNested(int thread, int depth, Countdown& atBottom, Gate& mayEnd) {
    if (depth == 0) {
        atBottom.Arrive();
        mayEnd.Wait();
        return;
    }
    auto name = std::make_unique<std::wstring>(L"Run " + std::to_wstring(thread) + L"." + std::to_wstring(depth));
    Task task = MakeTask(name->c_str(), [&, thread, depth] { RunNested(thread, depth - 1, atBottom, mayEnd); });
    name.reset();
    task();
}

TEST_F(FiguresOfRuns, HaveEachOfAThousand) {
    constexpr int kThreads = 20;
    constexpr int kDepth = 50;
    Countdown atBottom(kThreads);
    Gate mayEnd;
    std::vector<std::unique_ptr<PlainThread>> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.push_back(std::make_unique<PlainThread>([&, i] { RunNested(i, kDepth, atBottom, mayEnd); }));
    }
    atBottom.Wait();
    const Figures figures = GetFigures();
    mayEnd.Open();
    for (const auto& thread : threads) {
        thread->Join();
    }
    std::set<std::wstring> names;
    for (const RunInfo& run : figures.runs) {
        names.insert(run.name);
    }
    EXPECT_EQ(figures.runs.size(), std::size_t{kThreads} * kDepth);
    EXPECT_EQ(names.size(), std::size_t{kThreads} * kDepth);
    EXPECT_TRUE(names.contains(L"Run 19.50"));
    EXPECT_EQ(FiguresOf(L"Run #.#").done, std::size_t{kThreads} * kDepth);
    EXPECT_TRUE(GetFigures().runs.empty());
}

TEST_F(FiguresOfRuns, CanBeAskedForWhileRunsComeAndGo) {
    std::atomic<bool> isOver = false;
    std::vector<std::unique_ptr<PlainThread>> threads;
    for (int i = 0; i < 4; ++i) {
        threads.push_back(std::make_unique<PlainThread>([&isOver, i] {
            for (int run = 0; !isOver; ++run) {
                auto name = std::make_unique<std::wstring>(L"Brief " + std::to_wstring(i * 1'000'000 + run));
                Task task = MakeTask(name->c_str(), [] {});
                name.reset();
                task();
            }
        }));
    }
    std::uint64_t before = 0;
    for (int i = 0; i < 100; ++i) {
        const Figures figures = GetFigures();
        for (const RunInfo& run : figures.runs) {
            EXPECT_TRUE(run.name.starts_with(L"Brief "));
        }
        EXPECT_GE(figures.done, before);
        before = figures.done;
    }
    isOver = true;
}

TEST(FiguresWithoutTheLibrary, AreThereBeforeAndAfter) {
    EXPECT_EQ(GetFigures().pool.workers, 0U);
    {
        const ConcurrencyLifetime lifetime;
        Orvane::Run(L"Once", [] {}).Get();
    }
    const Figures after = GetFigures();
    EXPECT_EQ(after.pool.workers, 0U);
    EXPECT_EQ(after.done, 1U);
}

}  // namespace
