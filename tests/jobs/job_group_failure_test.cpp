// What a group does when one of its jobs fails, and when it is asked to leave.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <stdexcept>
#include <stop_token>
#include <string>
#include <typeinfo>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/turnstile.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

struct OddFailure {
    int number;
};

// What leaves the group's Wait().
std::exception_ptr ErrorOfWait(JobGroup& group) {
    try {
        group.Wait();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

template <typename Error>
bool IsExactly(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const Error& caught) {
        return typeid(caught) == typeid(Error);
    } catch (...) {
        return false;
    }
}

int NumberOf(const std::exception_ptr& error) {
    try {
        std::rethrow_exception(error);
    } catch (const OddFailure& failure) {
        return failure.number;
    } catch (...) {
        return -1;
    }
}

TEST(JobGroupFailure, ComesOutOfEachWaitAsItself) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Run(L"fails", [] { throw OddFailure{7}; });
    EXPECT_EQ(NumberOf(ErrorOfWait(group)), 7);
    EXPECT_EQ(NumberOf(ErrorOfWait(group)), 7);
    int other = 0;
    PlainThread([&] { other = NumberOf(ErrorOfWait(group)); }).Join();
    EXPECT_EQ(other, 7);
}

TEST(JobGroupFailure, ThatIsFirstInTimeIsTheOneThatIsThrown) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group", 2);
    Gate begun;
    group.Run(L"added first", [&begun] {
        begun.Open();
        try {
            CancellableSleep(INFINITE);
        } catch (const CancelRequestedException&) {
            throw OddFailure{1};
        }
    });
    group.Run(L"fails first", [&begun] {
        begun.Wait();
        throw OddFailure{2};
    });
    EXPECT_EQ(NumberOf(ErrorOfWait(group)), 2);
    const auto failures = group.Failures();
    ASSERT_EQ(failures.size(), 2U);
    EXPECT_EQ(failures[0].name, L"fails first");
    EXPECT_EQ(NumberOf(failures[0].error), 2);
    EXPECT_EQ(failures[1].name, L"added first");
    EXPECT_EQ(NumberOf(failures[1].error), 1);
}

TEST(JobGroupFailure, IsTheSameObjectForTheJobsHandle) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    auto job = group.Run(L"fails", [] { throw OddFailure{7}; });
    EXPECT_NE(ErrorOfWait(group), nullptr);
    std::exception_ptr own;
    try {
        job.Get();
    } catch (...) {
        own = std::current_exception();
    }
    EXPECT_EQ(own, ErrorOfWait(group));
    EXPECT_EQ(own, group.Failures().at(0).error);
}

// Each callback keeps the thread that asks until all have been asked.
TEST(JobGroupFailure, AsksTheOthersAllAtOnce) {
    constexpr int kOthers = 3;
    const ConcurrencyLifetime lifetime;
    Countdown begun(kOthers);
    Countdown asked(kOthers);
    JobGroup group(L"group", kOthers + 1);
    for (int i = 0; i < kOthers; ++i) {
        group.Run(L"other", [&] {
            const std::stop_callback callback(StopTokenOfThisJob(), [&] { asked.Wait(); });
            begun.Arrive();
            while (!IsCancellationRequested()) {
                PauseBriefly();
            }
            asked.Meet();
        });
    }
    group.Run(L"fails", [&begun] {
        begun.Wait();
        throw OddFailure{1};
    });
    EXPECT_EQ(NumberOf(ErrorOfWait(group)), 1);
}

// The job fails in a run that is on top of another job's run: that one is asked as well, and the rest of the list too.
TEST(JobGroupFailure, ReachesTheJobThatIsOnTheSameThread) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    bool wasAsked = false;
    JobGroup group(L"group", 3);
    group.Run(L"before", [&blocked] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(1));
    Gate afterIsIn;
    group.Run(L"below", [&] {
        afterIsIn.Wait();
        MakeTask(L"inner", [&group] { group.Cancel(); })();
        wasAsked = IsCancellationRequested();
    });
    group.Run(L"after", [&blocked] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(2));
    afterIsIn.Open();
    EXPECT_TRUE(IsExactly<CancelledException>(ErrorOfWait(group)));
    EXPECT_TRUE(wasAsked);
    EXPECT_EQ(blocked.Left(), 2);
    EXPECT_EQ(group.Counts().done, 1U);
}

TEST(JobGroupFailure, KeepsTheWaitingOnesFromRunningAndDestroysTheirCallables) {
    const ConcurrencyLifetime lifetime;
    const auto captured = std::make_shared<int>(1);
    std::atomic<int> ran = 0;
    Gate added;
    JobGroup group(L"group", 1);
    group.Run(L"fails", [&added] {
        added.Wait();
        throw OddFailure{1};
    });
    for (int i = 0; i < 100; ++i) {
        group.Run(L"waiting", [captured, &ran] { ++ran; });
    }
    added.Open();
    EXPECT_EQ(NumberOf(ErrorOfWait(group)), 1);
    EXPECT_EQ(ran, 0);
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_EQ(group.Counts().cancelled, 100U);
}

TEST(JobGroupFailure, IsNotWhatLeavesBecauseItWasAsked) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    JobGroup group(L"group", 4);
    for (int i = 0; i < 3; ++i) {
        group.Run(L"asked", [&blocked] { blocked.Stay(); });
    }
    group.Run(L"fails", [&blocked] {
        ASSERT_TRUE(blocked.Enter(3));
        throw OddFailure{1};
    });
    EXPECT_EQ(NumberOf(ErrorOfWait(group)), 1);
    const JobCounts counts = group.Counts();
    EXPECT_EQ(counts.failed, 1U);
    EXPECT_EQ(counts.cancelled, 3U);
    EXPECT_EQ(group.Failures().size(), 1U);
}

TEST(JobGroupFailure, IsTheReasonOfTheOthersAndOfTheGroup) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    JobGroup group(L"group", 2);
    const auto other = group.Run(L"other", [&blocked] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(1));
    group.Run(L"guilty", [] { throw OddFailure{1}; });
    EXPECT_EQ(NumberOf(ErrorOfWait(group)), 1);
    for (const CancelReason& reason : {other.GetCancelReason(), group.GetCancelReason()}) {
        EXPECT_EQ(reason.cause, CancelCause::GroupFailure);
        EXPECT_EQ(reason.by, L"guilty");
    }
}

TEST(JobGroupFailure, IsAlsoACancelRequestThatNobodyMade) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Run(L"throws plainly", [] { throw CancelRequestedException(); });
    EXPECT_TRUE(IsExactly<CancelRequestedException>(ErrorOfWait(group)));
    EXPECT_EQ(group.Counts().failed, 1U);
}

TEST(JobGroupFailure, IsAlsoAnEmptyFunction) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Run(L"empty", std::function<void()>());
    EXPECT_TRUE(IsExactly<std::bad_function_call>(ErrorOfWait(group)));
}

TEST(JobGroupFailure, OfAThreadOfItsOwnAsksTheOthers) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    JobGroup group(L"group");
    group.RunInNewThread(L"other", [&blocked] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(1));
    group.RunInNewThread(L"fails", [] { throw OddFailure{3}; });
    EXPECT_EQ(NumberOf(ErrorOfWait(group)), 3);
}

std::atomic<int> g_unreadNumber = 0;

void KeepUnread(const UnreadFailure& failure) {
    g_unreadNumber = NumberOf(failure.error);
}

// Sets the handler for a scope.
struct UnreadFailures {
    UnreadFailures() : before(SetFailureHandler(&KeepUnread)) { g_unreadNumber = 0; }
    ~UnreadFailures() { SetFailureHandler(before); }
    UnreadFailures(const UnreadFailures&) = delete;
    UnreadFailures& operator=(const UnreadFailures&) = delete;

    const FailureHandler before;
};

TEST(JobGroupFailure, ThatNobodyReadGoesToTheHandlerWithTheGroup) {
    const ConcurrencyLifetime lifetime;
    const UnreadFailures unread;
    {
        JobGroup group(L"group");
        group.Run(L"fails", [] { throw OddFailure{9}; });
        EXPECT_TRUE(Eventually([&] { return group.Counts().failed == 1; }));
        EXPECT_EQ(g_unreadNumber, 0);
    }
    EXPECT_EQ(g_unreadNumber, 9);
}

TEST(JobGroupFailure, ThatWasThrownListedOrIteratedDoesNotGoToTheHandler) {
    const ConcurrencyLifetime lifetime;
    const UnreadFailures unread;
    const std::function<void(JobGroup&)> readers[] = {
        [](JobGroup& group) { EXPECT_NE(ErrorOfWait(group), nullptr); },
        [](JobGroup& group) { EXPECT_EQ(group.Failures().size(), 1U); },
        [](JobGroup& group) { EXPECT_EQ(group.begin()->outcome, JobOutcome::Failed); },
    };
    for (const auto& read : readers) {
        JobGroup group(L"group");
        group.Run(L"fails", [] { throw OddFailure{9}; });
        EXPECT_TRUE(Eventually([&] { return group.Counts().failed == 1; }));
        read(group);
    }
    EXPECT_EQ(g_unreadNumber, 0);
}

TEST(JobGroupSpent, ByAFailureAsksWhatIsAddedLaterBeforeItBegins) {
    const ConcurrencyLifetime lifetime;
    const auto captured = std::make_shared<int>(1);
    bool ran = false;
    JobGroup group(L"group");
    group.Run(L"fails", [] { throw OddFailure{1}; });
    EXPECT_NE(ErrorOfWait(group), nullptr);
    auto late = group.Run(L"late", [captured, &ran] { ran = true; });
    EXPECT_TRUE(late.IsReady());
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_THROW(late.Get(), CancelledException);
    EXPECT_EQ(late.GetCancelReason().cause, CancelCause::GroupFailure);
    EXPECT_EQ(late.GetCancelReason().by, L"fails");
    const auto lateInThread = group.RunInNewThread(L"late", [&ran] { ran = true; });
    EXPECT_TRUE(lateInThread.IsReady());
    group.TryRun(L"late", [&ran] { ran = true; });
    EXPECT_NE(ErrorOfWait(group), nullptr);
    EXPECT_FALSE(ran);
    EXPECT_EQ(group.Counts().failed, 1U);
}

TEST(JobGroupSpent, ByACancelAsksWhatIsAddedLater) {
    const ConcurrencyLifetime lifetime;
    bool ran = false;
    JobGroup group(L"group");
    group.Cancel();
    group.Wait();  // there was nothing to cancel
    auto late = group.Run(L"late", [&ran] { ran = true; });
    EXPECT_THROW(late.Get(), CancelledException);
    EXPECT_TRUE(IsExactly<CancelledException>(ErrorOfWait(group)));
    EXPECT_FALSE(ran);
}

TEST(JobGroupCancel, AloneIsACancelledException) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    bool ran = false;
    JobGroup group(L"group", 1);
    const auto first = group.Run(L"running", [&blocked] { blocked.Stay(); });
    const auto second = group.Run(L"waiting", [&ran] { ran = true; });
    ASSERT_TRUE(blocked.Enter(1));
    group.Cancel();
    EXPECT_TRUE(IsExactly<CancelledException>(ErrorOfWait(group)));
    EXPECT_FALSE(ran);
    EXPECT_EQ(group.Counts().cancelled, 2U);
    EXPECT_EQ(group.Failures().size(), 0U);
    EXPECT_EQ(group.GetCancelReason().cause, CancelCause::Group);
    EXPECT_EQ(first.GetCancelReason().cause, CancelCause::Group);
    EXPECT_EQ(second.GetCancelReason().by, L"group");
}

TEST(JobGroupCancel, IsNoErrorIfAllFinishAllTheSame) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    JobGroup group(L"group");
    auto job = group.Run(L"finishes", [&turnstile] {
        turnstile.Pass();
        return 5;
    });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    group.Cancel();
    turnstile.LetAllGo();
    group.Wait();
    EXPECT_EQ(job.Get(), 5);
    EXPECT_EQ(group.Counts().done, 1U);
}

TEST(JobGroupCancel, InsideAJobOnlyMakesTheRequest) {
    const ConcurrencyLifetime lifetime;
    bool wentOn = false;
    bool wasRequested = false;
    JobGroup group(L"group");
    group.Run(L"cancels", [&] {
        group.Cancel();
        wentOn = true;
        wasRequested = IsCancellationRequested();
        CancellationPoint();
        wentOn = false;
    });
    EXPECT_TRUE(IsExactly<CancelledException>(ErrorOfWait(group)));
    EXPECT_TRUE(wentOn);
    EXPECT_TRUE(wasRequested);
}

TEST(JobGroupCancel, OfASingleJobThatRunsSparesTheGroup) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    JobGroup group(L"group");
    auto job = group.Run(L"asked", [&blocked] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(1));
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(group.Run(L"next", [] { return 1; }).Get(), 1);
    group.Wait();
    EXPECT_EQ(group.Counts().cancelled, 1U);
}

TEST(JobGroupCancel, DestroysCallablesWithoutALock) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    JobCounts seen;
    JobGroup group(L"group", 1);
    const OpensAtEnd end(turnstile);
    group.Run(L"held", [&turnstile] { turnstile.Pass(); });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    group.Run(L"waiting", [end = AtEnd([&] {
                               seen = group.Counts();
                               static_cast<void>(group.Run(L"from the end", [] {}));
                           })] {});
    group.Cancel();
    EXPECT_EQ(seen.waiting, 1U);
    EXPECT_EQ(group.Counts().cancelled, 2U);
}

TEST(JobGroupLimit, LeavesAsATimeLimitException) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    JobGroup group(L"group", 1);
    const auto first = group.Run(L"running", [&blocked] { blocked.Stay(); });
    group.Run(L"waiting", [] {});
    group.CancelAfter(10ms);
    EXPECT_TRUE(IsExactly<TimeLimitException>(ErrorOfWait(group)));
    EXPECT_EQ(group.GetCancelReason().cause, CancelCause::Limit);
    EXPECT_EQ(first.GetCancelReason().cause, CancelCause::Limit);
}

TEST(JobGroupLimit, OfZeroAsksAtOnceAndOneBeyondTimeNever) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.CancelAfter(std::chrono::hours::max());
    EXPECT_EQ(group.Run(L"first", [] { return 1; }).Get(), 1);
    group.CancelAfter(0s);
    EXPECT_EQ(group.GetCancelReason().cause, CancelCause::Limit);
    EXPECT_TRUE(group.Run(L"late", [] {}).IsReady());
}

TEST(JobGroupLimit, OfSeveralTheEarliestCounts) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    JobGroup group(L"group");
    group.Run(L"running", [&blocked] { blocked.Stay(); });
    group.CancelAfter(1h);
    group.CancelAfter(10ms);
    group.CancelAfter(2h);
    EXPECT_TRUE(IsExactly<TimeLimitException>(ErrorOfWait(group)));
}

TEST(JobGroupWait, OfAnEmptyGroupReturns) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Wait();
    EXPECT_TRUE(group.WaitFor(0s));
}

TEST(JobGroupWait, WithATimeOutTellsThatItWasNotEnough) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    JobGroup group(L"group");
    const OpensAtEnd end(turnstile);
    group.Run(L"held", [&turnstile] { turnstile.Pass(); });
    EXPECT_FALSE(group.WaitFor(0s));
    EXPECT_FALSE(group.WaitFor(-1h));
    EXPECT_FALSE(group.WaitFor(5ms));
    EXPECT_FALSE(group.WaitUntil(std::chrono::system_clock::now() + 5ms));
    EXPECT_FALSE(group.WaitUntil(std::chrono::steady_clock::time_point::min()));
    turnstile.LetAllGo();
    EXPECT_TRUE(group.WaitFor(std::chrono::hours::max()));
    EXPECT_TRUE(group.WaitUntil(std::chrono::system_clock::now()));
}

TEST(JobGroupWait, WithATimeOutThrowsTheFailureToo) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Run(L"fails", [] { throw OddFailure{1}; });
    EXPECT_THROW(static_cast<void>(group.WaitFor(kPatience)), OddFailure);
}

}  // namespace
