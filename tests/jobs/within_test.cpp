// Within: a time limit for a part of a run.
#include "concurrency/jobs/within.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <system_error>
#include <vector>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/error_storage.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/jobs/testing.h"
#include "concurrency/tasks/make_task.h"
#include "tests/faults/every_allocation.h"
#include "tests/jobs/job_fixture.h"
#include "tests/jobs/leaves_nothing.h"
#include "tests/support/child_process.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;
using Orvane::Testing::VirtualTime;

// The name of the limit that cuts the call; empty if none does.
template <typename Call>
std::wstring LimitOf(Call call) {
    try {
        call();
    } catch (const TimeLimitException& late) {
        return late.GetName();
    }
    return {};
}

void Stay() {
    CancellableSleep(INFINITE);
}

class WithinTest : public JobTest {};

TEST_F(WithinTest, CutsAtItsTime) {
    const VirtualTime time;
    try {
        const Within limit(L"Limit", 90s);
        Stay();
        FAIL();
    } catch (const TimeLimitException& late) {
        EXPECT_EQ(late.GetName(), L"Limit");
        EXPECT_EQ(late.GetLimit(), 90s);
        EXPECT_STREQ(late.what(), "TimeLimitException: the time limit of 90 s of Limit");
    }
    EXPECT_EQ(time.Elapsed(), 90s);
    CancellableSleep(1000);
    EXPECT_EQ(time.Elapsed(), 91s);
}

TEST_F(WithinTest, InTimeChangesNothing) {
    const VirtualTime time;
    {
        const Within limit(2s);
        CancellableSleep(1000);
    }
    CancellableSleep(5000);
    EXPECT_EQ(time.Elapsed(), 6s);
}

TEST_F(WithinTest, HasTheNameOfTheJobIfItHasNone) {
    const VirtualTime time;
    auto job = Run(L"Import", [] {
        return LimitOf([] {
            const Within limit(1s);
            Stay();
        });
    });
    EXPECT_EQ(job.Get(), L"Import");
    EXPECT_EQ(MessageOf<TimeLimitException>([] {
                  const Within limit(1500us);
                  Stay();
              }),
              "TimeLimitException: the time limit of 1.5 ms");
}

TEST_F(WithinTest, OfZeroOrLessIsOverAtOnce) {
    for (const auto limit : {0ns, -1ns, (std::chrono::nanoseconds::min)()}) {
        EXPECT_EQ(LimitOf([limit] {
                      const Within over(L"Limit", limit);
                      CancellationPoint();
                  }),
                  L"Limit");
    }
}

TEST_F(WithinTest, BeyondTheEndOfTimeIsNeverOver) {
    const ThreadStarts starts;
    const Within hours((std::chrono::hours::max)());
    const Within seconds(std::chrono::duration<double>(1e300));
    CancellationPoint();
    EXPECT_EQ(starts.Count(), 0);
}

TEST_F(WithinTest, ThatIsOverCutsNothingThatDoesNotWait) {
    const auto deaf = [] {
        const Within limit(0s);
        return 42;
    };
    EXPECT_EQ(deaf(), 42);
    CancellationPoint();
}

TEST_F(WithinTest, InsideAnotherIsNamedFirstIfItIsShorter) {
    const VirtualTime time;
    const auto outer = LimitOf([&time] {
        const Within limit(L"outer", 2s);
        EXPECT_EQ(LimitOf([] {
                      const Within shorter(L"inner", 1s);
                      Stay();
                  }),
                  L"inner");
        EXPECT_EQ(time.Elapsed(), 1s);
        Stay();
    });
    EXPECT_EQ(outer, L"outer");
    EXPECT_EQ(time.Elapsed(), 2s);
}

TEST_F(WithinTest, OutsideAnotherReachesWhatIsInIt) {
    const VirtualTime time;
    const auto outer = LimitOf([] {
        const Within limit(L"outer", 1s);
        const Within longer(L"inner", 2s);
        Stay();
    });
    EXPECT_EQ(outer, L"outer");
    EXPECT_EQ(time.Elapsed(), 1s);
}

TEST_F(WithinTest, ThatIsOverGivesWayToAnOuterOneThatIsOver) {
    const VirtualTime time;
    const Within limit(L"outer", 2s);
    const Within shorter(L"inner", 1s);
    EXPECT_EQ(LimitOf([] { Stay(); }), L"inner");
    EXPECT_EQ(LimitOf([] { CancellationPoint(); }), L"inner");
    {
        const CleanUpScope patient(1h);
        CancellableSleep(5'000);
    }
    EXPECT_EQ(LimitOf([] { CancellationPoint(); }), L"outer");
}

TEST_F(WithinTest, OfWhichTheOuterOneIsOverTooIsTheOuterOne) {
    const Within limit(L"outer", 0s);
    const Within shorter(L"inner", 0s);
    EXPECT_EQ(LimitOf([] { CancellationPoint(); }), L"outer");
}

TEST_F(WithinTest, ThatIsOverGivesWayToARequestForTheJob) {
    Gate isOver;
    Gate mayGoOn;
    auto job = Run(L"job", [&] {
        const Within limit(0s);
        EXPECT_THROW(CancellationPoint(), TimeLimitException);
        isOver.Open();
        mayGoOn.Wait();
        EXPECT_THROW(CancellationPoint(), CancelRequestedException);
        CancellationPoint();
    });
    isOver.Wait();
    job.Cancel();
    mayGoOn.Open();
    EXPECT_THROW(job.Get(), CancelledException);
}

TEST_F(WithinTest, InAJobThatWasAskedLetsTheRequestThrough) {
    const auto mayBegin = std::make_shared<Gate>();
    const auto isHeld = std::make_shared<Gate>();
    auto job = Run(L"job", [=] {
        isHeld->Open();
        mayBegin->Wait();
        const Within limit(1h);
        EXPECT_TRUE(IsCancellationRequested());
        auto child = Orvane::Run(L"child", [] {});
        EXPECT_EQ(child.GetCancelReason().cause, CancelCause::Parent);
        EXPECT_EQ(child.GetCancelReason().by, L"job");
        CancellationPoint();
    });
    isHeld->Wait();
    job.Cancel();
    mayBegin->Open();
    EXPECT_THROW(job.Get(), CancelledException);
}

TEST_F(WithinTest, AsksWhatIsStartedInIt) {
    const VirtualTime time;
    auto job = Run(L"Import", [] {
        const Within limit(L"Download", 3s);
        auto child = Orvane::Run(L"child", [] {
            auto grandchild = Orvane::Run(L"grandchild", [] { Stay(); });
            grandchild.Get();
        });
        JobGroup group(L"group");
        auto member = group.Run(L"member", [] { Stay(); });
        EXPECT_THROW(child.Get(), TimeLimitException);  // the wait's
        const CleanUpScope patient(1h);
        for (const auto& reason : {child.GetCancelReason(), group.GetCancelReason(), member.GetCancelReason()}) {
            EXPECT_EQ(reason.cause, CancelCause::Limit);
            EXPECT_EQ(reason.by, L"Download");
            EXPECT_EQ(reason.limit, 3s);
            EXPECT_EQ(ToText(reason), L"asked by the time limit of 3 s of Download");
        }
        EXPECT_EQ(LimitOf([&] { child.Get(); }), L"Download");
        EXPECT_EQ(LimitOf([&] { group.Wait(); }), L"Download");
    });
    job.Get();
    EXPECT_EQ(job.GetCancelReason().cause, CancelCause::None);
    EXPECT_EQ(time.Elapsed(), 3s);
}

TEST_F(WithinTest, StaysForWhatOutlivesIt) {
    const VirtualTime time;
    std::optional<Job<void>> child;
    {
        const Within limit(L"Limit", 5s);
        child = Run(L"child", [] { Stay(); });
        CancellableSleep(1000);
    }
    CancellableSleep(2000);
    EXPECT_EQ(child->GetCancelReason().cause, CancelCause::None);
    EXPECT_EQ(LimitOf([&] { child->Get(); }), L"Limit");
    EXPECT_EQ(time.Elapsed(), 5s);
}

TEST_F(WithinTest, PassesRequestsOnToWhatOutlivesIt) {
    std::optional<Job<void>> child;
    Gate isOutside;
    auto job = Run(L"job", [&] {
        {
            const Within limit(1h);
            child = RunSleeper(L"child");
        }
        isOutside.Open();
        SleepUntilAsked();
    });
    isOutside.Wait();
    job.Cancel();
    EXPECT_THROW(child->Get(), CancelledException);
    EXPECT_EQ(child->GetCancelReason().cause, CancelCause::Parent);
    EXPECT_EQ(child->GetCancelReason().by, L"job");
}

TEST_F(WithinTest, OfATaskIsItsErrorIfItLeavesIt) {
    std::shared_ptr<FutureImpl<void>> outcome;
    Task task = MakeTask(
        L"task",
        [] {
            const Within limit(L"Limit", 1ms);
            Stay();
        },
        outcome);
    PlainThread([&task] { task(); }).Join();
    EXPECT_EQ(MessageOf<TimeLimitException>([&] { outcome->GetValue(); }),
              "TimeLimitException: the time limit of 1 ms of Limit");
}

TEST_F(WithinTest, OutsideARunGivesTheCallerOfALoopNoPart) {
    const DWORD self = ::GetCurrentThreadId();
    std::atomic<bool> isOnThisThread = false;
    const Within limit(1h);
    int items[8] = {};
    ForEach(L"loop", items, [&](int&) { isOnThisThread = isOnThisThread || ::GetCurrentThreadId() == self; });
    EXPECT_FALSE(isOnThisThread);
}

TEST_F(WithinTest, StopsItsTokens) {
    const VirtualTime time;
    auto job = Run(L"job", [] {
        const std::stop_token ofTheJob = StopTokenOfThisJob();
        const Within limit(1s);
        const std::stop_token token = StopTokenOfThisJob();
        EXPECT_NE(token, ofTheJob);
        EXPECT_FALSE(token.stop_requested());
        EXPECT_THROW(Stay(), TimeLimitException);
        EXPECT_TRUE(token.stop_requested());
        EXPECT_FALSE(ofTheJob.stop_requested());
    });
    job.Get();
}

TEST_F(WithinTest, NeedsTheLibrary) {
    std::optional<Within> limit;
    ConcurrencyUninitialize();
    EXPECT_THROW(limit.emplace(1h), ErrorStorage);
    ConcurrencyInitialize();
}

TEST_F(WithinTest, WithoutAThreadIsAnErrorAndNotThere) {
    ThreadStarts starts;
    starts.FailAt(1);
    EXPECT_THROW(const Within limit(1h), std::system_error);
    EXPECT_EQ(GetCancellationObject(), nullptr);
    const Within limit(1h);
    EXPECT_NE(GetCancellationObject(), nullptr);
}

TEST_F(WithinTest, WithoutMemoryIsNotThere) {
    for (const bool isInRun : {false, true}) {
        const auto scenario = [] {
            EXPECT_GT(ForEveryAllocation([](Attempt& attempt) {
                          const auto before = GetCancellationObject();
                          std::optional<Within> limit;
                          if (!attempt.Succeeds([&limit] { limit.emplace(L"a name that needs memory", 1h); })) {
                              EXPECT_EQ(GetCancellationObject(), before);
                              limit.emplace(1h);
                          }
                          EXPECT_NE(GetCancellationObject(), before);
                      }),
                      0);
        };
        const Within keepsTheThread(1h);
        if (isInRun) {
            Run(L"job", scenario).Get();
        } else {
            PlainThread(scenario).Join();
        }
    }
}

TEST_F(WithinTest, WithoutMemoryCutsAllTheSame) {
    const VirtualTime time;
    const Within limit(L"Limit", 0s);
    std::string what(100, ' ');
    {
        const NoMemory noMemory;
        try {
            CancellationPoint();
        } catch (const TimeLimitException& late) {
            what.assign(late.what());
        }
    }
    EXPECT_EQ(what, "TimeLimitException");
}

TEST_F(WithinTest, LeavesNothing) {
    ExpectItLeavesNothing([] {
        Run(L"job", [] {
            const Within limit(1h);
            const Within inner(L"Limit", 1h);
            Orvane::Run(L"child", [] {}).Get();
        }).Get();
        const Within limit(1h);
    });
}

// The other scenes of this program are in docs/process-ends.md.
TEST(WithinChild, ThatEndsItsScopesInOrderEndsNormally) {
    EXPECT_EQ(RunChild("within_test_child").exitCode, 0U);
}

}  // namespace
