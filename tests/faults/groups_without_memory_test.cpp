// Memory runs out at any point of what callers ask of a group of jobs, and of a parallel loop.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/faults/every_allocation.h"
#include "tests/jobs/blocked.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// What is to fail is not the start of its workers.
void StartThePool() {
    Orvane::Run(L"first", [] {}).Get();
}

// A run whose thread is gone when it has ended, with all that it kept.
void InARun(const std::function<void()>& work) {
    TaskThread run(work);
    EXPECT_TRUE(run.EndedNormally());
}

// A group that found no memory for a runner fails with that.
bool WaitThrowsBadAlloc(JobGroup& group) {
    try {
        group.Wait();
        return false;
    } catch (const std::bad_alloc&) {
        return true;
    }
}

std::size_t CountedIn(JobGroup& group) {
    const JobCounts counts = group.Counts();
    return counts.waiting + counts.running + counts.done + counts.failed + counts.cancelled;
}

// `run` adds one job that holds the pointer, or throws and has added nothing.
void ExpectAJobOrNothing(Attempt& attempt, void (*run)(JobGroup&, std::shared_ptr<std::atomic<int>>)) {
    const auto runs = std::make_shared<std::atomic<int>>(0);
    JobGroup group(L"group", 2);
    if (!attempt.Succeeds([&] { run(group, runs); })) {
        EXPECT_EQ(runs.use_count(), 1);
        EXPECT_EQ(CountedIn(group), 0U);
        run(group, runs);
    }
    const bool hasFailed = WaitThrowsBadAlloc(group);
    EXPECT_EQ(*runs, hasFailed ? 0 : 1);
    EXPECT_EQ(CountedIn(group), 1U);
    EXPECT_EQ(runs.use_count(), 1);
}

TEST(GroupsWithoutMemory, AreMadeOrNot) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation(
        [](Attempt& attempt) { static_cast<void>(attempt.Succeeds([] { const JobGroup group(L"group"); })); });
    EXPECT_GT(failures, 0);
}

TEST(GroupsWithoutMemory, AreMadeOrNotInsideARun) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        InARun([&attempt] { static_cast<void>(attempt.Succeeds([] { const JobGroup group(L"group"); })); });
    });
    EXPECT_GT(failures, 0);
}

TEST(GroupsWithoutMemory, RunTheJobOrHaveNotTakenIt) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        ExpectAJobOrNothing(attempt, [](JobGroup& group, std::shared_ptr<std::atomic<int>> runs) {
            group.Run(L"job", [runs] { ++*runs; });
        });
    });
    EXPECT_GT(failures, 0);
}

TEST(GroupsWithoutMemory, TryTheJobOrHaveNotTakenIt) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        ExpectAJobOrNothing(attempt, [](JobGroup& group, std::shared_ptr<std::atomic<int>> runs) {
            EXPECT_TRUE(group.TryRun(L"job", [runs] { ++*runs; }).has_value());
        });
    });
    EXPECT_GT(failures, 0);
}

TEST(GroupsWithoutMemory, StartTheThreadOrThrow) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        std::atomic<int> runs = 0;
        JobGroup group(L"group", 2);
        const auto run = [&] { group.RunInNewThread(L"job", [&runs] { ++runs; }); };
        if (!attempt.Succeeds<std::exception>(run)) {
            EXPECT_EQ(runs, 0);
            run();
        }
        group.Wait();
        EXPECT_EQ(runs, 1);
        EXPECT_EQ(CountedIn(group), 1U);
    });
    EXPECT_GT(failures, 0);
}

void WaitWithoutMemory(Attempt& attempt) {
    Gate gate;
    JobGroup group(L"group");
    auto job = group.Run(L"held", [&gate] { gate.Wait(); });
    const auto wait = [&group] { EXPECT_FALSE(group.WaitFor(1ms)); };
    static_cast<void>(attempt.Succeeds(wait));
    wait();
    gate.Open();
    group.Wait();
    job.Get();
}

TEST(GroupsWithoutMemory, AreWaitedForAgain) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    ForEveryAllocation(&WaitWithoutMemory);
}

TEST(GroupsWithoutMemory, AreWaitedForAgainInsideARun) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures =
        ForEveryAllocation([](Attempt& attempt) { InARun([&attempt] { WaitWithoutMemory(attempt); }); });
    EXPECT_GT(failures, 0);
}

// The slot that it gave back is its own again.
TEST(GroupsWithoutMemory, KeepTheirBoundWhenAJobCannotWaitForAnother) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        std::atomic<int> atWork = 0;
        std::atomic<int> most = 0;
        JobGroup group(L"group", 1);
        group.Run(L"waits", [&] {
            const auto other = group.Run(L"other", [&] {
                ++atWork;
                most = std::max<int>(most, atWork);
                --atWork;
            });
            static_cast<void>(attempt.Succeeds([&] { static_cast<void>(other.WaitFor(1ms)); }));
            ++atWork;
            PauseBriefly();
            --atWork;
        });
        static_cast<void>(WaitThrowsBadAlloc(group));
        EXPECT_LE(most, 1);
        EXPECT_EQ(CountedIn(group), 2U);
    });
    EXPECT_GT(failures, 0);
}

TEST(GroupsWithoutMemory, LoseNoRecordOfAnIteration) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        JobGroup group(L"group");
        group.Run(L"a name that is too long for a string without memory of its own", [] {}).Wait();
        std::size_t passed = 0;
        if (attempt.Succeeds([&] { static_cast<void>(group.begin()); })) {
            ++passed;
        }
        for (const EndedJob& ended : group) {
            EXPECT_EQ(ended.index, 0U);
            ++passed;
        }
        EXPECT_EQ(passed, 1U);
    });
    EXPECT_GT(failures, 0);
}

TEST(GroupsWithoutMemory, ListTheirFailuresAgain) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        JobGroup group(L"group");
        group.Run(L"fails", [] { throw 1; }).Wait();
        static_cast<void>(attempt.Succeeds([&] { EXPECT_EQ(group.Failures().size(), 1U); }));
        EXPECT_EQ(group.Failures().size(), 1U);
    });
    EXPECT_GT(failures, 0);
}

// What was cancelled stays in the scheduler until it is due: what is left behind is not counted.
TEST(GroupsWithoutMemory, ScheduleItOrHaveNothingLeft) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const auto scenario = [](Attempt& attempt) {
        const auto captured = std::make_shared<int>(1);
        JobGroup group(L"group");
        const auto schedule = [&] { group.Schedule(L"later", 1h, 0s, [captured] {}); };
        if (!attempt.Succeeds(schedule)) {
            EXPECT_TRUE(group.WaitFor(0s));
            EXPECT_TRUE(Eventually([&] { return captured.use_count() == 1; }));
            schedule();
        }
        EXPECT_FALSE(group.WaitFor(0s));
    };
    EXPECT_GT(AttemptEveryAllocation(scenario), 0);
}

TEST(GroupsWithoutMemory, AskAllTheSame) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const auto scenario = [](Attempt& attempt) {
        Blocked blocked;
        JobGroup group(L"group", 1);
        group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        group.Run(L"waiting", [] {});
        group.Schedule(L"later", 1h, 1h, [] {});
        ASSERT_TRUE(blocked.Enter(1));
        EXPECT_TRUE(attempt.Succeeds([&] { group.Cancel(); }));
        EXPECT_THROW(group.Wait(), CancelledException);
    };
    AttemptEveryAllocation(scenario);
}

TEST(GroupsWithoutMemory, EndAllTheSame) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const auto scenario = [](Attempt& attempt) {
        Blocked blocked;
        auto group = std::make_unique<JobGroup>(L"group", 1);
        group->Run(L"blocked", [&blocked] { blocked.Stay(); });
        group->Run(L"waiting", [] {});
        ASSERT_TRUE(blocked.Enter(1));
        EXPECT_TRUE(attempt.Succeeds([&] { group.reset(); }));
        EXPECT_EQ(blocked.Left(), 1);
    };
    AttemptEveryAllocation(scenario);
}

// Each item once, or an error and none under way; then the next call does all.
void LoopWithoutMemory(Attempt& attempt) {
    constexpr int kItems = 50;
    std::vector<std::atomic<int>> items(kItems);
    const auto touch = [](std::atomic<int>& item) { ++item; };
    if (attempt.Succeeds([&] { ForEach(L"items", items, touch, 3); })) {
        for (const auto& item : items) {
            EXPECT_EQ(item, 1);
        }
        return;
    }
    for (auto& item : items) {
        EXPECT_LE(item.exchange(0), 1);
    }
    ForEach(L"items", items, touch, 3);
    for (const auto& item : items) {
        EXPECT_EQ(item, 1);
    }
}

TEST(LoopsWithoutMemory, DoAllItemsOrThrow) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    EXPECT_GT(ForEveryAllocation(&LoopWithoutMemory), 0);
}

TEST(LoopsWithoutMemory, DoAllItemsOrThrowInsideARun) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures =
        ForEveryAllocation([](Attempt& attempt) { InARun([&attempt] { LoopWithoutMemory(attempt); }); });
    EXPECT_GT(failures, 0);
}

TEST(LoopsWithoutMemory, GiveAllResultsOrThrow) {
    const ConcurrencyLifetime lifetime;
    StartThePool();
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        const std::vector<int> items(50, 2);
        std::vector<int> results;
        if (attempt.Succeeds([&] { results = Map(L"items", items, [](int item) { return item * 2; }, 3); })) {
            EXPECT_EQ(results, std::vector<int>(50, 4));
        } else {
            EXPECT_TRUE(results.empty());
        }
    });
    EXPECT_GT(failures, 0);
}

}  // namespace
