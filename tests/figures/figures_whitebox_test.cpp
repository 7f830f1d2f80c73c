// What figures are made of, at moments that no caller can hit.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "concurrency/base/tick_counter.h"
#include "concurrency/cancellation/run.h"
#include "concurrency/figures/figures.h"
#include "concurrency/jobs/run_snapshot.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/run_counts.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/task_thread.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class FiguresInside : public JobTest {};

// Of 100 runs that were asked, 50 have left soon, 49 after a second, and one after a minute and a half.
TEST(FiguresOfTimes, AreThoseOfTheirRanks) {
    RunTitle title;
    std::wstring(L"ranked").copy(title.name.data(), title.name.size() - 1);
    const double ticksOfASecond = 1e9 * TickCounter::TicksPerNanosecond();
    const auto count = [&](int runs, double seconds) {
        for (int i = 0; i < runs; ++i) {
            const auto object = Orvane::Internal::Run::Make();
            auto& run = *Orvane::Internal::Run::Of(object);
            run.askedTick = TickCounter::Now() - static_cast<std::uint64_t>(seconds * ticksOfASecond);
            CountRun(&title, run, RunEnd::Done);
        }
    };
    count(50, 0.01);
    count(49, 1);
    count(1, 90);

    const auto names = GetFigures().names;
    const auto found = std::ranges::find(names, L"ranked", &NameFigures::name);
    ASSERT_NE(found, names.end());
    EXPECT_EQ(found->left.count, 100U);
    EXPECT_LT(found->left.p50, 500ms);
    EXPECT_GT(found->left.p99, 500ms);
    EXPECT_LT(found->left.p99, 30s);
    EXPECT_GT(found->left.max, 80s);
}

TEST_F(FiguresInside, NameRunsThatHaveEndedSinceTheyWereCopied) {
    RunSnapshot snapshot;
    {
        auto name = std::make_unique<std::wstring>(L"Freed job");
        auto job = RunSleeper(name->c_str());
        name.reset();
        const TaskThread task([] { SleepUntilAsked(); }, L"Freed task");
        snapshot.CopyJobs();
        snapshot.CopyTasks();
    }
    std::vector<std::wstring> names;
    for (const RunInfo& run : snapshot.Infos()) {
        names.push_back(run.name);
    }
    EXPECT_EQ(names, (std::vector<std::wstring>{L"Freed job", L"Freed task"}));
}

// A growth stands in front of what was queued before it.
TEST_F(FiguresInside, OfAPoolKnowTheOldestBehindWhatWasPutInFront) {
    WorkQueue queue;
    EXPECT_EQ(queue.GetLoad().oldestAt, 0U);
    const auto append = [&queue](const wchar_t* name) {
        WorkQueue::Entries entry;
        entry.emplace_back(MakeTask(name, [] {}));
        queue.Append(entry);
    };
    append(L"first");
    const std::uint64_t first = queue.GetLoad().oldestAt;
    EXPECT_NE(first, 0U);
    ASSERT_TRUE(Eventually([first] { return CoarseClock::Ticks() > first; }));
    append(L"second");
    WorkQueue::Entries growth;
    growth.emplace_back(MakeTask(L"growth", [] {}));
    queue.PrependUnlessStopping(growth);
    EXPECT_EQ(queue.GetLoad().queued, 3U);
    EXPECT_EQ(queue.GetLoad().oldestAt, first);
}

TEST_F(FiguresInside, OfAPoolHaveAllThatRun) {
    constexpr int kMany = 100;
    const ThreadPool<NullPolicy> pool(kMany);
    HeldTasks held;
    ASSERT_TRUE(held.Start(kMany, [&pool](const Task& task) { pool.Core()->Queue(task); }));
    EXPECT_EQ(pool.Core()->GetLoad().running, std::uint64_t{kMany});
    EXPECT_EQ(pool.Core()->GetLoad().workers, std::uint64_t{kMany});
}

}  // namespace
