// Who owns a group, what its end does, and the last uninitialisation.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "tests/jobs/blocked.h"
#include "tests/jobs/turnstile.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/support/task_thread.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(JobGroupEnd, AsksAllAndWaitsForThem) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    bool ran = false;
    std::optional<GroupJob<void>> first;
    std::optional<GroupJob<void>> second;
    {
        JobGroup group(L"group", 2);
        first = group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        second = group.Run(L"waiting", [&ran] { ran = true; });
        ASSERT_TRUE(blocked.Enter(2));
    }
    EXPECT_EQ(blocked.Left(), 2);
    EXPECT_FALSE(ran);
    EXPECT_EQ(first->GetCancelReason().cause, CancelCause::Dropped);
    EXPECT_EQ(second->GetCancelReason().cause, CancelCause::Dropped);
    EXPECT_THROW(second->Get(), CancelledException);
}

TEST(JobGroupEnd, WaitsForAJobThatDoesNotAnswerAtOnce) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    auto group = std::make_unique<JobGroup>(L"group");
    group->Run(L"held", [&turnstile] { turnstile.Pass(); });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    const BackgroundCall drop([&] { group.reset(); });
    std::this_thread::sleep_for(20ms);
    EXPECT_TRUE(drop.IsRunning());
    turnstile.LetAllGo();
    EXPECT_TRUE(drop.Ends());
}

// In the job itself, or in a run on top of it.
void ExpectThatTheDropAsksAndDoesNotWait(const std::function<void(std::unique_ptr<JobGroup>&)>& drop) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    std::atomic<bool> wasAsked = false;
    std::atomic<bool> ended = false;
    Gate isThere;
    auto group = std::make_unique<JobGroup>(L"group");
    group->Run(L"other", [&blocked] { blocked.Stay(); });
    ASSERT_TRUE(blocked.Enter(1));
    auto job = group->Run(L"drops", [&] {
        isThere.Wait();
        drop(group);
        wasAsked = IsCancellationRequested();
        ended = true;
    });
    isThere.Open();
    job.Wait();
    EXPECT_TRUE(wasAsked);
    EXPECT_TRUE(ended);
    EXPECT_EQ(group, nullptr);
    EXPECT_TRUE(Eventually([&] { return blocked.Left() == 1; }));
}

TEST(JobGroupEnd, InsideAJobOfItsOwnAsksAndDoesNotWait) {
    ExpectThatTheDropAsksAndDoesNotWait([](std::unique_ptr<JobGroup>& group) { group.reset(); });
}

TEST(JobGroupEnd, InAnInnerRunOnAJobsThreadAsksAndDoesNotWait) {
    ExpectThatTheDropAsksAndDoesNotWait(
        [](std::unique_ptr<JobGroup>& group) { MakeTask(L"inner", [&group] { group.reset(); })(); });
}

TEST(JobGroupEnd, InARunThatWasAskedStillWaits) {
    const ConcurrencyLifetime lifetime;
    Turnstile turnstile;
    std::atomic<bool> isInside = false;
    auto parent = Orvane::Run(L"parent", [&] {
        JobGroup group(L"group");
        group.Run(L"held", [&turnstile] { turnstile.Pass(); });
        group.Schedule(L"later", 1h, 1h, [] {});
        isInside = true;
        group.Wait();
    });
    ASSERT_TRUE(Eventually([&] { return isInside && turnstile.Inside() == 1; }));
    parent.Cancel();
    EXPECT_FALSE(parent.WaitFor(20ms));
    turnstile.LetAllGo();
    EXPECT_THROW(parent.Get(), CancelledException);
}

TEST(JobGroupOwner, ThatIsAskedPassesTheRequestToAllJobs) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    CancelReason reason;
    Job<void> parent = Orvane::Run(L"parent", [&] {
        JobGroup group(L"group", 2);
        const auto first = group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        group.Run(L"waiting", [] {});
        try {
            first.Wait();
        } catch (const CancelRequestedException&) {
            // The request wakes this run before it comes to the group.
            static_cast<void>(Eventually([&group] { return group.GetCancelReason().cause != CancelCause::None; }));
            reason = group.GetCancelReason();
            throw;
        }
    });
    ASSERT_TRUE(blocked.Enter(2));
    parent.Cancel();
    EXPECT_TRUE(Eventually([&] { return blocked.Left() == 2; }));
    EXPECT_THROW(parent.Get(), CancelledException);
    EXPECT_EQ(reason.cause, CancelCause::Parent);
    EXPECT_EQ(reason.by, L"parent");
}

// Asked while its owner is elsewhere, not in a wait of the group.
TEST(JobGroupOwner, MayBeATaskAndBusyWithOtherThings) {
    const ConcurrencyLifetime lifetime;
    Blocked blocked;
    Gate end;
    TaskThread owner([&] {
        JobGroup group(L"group");
        group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        end.Wait();
    });
    ASSERT_TRUE(blocked.Enter(1));
    owner.Cancel();
    EXPECT_TRUE(Eventually([&] { return blocked.Left() == 1; }));
    end.Open();
    EXPECT_TRUE(owner.EndedNormally());
}

TEST(JobGroupOwner, ThatWasAskedBeforeMakesASpentGroup) {
    const ConcurrencyLifetime lifetime;
    bool ran = false;
    CancelReason reason;
    Gate begun;
    Job<void> parent = Orvane::Run(L"parent", [&] {
        begun.Open();
        while (!IsCancellationRequested()) {
            PauseBriefly();
        }
        JobGroup group(L"group");
        group.Run(L"late", [&ran] { ran = true; });
        reason = group.GetCancelReason();
    });
    begun.Wait();
    parent.Cancel();
    parent.Wait();
    EXPECT_FALSE(ran);
    EXPECT_EQ(reason.cause, CancelCause::Parent);
}

TEST(JobGroupOwner, LeavesTheGroupAloneOnceItHasEnded) {
    const ConcurrencyLifetime lifetime;
    std::unique_ptr<JobGroup> group;
    Job<void> parent = Orvane::Run(L"parent", [&group] { group = std::make_unique<JobGroup>(L"group"); });
    parent.Wait();
    parent.Cancel();
    EXPECT_EQ(group->Run(L"job", [] { return 1; }).Get(), 1);
    EXPECT_EQ(group->GetCancelReason().cause, CancelCause::None);
}

TEST(JobGroupShutdown, CancelsWhatWaitsAndLetsNobodyHang) {
    ConcurrencyInitialize();
    Blocked blocked;
    std::atomic<bool> ran = false;
    JobGroup group(L"group", 1);
    const auto first = group.Run(L"blocked", [&blocked] { blocked.Stay(); });
    for (int i = 0; i < 50; ++i) {
        group.Run(L"waiting", [&ran] { ran = true; });
    }
    ASSERT_TRUE(blocked.Enter(1));
    std::atomic<bool> wasCancelled = false;
    {
        const PlainThread waiter([&] {
            try {
                group.Wait();
            } catch (const CancelledException&) {
                wasCancelled = true;
            }
        });
        ConcurrencyUninitialize();
    }
    EXPECT_EQ(group.Counts().cancelled, 51U);
    EXPECT_EQ(first.GetCancelReason().cause, CancelCause::Shutdown);
    EXPECT_FALSE(ran);
    EXPECT_THROW(group.Run(L"late", [] {}), Unexpected);
    EXPECT_TRUE(wasCancelled);
}

// It is due when the scheduler is gone.
TEST(JobGroupShutdown, EndsSchedulesAndLetsNobodyHang) {
    ConcurrencyInitialize();
    JobGroup group(L"group");
    group.Schedule(L"later", 1h, 0s, [] {});
    group.Schedule(L"again and again", 1h, 1h, [] {});
    ConcurrencyUninitialize();
    const BackgroundCall wait([&] {
        try {
            group.Wait();
        } catch (const CancelledException&) {
        }
    });
    EXPECT_TRUE(Eventually([&] { return !wait.IsRunning(); }));
    group.Cancel();
}

TEST(JobGroupShutdown, IsReportedToAWaitInsideARun) {
    ConcurrencyInitialize();
    Blocked blocked;
    std::optional<Job<void>> parent = Orvane::Run(L"parent", [&blocked] {
        JobGroup group(L"group", 2);
        for (int i = 0; i < 10; ++i) {
            group.Run(L"blocked", [&blocked] { blocked.Stay(); });
        }
        group.Wait();
    });
    ASSERT_TRUE(blocked.Enter(2));
    ConcurrencyUninitialize();
    EXPECT_THROW(parent->Get(), CancelledException);
    EXPECT_EQ(blocked.Entered(), blocked.Left());
}

}  // namespace
