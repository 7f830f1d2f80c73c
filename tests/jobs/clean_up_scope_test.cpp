// CleanUpScope: time to tidy up after a request.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/testing.h"
#include "concurrency/jobs/within.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;
using Orvane::Testing::VirtualTime;

// A job that has been asked calls `tidyUp`, in virtual time.
template <typename TidyUp>
void RunAsked(TidyUp tidyUp) {
    auto job = Orvane::Run(L"job", [&tidyUp] {
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            tidyUp();
            throw;
        }
    });
    EXPECT_FALSE(job.WaitFor(1ms));
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
}

class CleanUp : public JobTest {
  protected:
    VirtualTime m_time;
};

TEST_F(CleanUp, HidesTheRequest) {
    RunAsked([this] {
        const auto before = m_time.Elapsed();
        {
            const CleanUpScope scope(10s);
            EXPECT_FALSE(IsCancellationRequested());
            EXPECT_FALSE(StopTokenOfThisJob().stop_requested());
            EXPECT_EQ(CancelReasonOfThisJob().cause, CancelCause::Handle);
            CancellationPoint();
            CancellableSleep(9'000);
            fifo_mutex mutex;
            const std::lock_guard lock(mutex);
        }
        EXPECT_EQ(m_time.Elapsed() - before, 9s);
        EXPECT_THROW(CancellationPoint(), CancelRequestedException);
    });
}

TEST_F(CleanUp, EndsAtItsTime) {
    RunAsked([this] {
        const auto before = m_time.Elapsed();
        const CleanUpScope scope(10s);
        EXPECT_THROW(CancellableSleep(INFINITE), CancelRequestedException);
        EXPECT_EQ(m_time.Elapsed() - before, 10s);
        EXPECT_TRUE(StopTokenOfThisJob().stop_requested());
    });
}

TEST_F(CleanUp, HidesARequestThatComesMeanwhile) {
    bool hasSlept = false;
    auto job = Run(L"job", [&hasSlept] {
        {
            const CleanUpScope scope(10s);
            CancellableSleep(2'000);
            hasSlept = true;
        }
        CancellationPoint();
        FAIL();
    });
    EXPECT_FALSE(job.WaitFor(1s));
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_TRUE(hasSlept);
    EXPECT_EQ(m_time.Elapsed(), 2s);
}

TEST_F(CleanUp, WhoseTimeIsOverLetsARequestThrough) {
    auto job = Run(L"job", [] {
        const CleanUpScope scope(1s);
        SleepUntilAsked();
    });
    EXPECT_FALSE(job.WaitFor(5s));
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(m_time.Elapsed(), 5s);
}

TEST_F(CleanUp, OfZeroHidesNothing) {
    RunAsked([] {
        const CleanUpScope scope(0s);
        EXPECT_THROW(CancellationPoint(), CancelRequestedException);
    });
}

TEST_F(CleanUp, HidesTheRequestFromWhatIsStartedInIt) {
    RunAsked([this] {
        const auto before = m_time.Elapsed();
        const CleanUpScope scope(10s);
        auto quick = Orvane::Run(L"quick", [] { CancellableSleep(3'000); });
        quick.Get();
        EXPECT_EQ(m_time.Elapsed() - before, 3s);
        auto slow = Orvane::Run(L"slow", [] { CancellableSleep(INFINITE); });
        EXPECT_THROW(slow.Wait(), CancelRequestedException);
        EXPECT_EQ(m_time.Elapsed() - before, 10s);
        EXPECT_EQ(slow.GetCancelReason().cause, CancelCause::Parent);
        EXPECT_EQ(slow.GetCancelReason().by, L"job");
    });
}

TEST_F(CleanUp, LimitInItCuts) {
    RunAsked([this] {
        const auto before = m_time.Elapsed();
        const CleanUpScope scope(10s);
        EXPECT_EQ(MessageOf<TimeLimitException>([] {
                      const Within limit(L"farewell", 2s);
                      CancellableSleep(INFINITE);
                  }),
                  "TimeLimitException: the time limit of 2 s of farewell");
        CancellableSleep(1'000);
        EXPECT_EQ(m_time.Elapsed() - before, 3s);
        const Within longer(1h);
        EXPECT_THROW(CancellableSleep(INFINITE), CancelRequestedException);
        EXPECT_EQ(m_time.Elapsed() - before, 10s);
    });
}

TEST_F(CleanUp, HidesALimitAroundIt) {
    const Within limit(L"Limit", 1s);
    {
        const CleanUpScope scope(10s);
        CancellableSleep(5'000);
    }
    EXPECT_THROW(CancellationPoint(), TimeLimitException);
    const CleanUpScope scope(3s);
    EXPECT_EQ(MessageOf<TimeLimitException>([] { CancellableSleep(INFINITE); }),
              "TimeLimitException: the time limit of 1 s of Limit");
    EXPECT_EQ(m_time.Elapsed(), 8s);
}

TEST_F(CleanUp, InsideAnotherHidesForItsOwnTime) {
    RunAsked([this] {
        const auto before = m_time.Elapsed();
        const CleanUpScope outer(5s);
        const CleanUpScope inner(2s);
        CancellableSleep(4'000);  // the outer one hides the request still
        EXPECT_THROW(CancellableSleep(INFINITE), CancelRequestedException);
        EXPECT_EQ(m_time.Elapsed() - before, 5s);
    });
}

TEST_F(CleanUp, InsideAnotherEndsWithIt) {
    RunAsked([this] {
        const auto before = m_time.Elapsed();
        const CleanUpScope outer(5s);
        const Within between(1h);
        const CleanUpScope inner(1h);
        EXPECT_THROW(CancellableSleep(INFINITE), CancelRequestedException);
        EXPECT_EQ(m_time.Elapsed() - before, 5s);
        const CleanUpScope late(1h);
        EXPECT_THROW(CancellationPoint(), CancelRequestedException);
    });
}

TEST_F(CleanUp, OfALimitedJobSaysWhichLimitItWas) {
    std::string what;
    auto job = Run(L"Answer", [&what] {
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            const CleanUpScope scope(1s);
            what = MessageOf<CancelRequestedException>([] { SleepUntilAsked(); });
            throw;
        }
    });
    job.CancelAfter(2s);
    EXPECT_EQ(MessageOf<TimeLimitException>([&] { job.Get(); }), "TimeLimitException: the time limit of 2 s of Answer");
    EXPECT_EQ(what, "TimeLimitRequestException: the time limit of 2 s of Answer");
    EXPECT_EQ(m_time.Elapsed(), 3s);
}

TEST_F(CleanUp, OutsideARunChangesNothing) {
    const CleanUpScope scope(1s);
    CancellableSleep(5'000);
    EXPECT_EQ(m_time.Elapsed(), 5s);
    EXPECT_FALSE(IsCancellationRequested());
}

TEST_F(CleanUp, RequestOfTheRunItselfIsHiddenAsWell) {
    std::optional<Job<void>> job;
    bool wasHidden = false;
    job = Run(L"job", [&job, &wasHidden] {
        {
            const CleanUpScope scope(10s);
            job->Cancel();
            CancellationPoint();
            wasHidden = true;
        }
        CancellationPoint();
        FAIL();
    });
    EXPECT_THROW(job->Get(), CancelledException);
    EXPECT_TRUE(wasHidden);
}

}  // namespace
