// A pass over the jobs of a group in the order in which they end.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/group_scene.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(JobGroupIteration, GivesTheJobsInTheOrderOfTheirEnds) {
    const ConcurrencyLifetime lifetime;
    Gate gates[3];
    JobGroup group(L"group", 3);
    group.Run(L"zero", [&gates] { gates[0].Wait(); });
    group.Run(L"one", [&gates] { gates[1].Wait(); });
    group.Run(L"two", [&gates] { gates[2].Wait(); });
    std::vector<std::wstring> names;
    std::vector<std::size_t> indexes;
    std::size_t next = 2;
    gates[2].Open();
    for (const EndedJob& ended : group) {
        names.push_back(ended.name);
        indexes.push_back(ended.index);
        EXPECT_EQ(ended.outcome, JobOutcome::Done);
        EXPECT_EQ(ended.error, nullptr);
        gates[next == 2 ? 0 : 1].Open();
        next = next == 2 ? 0 : 1;
    }
    EXPECT_EQ(names, (std::vector<std::wstring>{L"two", L"zero", L"one"}));
    EXPECT_EQ(indexes, (std::vector<std::size_t>{2, 0, 1}));
}

TEST(JobGroupIteration, TellsHowEachEnded) {
    GroupScene scene(3);
    scene.group.Run(L"done", [] {}).Wait();
    ASSERT_TRUE(scene.BlockOne());
    scene.group.Run(L"fails", [] { throw std::domain_error("why"); });
    std::vector<JobOutcome> outcomes;
    for (const EndedJob& ended : scene.group) {
        outcomes.push_back(ended.outcome);
        EXPECT_EQ(ended.error != nullptr, ended.outcome == JobOutcome::Failed);
        if (ended.error) {
            EXPECT_THROW(std::rethrow_exception(ended.error), std::domain_error);
        }
    }
    EXPECT_EQ(outcomes, (std::vector{JobOutcome::Done, JobOutcome::Failed, JobOutcome::Cancelled}));
}

TEST(JobGroupIteration, OfAnEmptyGroupEndsAtOnce) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    EXPECT_EQ(group.begin(), group.end());
}

TEST(JobGroupIteration, GivesEachJobOnceAlsoToSeveralThreads) {
    constexpr int kJobs = 300;
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 4);
    std::mutex mutex;
    std::vector<int> timesGiven(kJobs);
    const auto read = [&] {
        for (const EndedJob& ended : group) {
            const std::lock_guard lock(mutex);
            ++timesGiven.at(ended.index);
        }
    };
    Gate added;
    group.Run(L"first", [&added] { added.Wait(); });
    {
        const PlainThread first(read);
        const PlainThread second(read);
        for (int i = 1; i < kJobs; ++i) {
            group.Run(L"job", [] {});
        }
        added.Open();
    }
    EXPECT_EQ(timesGiven, std::vector<int>(kJobs, 1));
    EXPECT_EQ(group.begin(), group.end());
}

TEST(JobGroupIteration, GoesOnWithWhatIsAddedInThePass) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    group.Run(L"job", [] {});
    std::size_t passed = 0;
    for (const EndedJob& ended : group) {
        EXPECT_EQ(ended.index, passed);
        if (++passed < 5) {
            group.Run(L"another", [] {});
        }
    }
    EXPECT_EQ(passed, 5U);
}

TEST(JobGroupIteration, IsACancellationPoint) {
    GroupScene scene;
    scene.group.Run(L"held", scene.Held());
    TaskThread reader([&] { static_cast<void>(scene.group.begin()); });
    reader.Cancel();
    EXPECT_TRUE(reader.EndedCancelled());
}

TEST(JobGroupIteration, ThatIsInterruptedLosesNoRecord) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    group.Run(L"zero", [] {});
    group.Run(L"one", [] {});
    for (const EndedJob& ended : group) {
        EXPECT_EQ(ended.index, 0U);
        break;
    }
    EXPECT_EQ(group.begin()->index, 1U);
    EXPECT_EQ(group.begin(), group.end());
}

TEST(JobGroupIteration, GivesWhatThereIsInsideAJobAndRefusesToWaitForItself) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    group.Run(L"first", [] {});
    std::vector<std::size_t> given;
    std::error_code error;
    group.Run(L"reads", [&] {
        try {
            for (const EndedJob& ended : group) {
                given.push_back(ended.index);
            }
        } catch (const std::system_error& failure) {
            error = failure.code();
        }
    });
    group.Wait();
    EXPECT_EQ(given, std::vector<std::size_t>{0});
    EXPECT_EQ(error, std::errc::resource_deadlock_would_occur);
}

TEST(JobGroupIteration, GivesNothingOnceForgotten) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 1);
    group.Run(L"before", [] {}).Wait();
    group.ForgetEnded();
    group.Run(L"after", [] {}).Wait();
    EXPECT_EQ(group.begin(), group.end());
    EXPECT_EQ(group.Counts().done, 2U);
}

struct CountsAtItsEnd {
    std::shared_ptr<void> end;
};

// The failure of a schedule's run belongs to its record alone.
TEST(JobGroupIteration, LetsGoOfAFailureWithoutALock) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> freed = 0;
    JobGroup group(L"group", 1);
    {
        group.Schedule(
            L"fails", 0s, 0s,
            [&] {
                throw CountsAtItsEnd{std::shared_ptr<void>(nullptr, [&](void*) {
                    group.Counts();
                    ++freed;
                })};
            },
            OnFailure::GoOn);
        group.Wait();
        group.Run(L"second", [] {}).Wait();
        auto pass = group.begin();
        EXPECT_EQ(pass->outcome, JobOutcome::Failed);
        ++pass;
        EXPECT_EQ(pass->outcome, JobOutcome::Done);
        EXPECT_EQ(freed, 1);
    }
}

}  // namespace
