// CancelAfter().
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <system_error>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/resource_probe.h"
#include "tests/support/stopwatch.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class JobLimit : public JobTest {};

TEST_F(JobLimit, ThrowsATypeOfItsOwn) {
    auto job = RunSleeper();
    job.CancelAfter(1ms);
    EXPECT_EQ(MessageOf<TimeLimitException>([&] { job.Get(); }), "TimeLimitException");
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Limit);

    auto other = RunSleeper();
    other.CancelAfter(0s);
    EXPECT_THROW(other.Get(), CancelledException);  // is its base
}

TEST_F(JobLimit, ExceptionCanBeCarriedThroughAFuture) {
    const TimeLimitException exception;
    const std::shared_ptr<CloneableException> clone = exception.Clone();
    EXPECT_THROW(clone->Rethrow(), TimeLimitException);
    TimeLimitException assigned;
    assigned = exception;
    EXPECT_STREQ(assigned.what(), "TimeLimitException");
}

TEST_F(JobLimit, IsNotEarly) {
    const Stopwatch stopwatch;
    auto job = RunSleeper();
    job.CancelAfter(100ms);
    EXPECT_THROW(job.Get(), TimeLimitException);
    EXPECT_GE(stopwatch.Elapsed(), 100ms);
}

TEST_F(JobLimit, OfZeroOrLessAsksAtOnce) {
    for (const auto limit : {0ns, -1ns, (std::chrono::nanoseconds::min)()}) {
        const auto mayEnd = std::make_shared<Gate>();
        auto job = RunHeld(mayEnd);
        job.CancelAfter(limit);
        EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Limit);
        mayEnd->Open();
        job.Get();
    }
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    job.CancelAfter((std::chrono::hours::min)());
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Limit);
    mayEnd->Open();
}

TEST_F(JobLimit, BeyondTheEndOfTimeNeverCounts) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    const ThreadStarts starts;
    job.CancelAfter((std::chrono::hours::max)());
    job.CancelAfter((std::chrono::nanoseconds::max)());
    job.CancelAfter(std::chrono::duration<double>(1e300));
    EXPECT_EQ(starts.Count(), 0);
    Sleep(50);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    mayEnd->Open();
    job.Get();
}

TEST_F(JobLimit, ThatIsEarliestCounts) {
    auto job = RunSleeper();
    job.CancelAfter(1h);
    job.CancelAfter(1ms);
    EXPECT_THROW(job.Get(), TimeLimitException);
    job = RunSleeper();
    job.CancelAfter(1ms);
    job.CancelAfter(1h);
    EXPECT_THROW(job.Get(), TimeLimitException);
}

TEST_F(JobLimit, OfAnEndedJobIsNothing) {
    auto job = Run(L"ended", [] { return 7; });
    job.Wait();
    job.CancelAfter(0s);
    job.CancelAfter(1ms);
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    EXPECT_EQ(job.Get(), 7);
}

TEST_F(JobLimit, LosesAgainstAValue) {
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    job.CancelAfter(1ms);
    EXPECT_TRUE(Eventually([&] { return job.GetCancelReason().cause == CancelCause::Limit; }));
    mayEnd->Open();
    job.Get();
}

TEST_F(JobLimit, NeedsNoWorkerOfThePool) {
    FullPool pool;
    bool isDestroyed = false;
    auto job = Run(L"waits", [end = AtEnd([&] { isDestroyed = true; })] {});
    job.CancelAfter(1ms);
    EXPECT_THROW(job.Get(), TimeLimitException);
    EXPECT_TRUE(isDestroyed);
}

TEST_F(JobLimit, OfManyComeInTheirOwnTime) {
    std::vector<Job<void>> jobs;
    for (int i = 0; i < 10; ++i) {
        jobs.push_back(RunInNewThread(L"sleeper", [] { SleepUntilAsked(); }));
    }
    for (int i = 0; i < 10; i += 2) {
        jobs[static_cast<std::size_t>(i)].CancelAfter(std::chrono::milliseconds(20 - i));
    }
    for (std::size_t i = 0; i < 10; i += 2) {
        EXPECT_THROW(jobs[i].Get(), TimeLimitException);
        EXPECT_FALSE(jobs[i + 1].IsReady());
    }
}

TEST_F(JobLimit, MayBeSetByOtherThreads) {
    auto job = RunSleeper();
    PlainThread([&job] { job.CancelAfter(1h); }).Join();
    PlainThread([&job] { job.CancelAfter(1ms); }).Join();
    EXPECT_THROW(job.Get(), TimeLimitException);
}

TEST_F(JobLimit, LeavesNothingWhenTheJobHasEnded) {
    const auto once = [] {
        auto job = Run(L"job", [] {});
        job.CancelAfter(1h);
        job.CancelAfter(30min);
        job.Get();
    };
    once();
    Resources growth;
    const ResourceProbe probe;
    for (int i = 0; i < 100; ++i) {
        once();
    }
    EXPECT_TRUE(Eventually([&] {
        growth = probe.Growth();
        return growth.blocks < 50 && growth.handles < 50;
    })) << growth;
}

TEST_F(JobLimit, WhoseThreadCannotBeStartedIsAnErrorAndIsNotSet) {
    auto job = RunSleeper();
    {
        ThreadStarts starts;
        starts.FailAt(1);
        EXPECT_THROW(job.CancelAfter(1ms), std::system_error);
        Sleep(50);
        EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    }
    job.CancelAfter(1ms);
    EXPECT_THROW(job.Get(), TimeLimitException);
}

}  // namespace
