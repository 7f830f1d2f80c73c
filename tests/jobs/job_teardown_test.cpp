// Jobs before, during and after the time in which the library is initialised.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// Whether each way to start a job is refused, and leaves no callable behind.
void ExpectNoStart() {
    int destroyed = 0;
    const auto callable = [&destroyed] { return [end = AtEnd([&destroyed] { ++destroyed; })] {}; };
    EXPECT_THROW((void)Orvane::Run(L"refused", callable()), Unexpected);
    EXPECT_THROW((void)RunInNewThread(L"refused", callable()), Unexpected);
    EXPECT_THROW(Post(L"refused", callable()), Unexpected);
    EXPECT_EQ(destroyed, 3);
}

TEST(JobTeardown, JobsAreRefusedOutsideOfALifetime) {
    ExpectNoStart();
    {
        const ConcurrencyLifetime lifetime;
        Orvane::Run(L"job", [] {}).Get();
    }
    ExpectNoStart();
    const ConcurrencyLifetime lifetime;
    Orvane::Run(L"job", [] {}).Get();
}

TEST(JobTeardown, HandlesMayOutliveTheLibrary) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    auto value = Orvane::Run(L"value", [] { return 7; });
    auto failed = Orvane::Run(L"failed", []() -> int { throw 42; });
    auto read = Orvane::Run(L"read", [] { return 7; });
    value.Wait();
    failed.Wait();
    EXPECT_EQ(read.Get(), 7);
    lifetime.reset();
    EXPECT_TRUE(value.IsReady());
    EXPECT_EQ(value.GetName(), L"value");
    EXPECT_TRUE(value.WaitFor(0s));
    value.Cancel();
    value.CancelAfter(1ms);
    EXPECT_NE(value.EndEvent(), nullptr);
    EXPECT_EQ(value.Get(), 7);
    EXPECT_THROW(failed.Get(), int);
}

TEST(JobTeardown, AsksLiveJobsAndWaitsForThem) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    auto onThePool = RunSleeper();
    const auto begun = std::make_shared<Gate>();
    CancelReason reason;
    bool wasStopped = false;
    auto dedicated = RunInNewThread(L"dedicated", [&, begun] {
        const std::stop_callback callback(StopTokenOfThisJob(), [&wasStopped] { wasStopped = true; });
        begun->Open();
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            reason = CancelReasonOfThisJob();
            while (!StopTokenOfThisJob().stop_requested()) {
                Sleep(1);
            }
            throw;
        }
    });
    begun->Wait();
    lifetime.reset();
    EXPECT_THROW(onThePool.Get(), CancelledException);
    EXPECT_EQ(onThePool.GetCancelReason().cause, CancelCause::Shutdown);
    EXPECT_THROW(dedicated.Get(), CancelledException);
    EXPECT_EQ(reason.cause, CancelCause::Shutdown);
    EXPECT_TRUE(wasStopped);
}

TEST(JobTeardown, EndsJobsThatHaveNotBegun) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    FullPool pool;
    DWORD destroyedOn = 0;
    DWORD stopper = 0;
    std::atomic<bool> hasRun = false;
    auto job =
        Orvane::Run(L"waits", [&hasRun, end = AtEnd([&] { destroyedOn = GetCurrentThreadId(); })] { hasRun = true; });
    const BackgroundCall stop([&] {
        stopper = GetCurrentThreadId();
        lifetime.reset();
    });
    job.Wait();
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::Shutdown);
    pool.Release();
    EXPECT_TRUE(stop.Ends());
    EXPECT_EQ(destroyedOn, stopper);
    EXPECT_FALSE(hasRun);
}

TEST(JobTeardown, WaitsForAJobThatDoesNotListen) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    const auto mayEnd = std::make_shared<Gate>();
    auto job = RunHeld(mayEnd);
    const BackgroundCall stop([&] { lifetime.reset(); });
    Sleep(50);
    EXPECT_TRUE(stop.IsRunning());
    mayEnd->Open();
    EXPECT_TRUE(stop.Ends());
    job.Get();
}

TEST(JobTeardown, WakesThreadsAndJobsThatWait) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    auto sleeper = RunSleeper();
    const auto begun = std::make_shared<Gate>();
    auto waits = RunInNewThread(L"waits", [&sleeper, begun] {
        begun->Open();
        sleeper.Wait();
    });
    begun->Wait();
    const BackgroundCall outside([&] { sleeper.Wait(); });
    const BackgroundCall any([&] { EXPECT_EQ(WhenAny(sleeper), 0U); });
    lifetime.reset();
    EXPECT_TRUE(outside.Ends());
    EXPECT_TRUE(any.Ends());
    EXPECT_TRUE(waits.IsReady());
}

TEST(JobTeardown, RefusesJobsThatACallableStarts) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    const auto begun = std::make_shared<Gate>();
    auto job = RunInNewThread(L"starts", [begun] {
        begun->Open();
        while (!IsCancellationRequested()) {
            Sleep(1);
        }
        ExpectNoStart();
    });
    begun->Wait();
    lifetime.reset();
    job.Get();
}

// The destructors run on the thread that uninitialises, and on that of the pool.
TEST(JobTeardown, RefusesJobsThatADestructorStarts) {
    std::optional<ConcurrencyLifetime> lifetime(std::in_place);
    FullPool pool;
    std::atomic<int> refused = 0;
    const auto end = [&refused] {
        return AtEnd([&refused] {
            ExpectNoStart();
            ++refused;
        });
    };
    auto waiting = Orvane::Run(L"waiting", [captured = end()] {});
    const auto begun = std::make_shared<Gate>();
    auto sleeping = RunInNewThread(L"sleeping", [begun, captured = end()] {
        begun->Open();
        SleepUntilAsked();
    });
    begun->Wait();
    const BackgroundCall stop([&] { lifetime.reset(); });
    waiting.Wait();
    sleeping.Wait();
    EXPECT_EQ(refused, 2);
    pool.Release();
    EXPECT_TRUE(stop.Ends());
}

void CycleWithALimit() {
    const ConcurrencyLifetime lifetime;
    auto job = RunSleeper();
    job.CancelAfter(1h);
    job.Cancel();
    job.Wait();
}

TEST(JobTeardown, LeavesNoThreadOfTheLimits) {
    EXPECT_EQ(GrowthOver(5, CycleWithALimit), Resources{});
}

// A thread without a limit leaves after a while by itself: here each cycle has to start its own.
TEST(JobTeardown, EndsTheThreadOfTheLimits) {
    const ThreadStarts starts;
    CycleWithALimit();
    const int ofOneCycle = starts.Count();
    CycleWithALimit();
    EXPECT_EQ(starts.Count(), 2 * ofOneCycle);
}

// What a run starts while the library goes away is either refused, or asked.
TEST(JobTeardown, RacesWithStarts) {
    for (int i = 0; i < 20; ++i) {
        std::optional<ConcurrencyLifetime> lifetime(std::in_place);
        const auto begun = std::make_shared<Countdown>(2);
        const auto start = [begun] {
            begun->Arrive();
            const auto startForEver = [] {
                for (;;) {
                    Orvane::Run(L"inner", [] {}).Wait();
                }
            };
            try {
                startForEver();
            } catch (const Unexpected&) {
            }
        };
        auto first = RunInNewThread(L"first", start);
        auto second = RunInNewThread(L"second", start);
        begun->Wait();
        lifetime.reset();
        EXPECT_TRUE(first.IsReady());
        EXPECT_TRUE(second.IsReady());
    }
}

}  // namespace
