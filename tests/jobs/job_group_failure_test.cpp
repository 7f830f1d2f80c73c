// What a group does when one of its jobs fails.
#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <functional>
#include <memory>
#include <stop_token>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/failure_handler.h"
#include "concurrency/tasks/make_task.h"
#include "tests/jobs/group_errors.h"
#include "tests/jobs/group_scene.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

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
    bool wasAsked = false;
    GroupScene scene(3);
    ASSERT_TRUE(scene.BlockOne());
    Gate afterIsIn;
    scene.group.Run(L"below", [&] {
        afterIsIn.Wait();
        MakeTask(L"inner", [&scene] { scene.group.Cancel(); })();
        wasAsked = IsCancellationRequested();
    });
    scene.group.Run(L"after", scene.Staying());
    ASSERT_TRUE(scene.blocked.Enter(2));
    afterIsIn.Open();
    EXPECT_TRUE(IsExactly<CancelledException>(ErrorOfWait(scene.group)));
    EXPECT_TRUE(wasAsked);
    EXPECT_EQ(scene.blocked.Left(), 2);
    EXPECT_EQ(scene.group.Counts().done, 1U);
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
    GroupScene scene(4);
    for (int i = 0; i < 3; ++i) {
        scene.group.Run(L"asked", scene.Staying());
    }
    scene.group.Run(L"fails", [&scene] {
        ASSERT_TRUE(scene.blocked.Enter(3));
        throw OddFailure{1};
    });
    EXPECT_EQ(NumberOf(ErrorOfWait(scene.group)), 1);
    const JobCounts counts = scene.group.Counts();
    EXPECT_EQ(counts.failed, 1U);
    EXPECT_EQ(counts.cancelled, 3U);
    EXPECT_EQ(scene.group.Failures().size(), 1U);
}

TEST(JobGroupFailure, IsTheReasonOfTheOthersAndOfTheGroup) {
    GroupScene scene(2);
    const auto other = scene.group.Run(L"other", scene.Staying());
    ASSERT_TRUE(scene.blocked.Enter(1));
    scene.group.Run(L"guilty", [] { throw OddFailure{1}; });
    EXPECT_EQ(NumberOf(ErrorOfWait(scene.group)), 1);
    for (const CancelReason& reason : {other.GetCancelReason(), scene.group.GetCancelReason()}) {
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
    GroupScene scene;
    scene.group.RunInNewThread(L"other", scene.Staying());
    ASSERT_TRUE(scene.blocked.Enter(1));
    scene.group.RunInNewThread(L"fails", [] { throw OddFailure{3}; });
    EXPECT_EQ(NumberOf(ErrorOfWait(scene.group)), 3);
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

}  // namespace
