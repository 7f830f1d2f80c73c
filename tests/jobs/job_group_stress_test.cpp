// Groups whose jobs are added, asked, failed and waited for by several threads at a time.
#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/stress_run.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

std::size_t Ended(const JobCounts& counts) {
    return counts.done + counts.failed + counts.cancelled;
}

TEST(JobGroupStress, CountsEachJobOnceAndKeepsItsBound) {
    constexpr std::size_t kThreads = 3;
    constexpr std::size_t kJobs = 20;
    const ConcurrencyLifetime lifetime;
    const StressRun run(30);
    for (int round = 0; round < run.Rounds(); ++round) {
        Random random = run.Generator(round, kThreads);
        const std::size_t bound = 1 + Choose(random, 4);
        const std::size_t whatHappens = Choose(random, 4);
        std::atomic<std::size_t> atWork = 0;
        std::atomic<bool> wasExceeded = false;
        std::atomic<std::size_t> iterated = 0;
        const auto captured = std::make_shared<int>(1);
        {
            JobGroup group(L"group", bound);
            const auto add = [&](std::size_t thread) {
                Random own = run.Generator(round, thread);
                for (std::size_t i = 0; i < kJobs; ++i) {
                    const bool fails = whatHappens == 1 && Choose(own, 10) == 0;
                    auto job = group.Run(L"job", [&, fails, seed = own(), captured] {
                        if (++atWork > bound) {
                            wasExceeded = true;
                        }
                        Random inside(seed);
                        Linger(inside);
                        --atWork;
                        if (fails) {
                            throw std::domain_error("fails");
                        }
                    });
                    if (whatHappens == 2 && Choose(own, 3) == 0) {
                        job.Cancel();
                    }
                    if (whatHappens == 3 && Choose(own, 20) == 0) {
                        group.Cancel();
                    }
                    Linger(own);
                }
            };
            const auto iterate = [&] {
                for (const EndedJob& ended : group) {
                    static_cast<void>(ended);
                    ++iterated;
                }
            };
            {
                const PlainThread first([&] { add(0); });
                const PlainThread second([&] { add(1); });
                const PlainThread reader(iterate);
                add(2);
            }
            iterate();
            EXPECT_EQ(Ended(group.Counts()), kThreads * kJobs);
            EXPECT_EQ(iterated, kThreads * kJobs);
            EXPECT_EQ(group.Counts().waiting + group.Counts().running, 0U);
        }
        EXPECT_FALSE(wasExceeded);
        EXPECT_EQ(captured.use_count(), 1);
        ASSERT_FALSE(testing::Test::HasFailure()) << run.Description() << " round " << round;
    }
}

// While a runner comes back from a job and looks for the next one.
TEST(JobGroupStress, RunsNothingThatIsAddedOnceItIsSpent) {
    const ConcurrencyLifetime lifetime;
    const StressRun run(100);
    for (int round = 0; round < run.Rounds(); ++round) {
        std::atomic<bool> isSpent = false;
        std::atomic<int> ranLate = 0;
        JobGroup group(L"group", 5);
        for (int i = 0; i < 10; ++i) {
            group.Run(L"busy", [&, seed = run.Generator(round, static_cast<std::size_t>(i))()] {
                while (!isSpent) {
                }
                Random own(seed);
                Linger(own);
            });
        }
        Random random = run.Generator(round, 10);
        Linger(random);
        group.Cancel();
        isSpent = true;
        for (int i = 0; i < 200; ++i) {
            group.Run(L"late", [&ranLate] { ++ranLate; });
        }
        EXPECT_THROW(group.Wait(), CancelledException);
        ASSERT_EQ(ranLate, 0) << run.Description() << " round " << round;
    }
}

TEST(JobGroupStress, IsDroppedInsideAJobWhileOthersFail) {
    const ConcurrencyLifetime lifetime;
    const StressRun run(60);
    for (int round = 0; round < run.Rounds(); ++round) {
        auto open = std::make_shared<Gate>();
        auto group = std::make_shared<std::unique_ptr<JobGroup>>(std::make_unique<JobGroup>(L"group", 4));
        auto ended = std::make_shared<std::atomic<int>>(0);
        for (int i = 0; i < 3; ++i) {
            (*group)->Run(L"fails", [open, ended, seed = run.Generator(round, static_cast<std::size_t>(i))()] {
                open->Wait();
                Random random(seed);
                Linger(random);
                ++*ended;
                throw std::domain_error("fails");
            });
        }
        auto dropper = (*group)->Run(L"drops", [open, group, seed = run.Generator(round, 3)()] {
            open->Wait();
            Random random(seed);
            Linger(random);
            group->reset();
        });
        open->Open();
        ASSERT_TRUE(dropper.WaitFor(kPatience)) << run.Description() << " round " << round;
    }
}

// Also by a run that has been asked, whose waits are cancellation points.
TEST(JobGroupStress, IsDroppedWhileItsScheduleIsDue) {
    const ConcurrencyLifetime lifetime;
    const StressRun run(60);
    for (int round = 0; round < run.Rounds(); ++round) {
        std::atomic<int> runs = 0;
        const auto captured = std::make_shared<int>(1);
        const auto use = [&] {
            Random random = run.Generator(round, 0);
            JobGroup group(L"group", 2);
            group.Schedule(L"again", std::chrono::seconds(0), std::chrono::microseconds(100),
                           [&runs, captured] { ++runs; });
            Linger(random);
            group.Schedule(L"once", std::chrono::seconds(0), std::chrono::seconds(0), [captured] {});
            Linger(random);
        };
        if (round % 2 == 0) {
            use();
        } else {
            auto job = Orvane::Run(L"user", [&use] { use(); });
            Random random = run.Generator(round, 1);
            Linger(random);
            job.Cancel();
            job.Wait();
        }
        ASSERT_EQ(captured.use_count(), 1) << run.Description() << " round " << round;
    }
}

TEST(ParallelStress, DoesEachItemOnceOrThrows) {
    const ConcurrencyLifetime lifetime;
    const StressRun run(40);
    for (int round = 0; round < run.Rounds(); ++round) {
        Random random = run.Generator(round, 0);
        std::vector<std::atomic<int>> items(1 + Choose(random, 2'000));
        const bool fails = Choose(random, 3) == 0;
        const bool isAsked = Choose(random, 3) == 0;
        const std::size_t bound = 1 + Choose(random, 8);
        std::atomic<bool> isInside = false;
        std::atomic<int> atWork = 0;
        auto job = Orvane::Run(L"caller", [&] {
            isInside = true;
            try {
                ForEach(
                    L"items", items,
                    [&](std::atomic<int>& item) {
                        ++atWork;
                        ++item;
                        --atWork;
                        if (fails && &item == &items[items.size() / 2]) {
                            throw std::domain_error("fails");
                        }
                    },
                    bound);
            } catch (...) {
                EXPECT_EQ(atWork, 0);
                throw;
            }
        });
        if (isAsked) {
            Linger(random);
            job.Cancel();
        }
        bool isWhole = true;
        try {
            job.Get();
            EXPECT_FALSE(fails);
        } catch (const CancelledException&) {
            EXPECT_TRUE(isAsked);
            isWhole = false;
        } catch (const std::domain_error&) {
            EXPECT_TRUE(fails);
            isWhole = false;
        }
        for (const auto& item : items) {
            EXPECT_LE(item, 1);
            EXPECT_TRUE(item == 1 || !isWhole);
        }
        ASSERT_FALSE(testing::Test::HasFailure()) << run.Description() << " round " << round;
    }
}

}  // namespace
