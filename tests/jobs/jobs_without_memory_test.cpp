// Memory runs out at any point of what a caller does with a job, and of what its run does.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <new>
#include <optional>
#include <stop_token>
#include <system_error>
#include <tuple>
#include <vector>

#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/faults/every_allocation.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/pool_numbers.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class JobWithoutMemory : public JobTest {
  protected:
    JobWithoutMemory() {
        Run(L"first", [] {}).Get();
        RunInNewThread(L"first", [] {}).Get();
        // A worker keeps what its first cancellable wait has made.
        std::vector<Job<void>> sleepers;
        for (int i = 0; i < kFirstWorkers; ++i) {
            sleepers.push_back(RunSleeper());
        }
    }
};

TEST_F(JobWithoutMemory, IsNotStartedAndLeavesNoCallable) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        int destroyed = 0;
        std::optional<Job<int>> job;
        const auto start = [&] {
            std::shared_ptr<void> end = AtEnd([&destroyed] { ++destroyed; });  // also if this is refused
            job = Run(L"job", [end = std::move(end)] { return 7; });
        };
        if (!attempt.Succeeds(start)) {
            EXPECT_EQ(destroyed, 1);
            EXPECT_FALSE(job);
            start();
        }
        EXPECT_EQ(job->Get(), 7);
    });
    EXPECT_GT(failures, 0);
}

TEST_F(JobWithoutMemory, WithATokenIsNotStarted) {
    std::stop_source source;
    const int failures = ForEveryAllocation([&source](Attempt& attempt) {
        std::optional<Job<int>> job;
        const auto start = [&] { job = Run(L"job", source.get_token(), [] { return 7; }); };
        if (!attempt.Succeeds(start)) {
            EXPECT_FALSE(job);
            start();
        }
        EXPECT_EQ(job->Get(), 7);
    });
    EXPECT_GT(failures, 0);
}

TEST_F(JobWithoutMemory, IsNotStartedInANewThread) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        std::optional<Job<int>> job;
        const auto start = [&] { job = RunInNewThread(L"job", [] { return 7; }); };
        if (!attempt.Succeeds<std::exception>(start)) {
            EXPECT_FALSE(job);
            start();
        }
        EXPECT_EQ(job->Get(), 7);
    });
    EXPECT_GT(failures, 0);
}

TEST_F(JobWithoutMemory, IsNotPosted) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        Gate ran;
        const auto post = [&ran] { Post(L"job", [&ran] { ran.Open(); }); };
        if (!attempt.Succeeds(post)) {
            EXPECT_FALSE(ran.IsOpen());
            post();
        }
        ran.Wait();
    });
    EXPECT_GT(failures, 0);
}

// Outside of a run and inside of one, where a wait registers itself.
TEST_F(JobWithoutMemory, IsWaitedForOnceMore) {
    const auto waits = [](Attempt& attempt) {
        const auto mayEnd = std::make_shared<Gate>();
        auto job = RunHeld(mayEnd);
        bool hasEnded = true;
        if (!attempt.Succeeds([&] { hasEnded = job.WaitFor(1ms); })) {
            hasEnded = job.WaitFor(1ms);
        }
        EXPECT_FALSE(hasEnded);
        mayEnd->Open();
        job.Get();
    };
    ForEveryAllocation(waits);
    EXPECT_GT(Run(L"waits", [&waits] { return ForEveryAllocation(waits); }).Get(), 0);
}

TEST_F(JobWithoutMemory, KeepsItsResultForTheNextGet) {
    const auto gets = [](Attempt& attempt) {
        const auto mayEnd = std::make_shared<Gate>();
        auto job = Run(L"job", [mayEnd] {
            mayEnd->Wait();
            return std::make_unique<int>(7);
        });
        const PlainThread opener([mayEnd] {
            Sleep(1);
            mayEnd->Open();
        });
        std::unique_ptr<int> result;
        if (!attempt.Succeeds([&] { result = job.Get(); })) {
            result = job.Get();
        }
        EXPECT_EQ(*result, 7);
    };
    ForEveryAllocation(gets);
}

TEST_F(JobWithoutMemory, GetsNoLimit) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        auto job = RunSleeper();
        if (!attempt.Succeeds([&] { job.CancelAfter(1h); })) {
            EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
        }
        job.CancelAfter(0s);
        EXPECT_THROW(job.Get(), TimeLimitException);
    });
    EXPECT_GT(failures, 0);
}

TEST_F(JobWithoutMemory, GetsNoEvent) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        auto job = Run(L"job", [] {});
        HANDLE event = nullptr;
        if (!attempt.Succeeds([&] { event = job.EndEvent(); })) {
            event = job.EndEvent();
        }
        EXPECT_EQ(WaitForSingleObject(event, 30'000), WAIT_OBJECT_0);
    });
    EXPECT_GT(failures, 0);
}

TEST_F(JobWithoutMemory, IsWaitedForWithOthersOnceMore) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        auto sleeper = RunSleeper();
        auto first = Run(L"first", [] { return 1; });
        auto second = Run(L"second", [] { return 2; });
        first.Wait();
        second.Wait();
        std::size_t index = 0;
        std::tuple<int, int> results;
        const auto all = [&] { results = WhenAll(first, second); };
        const auto any = [&] { index = WhenAny(sleeper, first); };
        if (!attempt.Succeeds([&] {
                any();
                all();
            })) {
            any();
            all();
        }
        EXPECT_EQ(results, std::tuple(1, 2));
        EXPECT_EQ(index, 1U);
    });
    EXPECT_GT(failures, 0);
}

TEST_F(JobWithoutMemory, GetsNoStopToken) {
    const int failures = Run(L"job", [] {
                             return ForEveryAllocation([](Attempt& attempt) {
                                 Gate begun;
                                 auto inner = Orvane::RunInNewThread(L"inner", [&attempt, &begun] {
                                     std::stop_token token;
                                     if (!attempt.Succeeds([&] { token = StopTokenOfThisJob(); })) {
                                         token = StopTokenOfThisJob();
                                     }
                                     EXPECT_TRUE(token.stop_possible());
                                     begun.Open();
                                     SleepUntilAsked();
                                 });
                                 begun.Wait();
                                 inner.CancelAfter(0s);
                                 EXPECT_THROW(inner.Get(), TimeLimitException);
                             });
                         }).Get();
    EXPECT_GT(failures, 0);
}

// Asking, dropping and detaching need no memory.
TEST_F(JobWithoutMemory, IsCancelledDroppedAndDetached) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        auto cancelled = RunSleeper();
        std::optional<Job<void>> dropped = RunSleeper();
        auto detached = Run(L"detached", [] {});
        EXPECT_TRUE(attempt.Succeeds([&] {
            cancelled.Cancel();
            dropped.reset();
            detached.Detach();
        }));
        cancelled.Wait();
    });
    // The look at a ring may do without what it did not get.
    EXPECT_LE(failures, 3);
}

// What the run itself asks for: it fails with what it was refused, or does without; it ends in any case.
TEST_F(JobWithoutMemory, EndsWhateverItsRunIsRefused) {
    int failed = 0;
    for (int number = 1; number <= 30; ++number) {
        std::optional<FailingNew> failing;
        auto job = RunInNewThread(L"first", [] { return 7; });  // the thread's own
        EXPECT_EQ(job.Get(), 7);
        auto other = Run(L"job", [] { return std::make_unique<int>(7); });
        failing.emplace(number, AskedBy::OtherThreads);
        auto refused = Run(L"job", [] { return std::make_unique<int>(7); });
        refused.Wait();
        failing.reset();
        other.Wait();
        for (auto* const each : {&refused, &other}) {
            try {
                EXPECT_EQ(*each->Get(), 7);
            } catch (const std::bad_alloc&) {
                ++failed;
            }
        }
    }
    EXPECT_GT(failed, 0);
}

}  // namespace
