// How many jobs of a group run at a time, and where the others wait.
#include "concurrency/jobs/job_group.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/group_scene.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/gate.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class JobGroupOfBound : public testing::TestWithParam<int> {};

TEST_P(JobGroupOfBound, BeginsTheNextJobEachTimeOneHasEndedAndNeverMore) {
    constexpr int kMore = 4;
    const int bound = GetParam();
    GroupScene scene(static_cast<std::size_t>(bound));
    scene.AddHeld(bound + kMore);
    for (int ended = 0; ended <= kMore; ++ended) {
        ASSERT_TRUE(scene.Entered(bound + ended));
        std::this_thread::sleep_for(5ms);
        EXPECT_EQ(scene.turnstile.Entered(), bound + ended);
        scene.turnstile.LetOneGo();
    }
    scene.turnstile.LetAllGo();
    scene.group.Wait();
    EXPECT_EQ(scene.turnstile.Entered(), bound + kMore);
    EXPECT_EQ(scene.turnstile.Most(), bound);
}

INSTANTIATE_TEST_SUITE_P(Of, JobGroupOfBound, testing::Values(1, 3, 8, 13));

TEST(JobGroupBound, OfMoreThanTheJobsRunsAllAtOnce) {
    GroupScene scene(1'000);
    scene.AddHeld(5);
    EXPECT_TRUE(Eventually([&] { return scene.turnstile.Inside() == 5; }));
}

TEST(JobGroupBound, UnboundedRunsAllAtOnce) {
    GroupScene scene(Unbounded);
    const int count = static_cast<int>(DefaultBound()) + 12;
    scene.AddHeld(count);
    EXPECT_TRUE(Eventually([&] { return scene.turnstile.Inside() == count; }));
}

TEST(JobGroupBound, IsTheDefaultOneUnlessGiven) {
    GroupScene scene;
    const int bound = static_cast<int>(DefaultBound());
    scene.AddHeld(bound + 2);
    ASSERT_TRUE(scene.Entered(bound));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(scene.turnstile.Entered(), bound);
}

TEST(JobGroupBound, OfZeroIsRefused) {
    const ConcurrencyLifetime lifetime;
    EXPECT_THROW(JobGroup(L"group", 0), std::invalid_argument);
}

TEST(JobGroupQueue, IsInTheGroupSoThePoolStaysSmallAndServesOthers) {
    constexpr int kItems = 10'000;
    const ThreadStarts starts;
    GroupScene scene(4);
    scene.AddHeld(kItems);
    ASSERT_TRUE(scene.Entered(4));

    Internal::Task other = MakeTask(L"other", [] {});
    Internal::GlobalThreadPool::Queue(other);
    other.Wait();
    EXPECT_EQ(scene.turnstile.Entered(), 4);

    scene.turnstile.LetAllGo();
    scene.group.Wait();
    EXPECT_EQ(scene.turnstile.Entered(), kItems);
    EXPECT_LT(starts.Count(), 24);  // one growth at most, which a slow start may bring; and who waited for it
}

// The clock stands still, so a growth after the first one never comes: whoever queues waits.
TEST(JobGroupQueue, TakesJobsThoughEveryWorkerIsBlockedAndThePoolCannotGrow) {
    FakeTicks ticks(100'000);
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, &Internal::GlobalThreadPool::Queue));
    ticks.Advance(1'000);
    ASSERT_TRUE(held.Start(8, &Internal::GlobalThreadPool::Queue));
    std::atomic<int> ran = 0;
    JobGroup group(L"group");
    for (int i = 0; i < 100; ++i) {
        group.Run(L"job", [&ran] { ++ran; });
    }
    EXPECT_EQ(group.Counts().waiting + group.Counts().running + group.Counts().done, 100U);
    ticks.Advance(1'000);
    group.Wait();
    EXPECT_EQ(ran, 100);
}

// A job has decided on a growth, and no worker is left that could run it: a caller who queued would wait for that.
TEST(JobGroupQueue, TakesJobsThoughTheGrowthThatTheyNeedCannotBegin) {
    const ConcurrencyLifetime lifetime;
    FullPool pool;
    const auto decides = Orvane::Run(L"decides", [] {});
    std::atomic<int> ran = 0;
    JobGroup group(L"group", 2);
    const BackgroundCall add([&] {
        for (int i = 0; i < 100; ++i) {
            group.Run(L"job", [&ran] { ++ran; });
        }
    });
    EXPECT_TRUE(add.Ends());
    EXPECT_EQ(ran, 0);
    pool.Release();
    group.Wait();
    EXPECT_EQ(ran, 100);
}

TEST(JobGroupTryRun, RunsAsLongAsAJobIsFreeToBegin) {
    GroupScene scene(2);
    const auto pass = scene.Held();
    EXPECT_TRUE(scene.group.TryRun(L"first", pass).has_value());
    EXPECT_TRUE(scene.group.TryRun(L"second", pass).has_value());
    EXPECT_FALSE(scene.group.TryRun(L"third", pass).has_value());
    scene.turnstile.LetOneGo();
    EXPECT_TRUE(Eventually([&] { return scene.group.TryRun(L"fourth", pass).has_value(); }));
    scene.turnstile.LetAllGo();
    scene.group.Wait();
    EXPECT_EQ(scene.turnstile.Entered(), 3);
}

TEST(JobGroupTryRun, RefusesWhileJobsThatWaitTakeAllPlaces) {
    GroupScene scene(2);
    scene.AddHeld(2);
    EXPECT_FALSE(scene.group.TryRun(L"refused", [] {}).has_value());
}

TEST(JobGroupTryRun, GivesTheResult) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    auto job = group.TryRun(L"sum", [](int a, int b) { return a + b; }, 2, 3);
    ASSERT_TRUE(job.has_value());
    EXPECT_EQ(job->Get(), 5);
}

struct MovableCallable {
    std::unique_ptr<int> owned = std::make_unique<int>(1);
    void operator()(std::unique_ptr<int>) {}
};

TEST(JobGroupTryRun, TouchesNeitherCallableNorArgumentsWhenItRefuses) {
    GroupScene scene(1);
    ASSERT_TRUE(scene.HoldOne());
    MovableCallable callable;
    auto argument = std::make_unique<int>(2);
    EXPECT_FALSE(scene.group.TryRun(L"refused", std::move(callable), std::move(argument)).has_value());
    EXPECT_NE(callable.owned, nullptr);
    EXPECT_NE(argument, nullptr);
    EXPECT_EQ(scene.group.Counts().waiting, 0U);
}

struct ThrowsWhenCopied {
    ThrowsWhenCopied() = default;
    ThrowsWhenCopied(const ThrowsWhenCopied&) { throw std::domain_error("copied"); }
    void operator()() const {}
};

TEST(JobGroupTryRun, GivesItsPlaceBackWhenTheCallableCannotBeCopied) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    const ThrowsWhenCopied callable;
    EXPECT_THROW(group.TryRun(L"never", callable), std::domain_error);
    EXPECT_TRUE(group.TryRun(L"next", [] {}).has_value());
    group.Wait();
}

struct ActsWhenCopied {
    explicit ActsWhenCopied(std::function<void()> act) : action(std::move(act)) {}
    ActsWhenCopied(const ActsWhenCopied& other) : action(other.action) { action(); }
    void operator()() const {}

    std::function<void()> action;
};

// The only place is free, because its job waits for one beside the bound. That one ends while the callable is being copied.
TEST(JobGroupTryRun, KeepsItsPlaceFromAJobThatWantsItsOwnAgain) {
    std::atomic<bool> wentOn = false;
    Turnstile goesOn;
    GroupScene scene(1);
    const OpensAtEnd end(goesOn);
    auto beside = scene.group.RunInNewThread(L"beside", scene.Held());
    ASSERT_TRUE(scene.Entered(1));
    scene.group.Run(L"waits", [&] {
        beside.Wait();
        wentOn = true;
        goesOn.Pass();
    });
    ActsWhenCopied callable([&] {
        scene.turnstile.LetAllGo();
        EXPECT_TRUE(Eventually([&] { return scene.group.Counts().done == 1; }));
        std::this_thread::sleep_for(30ms);  // it is awake, and has no place
        EXPECT_FALSE(wentOn);
    });
    std::optional<GroupJob<void>> job;
    ASSERT_TRUE(Eventually([&] {
        if (scene.group.Counts().running != 2) {
            return false;
        }
        job = scene.group.TryRun(L"tried", callable);
        return job.has_value();
    }));
    EXPECT_TRUE(job->WaitFor(kPatience));
}

// No worker is free, so the job waits, and has its place.
TEST(JobGroupTryRun, GivesItsPlaceBackWhenTheJobIsCancelledBeforeItBegins) {
    FakeTicks ticks(100'000);
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, &Internal::GlobalThreadPool::Queue));
    ticks.Advance(1'000);
    ASSERT_TRUE(held.Start(8, &Internal::GlobalThreadPool::Queue));
    JobGroup group(L"group", 1);
    const auto job = group.TryRun(L"cancelled", [] {});
    ASSERT_TRUE(job.has_value());
    EXPECT_FALSE(group.TryRun(L"refused", [] {}).has_value());
    job->Cancel();
    EXPECT_TRUE(group.TryRun(L"next", [] {}).has_value());
    ticks.Advance(1'000);
    group.Wait();
    EXPECT_EQ(group.Counts().done, 1U);
}

TEST(JobGroupRun, LeavesNothingBehindWhenTheCallableCannotBeCopied) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    const ThrowsWhenCopied callable;
    EXPECT_THROW(group.Run(L"never", callable), std::domain_error);
    group.Wait();
    EXPECT_EQ(group.Counts().done, 0U);
    EXPECT_EQ(group.begin(), group.end());
}

TEST(JobGroupCounts, TellWhatBecameOfTheJobs) {
    GroupScene scene(2);
    const auto expect = [&scene](std::vector<std::size_t> counts) {
        return Eventually([&] {
            const JobCounts now = scene.group.Counts();
            return std::vector{now.waiting, now.running, now.done, now.failed, now.cancelled} == counts;
        });
    };
    EXPECT_TRUE(expect({0, 0, 0, 0, 0}));
    scene.AddHeld(1);
    scene.group.Run(L"fails", [&scene] {
        scene.turnstile.Pass();
        throw 1;
    });
    scene.group.Run(L"waiting", [] {});
    EXPECT_TRUE(expect({1, 2, 0, 0, 0}));
    scene.group.RunInNewThread(L"beside", scene.Staying());
    ASSERT_TRUE(scene.blocked.Enter(1));
    EXPECT_TRUE(expect({1, 3, 0, 0, 0}));
    ASSERT_TRUE(scene.Entered(2));
    scene.turnstile.LetAllGo();
    EXPECT_TRUE(Eventually([&] { return scene.group.Counts().running == 0; }));
    const JobCounts last = scene.group.Counts();
    EXPECT_EQ(last.failed, 1U);
    EXPECT_GE(last.cancelled, 1U);  // the one in the thread; the waiting one may have begun before the failure
    EXPECT_EQ(last.done + last.failed + last.cancelled, 4U);
    EXPECT_EQ(last.waiting, 0U);
}

TEST(JobGroupInNewThread, RunsBesideTheBound) {
    GroupScene scene(1);
    ASSERT_TRUE(scene.HoldOne());
    EXPECT_EQ(scene.group.RunInNewThread(L"beside", [] { return 3; }).Get(), 3);
    EXPECT_EQ(scene.turnstile.Inside(), 1);
}

TEST(JobGroupInNewThread, ThatCannotBeStartedThrowsAndLeavesNothingBehind) {
    const ConcurrencyLifetime lifetime;
    const auto captured = std::make_shared<int>(1);
    JobGroup group(L"group", 1);
    group.RunInNewThread(L"first", [] {}).Wait();
    ThreadStarts starts;
    starts.FailAt(1);
    EXPECT_THROW(group.RunInNewThread(L"refused", [captured] {}), std::exception);
    EXPECT_EQ(captured.use_count(), 1);
    group.Run(L"next", [] {});
    group.Wait();
    EXPECT_EQ(group.Counts().done, 2U);
    EXPECT_EQ(group.Counts().running, 0U);
    EXPECT_EQ(group.Counts().cancelled, 0U);
    std::vector<std::size_t> indexes;
    for (const EndedJob& ended : group) {
        indexes.push_back(ended.index);
    }
    EXPECT_EQ(indexes, (std::vector<std::size_t>{0, 1}));
}

TEST(JobGroupInNewThread, BlockedTwoHundredAndFiftyTimesLeavesWhenTheGroupGoes) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    {
        JobGroup group(L"group", 1);
        for (int i = 0; i < 250; ++i) {
            group.RunInNewThread(L"blocked", [&blocked] { blocked.Stay(); });
        }
        EXPECT_TRUE(blocked.Enter(250));
    }
    EXPECT_EQ(blocked.Left(), 250);
}

}  // namespace
