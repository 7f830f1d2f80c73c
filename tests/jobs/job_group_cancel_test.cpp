// What a group does when it is asked to leave, and what becomes of a group that is spent.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/group_errors.h"
#include "tests/jobs/group_scene.h"
#include "tests/threadpool/at_end.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

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
    bool ran = false;
    GroupScene scene(1);
    const auto first = scene.group.Run(L"running", scene.Staying());
    const auto second = scene.group.Run(L"waiting", [&ran] { ran = true; });
    ASSERT_TRUE(scene.blocked.Enter(1));
    scene.group.Cancel();
    EXPECT_TRUE(IsExactly<CancelledException>(ErrorOfWait(scene.group)));
    EXPECT_FALSE(ran);
    EXPECT_EQ(scene.group.Counts().cancelled, 2U);
    EXPECT_EQ(scene.group.Failures().size(), 0U);
    EXPECT_EQ(scene.group.GetCancelReason().cause, CancelCause::Group);
    EXPECT_EQ(first.GetCancelReason().cause, CancelCause::Group);
    EXPECT_EQ(second.GetCancelReason().by, L"group");
}

TEST(JobGroupCancel, IsNoErrorIfAllFinishAllTheSame) {
    GroupScene scene;
    auto job = scene.group.Run(L"finishes", [&scene] {
        scene.turnstile.Pass();
        return 5;
    });
    ASSERT_TRUE(scene.Entered(1));
    scene.group.Cancel();
    scene.turnstile.LetAllGo();
    scene.group.Wait();
    EXPECT_EQ(job.Get(), 5);
    EXPECT_EQ(scene.group.Counts().done, 1U);
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
    GroupScene scene;
    auto job = scene.group.Run(L"asked", scene.Staying());
    ASSERT_TRUE(scene.blocked.Enter(1));
    job.Cancel();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_EQ(scene.group.Run(L"next", [] { return 1; }).Get(), 1);
    scene.group.Wait();
    EXPECT_EQ(scene.group.Counts().cancelled, 1U);
}

TEST(JobGroupCancel, DestroysCallablesWithoutALock) {
    JobCounts seen;
    GroupScene scene(1);
    ASSERT_TRUE(scene.HoldOne());
    scene.group.Run(L"waiting", [end = AtEnd([&] {
                                     seen = scene.group.Counts();
                                     static_cast<void>(scene.group.Run(L"from the end", [] {}));
                                 })] {});
    scene.group.Cancel();
    EXPECT_EQ(seen.waiting, 1U);
    EXPECT_EQ(scene.group.Counts().cancelled, 2U);
}

TEST(JobGroupLimit, LeavesAsATimeLimitException) {
    GroupScene scene(1);
    const auto first = scene.group.Run(L"running", scene.Staying());
    scene.group.Run(L"waiting", [] {});
    scene.group.CancelAfter(10ms);
    EXPECT_TRUE(IsExactly<TimeLimitException>(ErrorOfWait(scene.group)));
    EXPECT_EQ(scene.group.GetCancelReason().cause, CancelCause::Limit);
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
    GroupScene scene;
    scene.group.Run(L"running", scene.Staying());
    scene.group.CancelAfter(1h);
    scene.group.CancelAfter(10ms);
    scene.group.CancelAfter(2h);
    EXPECT_TRUE(IsExactly<TimeLimitException>(ErrorOfWait(scene.group)));
}

}  // namespace
