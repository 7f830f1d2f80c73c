// CancelAfter().
#include <gtest/gtest.h>

#include <chrono>
#include <limits>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/within.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/jobs/leaves_nothing.h"
#include "tests/jobs/on_request.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
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
    EXPECT_EQ(MessageOf<TimeLimitException>([&] { job.Get(); }),
              "TimeLimitException: the time limit of 1 ms of sleeper");
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Limit);
    EXPECT_EQ(job.GetCancelReason().by, L"sleeper");
    EXPECT_EQ(job.GetCancelReason().limit, 1ms);

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
    EXPECT_EQ(assigned.GetName(), L"");
    EXPECT_EQ(assigned.GetLimit(), 0s);
}

TEST_F(JobLimit, ExceptionKeepsWhichLimitItWas) {
    const std::shared_ptr<CloneableException> clone = TimeLimitException(L"Fr\u00fchst\u00fcck", 90s).Clone();
    try {
        clone->Rethrow();
        FAIL();
    } catch (const TimeLimitException& late) {
        EXPECT_EQ(late.GetName(), L"Fr\u00fchst\u00fcck");
        EXPECT_EQ(late.GetLimit(), 90s);
        EXPECT_STREQ(late.what(),
                     "TimeLimitException: the time limit of 90 s of Fr\xc3\xbchst\xc3\xbc"
                     "ck");
    }
}

TEST_F(JobLimit, ExceptionTellsItsLengthInAFittingUnit) {
    const auto what = [](std::chrono::nanoseconds limit) { return std::string(TimeLimitException(L"", limit).what()); };
    const std::string begin = "TimeLimitException: the time limit of ";
    EXPECT_EQ(what(1h), begin + "3600 s");
    EXPECT_EQ(what(2s), begin + "2 s");
    EXPECT_EQ(what(1'250ms), begin + "1.25 s");
    EXPECT_EQ(what(1'005ms), begin + "1.005 s");
    EXPECT_EQ(what(20ms), begin + "20 ms");
    EXPECT_EQ(what(1'500us), begin + "1.5 ms");
    EXPECT_EQ(what(7us), begin + "7 us");
    EXPECT_EQ(what(7ns), begin + "7 ns");
    EXPECT_EQ(what(0s), begin + "0 s");
    EXPECT_EQ(what(-1s), begin + "0 s");
}

TEST_F(JobLimit, IsInheritedByWhatTheJobHasStarted) {
    Gate begun;
    std::string what;
    CancelReason reason;
    std::string ofTheChild;
    auto job = Run(L"Import", [&] {
        auto child = Orvane::Run(L"child", [&] {
            auto grandchild = RunInNewThread(L"grandchild", [&] {
                begun.Open();
                try {
                    SleepUntilAsked();
                } catch (const CancelRequestedException& exception) {
                    what = exception.what();
                    reason = CancelReasonOfThisJob();
                    throw;
                }
            });
            grandchild.Get();
        });
        try {
            child.Get();
        } catch (const CancelRequestedException&) {
            const CleanUpScope patient(1h);
            ofTheChild = MessageOf<TimeLimitException>([&] { child.Get(); });
            throw;
        }
    });
    begun.Wait();
    job.CancelAfter(1ms);
    EXPECT_THROW(job.Get(), TimeLimitException);
    EXPECT_EQ(ofTheChild, "TimeLimitException: the time limit of 1 ms of Import");
    EXPECT_EQ(what, "TimeLimitRequestException: the time limit of 1 ms of Import");
    EXPECT_EQ(reason.cause, CancelCause::Limit);
    EXPECT_EQ(reason.by, L"Import");
    EXPECT_EQ(reason.limit, 1ms);
}

// Of what the job drops when it has heard of its limit, before the request comes there: it is held on its way.
template <typename Start>
CancelReason ReasonOfADroppedChild(Start start) {
    Gate begun;
    Gate isAsked;
    Gate isDropped;
    CancelReason reason;
    auto job = Run(L"Import", [&] {
        const auto childBegun = std::make_shared<Gate>();
        auto owned = start([childBegun, &reason] {
            childBegun->Open();
            try {
                SleepUntilAsked();
            } catch (const CancelRequestedException&) {
                reason = CancelReasonOfThisJob();
                throw;
            }
        });
        childBegun->Wait();
        const OnRequest held([&] {
            isAsked.Open();
            isDropped.Wait();
        });
        begun.Open();
        isAsked.Wait();
        owned.reset();
        isDropped.Open();
    });
    begun.Wait();
    job.CancelAfter(0s);
    job.Get();
    return reason;
}

TEST_F(JobLimit, IsTheReasonOfAChildThatTheJobDropsBeforeTheRequestComesToIt) {
    const CancelReason reason = ReasonOfADroppedChild(
        [](auto callable) { return std::make_unique<Job<void>>(Orvane::Run(L"child", callable)); });
    EXPECT_EQ(reason.cause, CancelCause::Limit);
    EXPECT_EQ(reason.by, L"Import");
}

TEST_F(JobLimit, IsTheReasonOfAGroupThatTheJobDropsBeforeTheRequestComesToIt) {
    const CancelReason reason = ReasonOfADroppedChild([](auto callable) {
        auto group = std::make_unique<JobGroup>(L"group");
        group->Run(L"child", callable);
        return group;
    });
    EXPECT_EQ(reason.cause, CancelCause::Limit);
    EXPECT_EQ(reason.by, L"Import");
}

TEST_F(JobLimit, ReachesWhatIsStartedAfterIt) {
    const auto mayGoOn = std::make_shared<Gate>();
    const auto begun = std::make_shared<Gate>();
    CancelReason reason;
    auto job = Run(L"Import", [=, &reason] {
        begun->Open();
        mayGoOn->Wait();
        reason = Orvane::Run(L"child", [] {}).GetCancelReason();
    });
    begun->Wait();
    job.CancelAfter(0s);
    mayGoOn->Open();
    job.Get();
    EXPECT_EQ(reason.cause, CancelCause::Limit);
    EXPECT_EQ(reason.by, L"Import");
}

TEST_F(JobLimit, ThatComesAfterARequestChangesNothing) {
    const auto mayGoOn = std::make_shared<Gate>();
    const auto begun = std::make_shared<Gate>();
    std::string what;
    auto job = Run(L"Import", [=, &what] {
        begun->Open();
        mayGoOn->Wait();
        what = MessageOf<CancelRequestedException>([] { CancellationPoint(); });
    });
    begun->Wait();
    job.Cancel();
    job.CancelAfter(0s);
    mayGoOn->Open();
    job.Get();
    EXPECT_EQ(what, "CancelRequestedException");
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
    ExpectItLeavesNothing([] {
        auto job = Run(L"job", [] {});
        job.CancelAfter(1h);
        job.CancelAfter(30min);
        job.Get();
    });
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
