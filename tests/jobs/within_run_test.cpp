// Within and the run that it is a part of: requests for it, its notifier, its place in a group.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <system_error>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/future_notification_adapter.h"
#include "concurrency/cancellation/killable_task_marker.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/within.h"
#include "concurrency/tasks/make_task.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

class WithinInARun : public JobTest {};

TEST_F(WithinInARun, TokensInItHearARequestForTheJob) {
    const auto isThere = std::make_shared<Gate>();
    auto job = Run(L"job", [=] {
        const Within limit(1h);
        const std::stop_token token = StopTokenOfThisJob();
        isThere->Open();
        EXPECT_TRUE(Eventually([&] { return token.stop_requested(); }));
    });
    isThere->Wait();
    job.Cancel();
    job.Get();
}

TEST_F(WithinInARun, TellsWhyTheJobWasAsked) {
    auto job = Run(L"job", [] {
        const Within limit(0s);
        EXPECT_EQ(CancelReasonOfThisJob().cause, CancelCause::None);
        try {
            const Within inner(1h);
            SleepUntilAsked();
        } catch (const TimeLimitException&) {
        }
    });
    job.Get();
    auto asked = Run(L"asked", [] {
        const Within limit(1h);
        try {
            SleepUntilAsked();
        } catch (const CancelRequestedException&) {
            EXPECT_EQ(CancelReasonOfThisJob().cause, CancelCause::Handle);
            throw;
        }
    });
    asked.Cancel();
    asked.Wait();
}

TEST_F(WithinInARun, JobMayCancelItselfInIt) {
    Gate mayBegin;
    Job<void> job;
    bool wasRequested = false;
    job = Run(L"job", [&] {
        mayBegin.Wait();
        const Within limit(1h);
        job.Cancel();
        wasRequested = IsCancellationRequested();
        CancellationPoint();
    });
    mayBegin.Open();
    EXPECT_THROW(job.Get(), CancelledException);
    EXPECT_TRUE(wasRequested);
}

TEST_F(WithinInARun, TaskThatCancelsItselfInItLeavesByTheException) {
    std::optional<Task> task;
    std::shared_ptr<FutureImpl<void>> outcome;
    bool hasThrown = false;
    task = MakeTask(
        L"task",
        [&] {
            const Within limit(1h);
            try {
                task->Cancel();
            } catch (const CancelRequestedException&) {
                hasThrown = true;
                throw;
            }
        },
        outcome);
    PlainThread([&task] { (*task)(); }).Join();
    EXPECT_TRUE(hasThrown);
    EXPECT_TRUE(outcome->IsCancelled());
}

TEST_F(WithinInARun, RunsInTheTask) {
    EXPECT_EQ(GetFutureObject(), nullptr);
    const Within outside(1h);
    EXPECT_EQ(GetFutureObject(), nullptr);
    TaskThread task([] {
        const auto future = GetFutureObject();
        const auto run = GetCancellationObject();
        const Within limit(1h);
        const Within inner(1h);
        EXPECT_EQ(GetFutureObject(), future);
        EXPECT_NE(GetCancellationObject(), run);
        {
            const KillableTaskMarker marker;
            EXPECT_TRUE(run->GetKillable());
        }
        EXPECT_FALSE(run->GetKillable());
    });
    EXPECT_TRUE(task.EndedNormally());
}

TEST_F(WithinInARun, HearsARequestThatAnotherTaskPassesOn) {
    Gate isInside;
    std::shared_ptr<FutureImpl<void>> outcome;
    TaskThread task([&] {
        const Within limit(1h);
        isInside.Open();
        SleepUntilAsked();
    });
    isInside.Wait();
    task.Future()->RequestCancel();  // as an adapter does
    EXPECT_TRUE(task.EndedCancelled());
}

TEST_F(WithinInARun, LeavesTheNotifierOfTheRunInForce) {
    auto target = std::make_shared<FutureImpl<void>>();
    Gate isInside;
    Gate mayLeave;
    TaskThread task([&] {
        const auto passOn = FutureNotificationAdapter::CreateInstance(target);
        {
            const Within limit(1h);
        }
        const Within limit(1h);
        isInside.Open();
        mayLeave.Wait();
    });
    isInside.Wait();
    task.Cancel();
    EXPECT_TRUE(target->IsCancelled());  // while the scope is still there
    mayLeave.Open();
}

TEST_F(WithinInARun, PutsTheNotifierOfTheRunBack) {
    auto target = std::make_shared<FutureImpl<void>>();
    Gate isOutside;
    Gate mayLeave;
    TaskThread task([&] {
        const auto passOn = FutureNotificationAdapter::CreateInstance(target);
        {
            const Within limit(0s);
        }
        isOutside.Open();
        mayLeave.Wait();
    });
    isOutside.Wait();
    EXPECT_FALSE(target->IsCancelled());
    task.Cancel();
    EXPECT_TRUE(target->IsCancelled());
    mayLeave.Open();
}

TEST_F(WithinInARun, DoesNotReachATaskThatRunsInIt) {
    std::shared_ptr<FutureImpl<void>> outcome;
    const Within limit(0s);
    MakeTask(
        L"task",
        [] {
            EXPECT_FALSE(IsCancellationRequested());
            CancellationPoint();
        },
        outcome)();
    EXPECT_TRUE(outcome->IsNormal());
    EXPECT_THROW(CancellationPoint(), TimeLimitException);
}

TEST_F(WithinInARun, JobGivesItsPlaceBackInIt) {
    JobGroup group(L"group", 1);
    group.Run(L"first", [&group] {
        const Within limit(1h);
        group.Run(L"second", [] {}).Get();
    });
    group.Wait();
}

TEST_F(WithinInARun, HandleOfTheJobItselfMayGoInIt) {
    std::optional<Job<void>> job;
    Gate mayBegin;
    Gate isOver;
    job = Run(L"job", [&] {
        mayBegin.Wait();
        const Within limit(1h);
        job.reset();
        isOver.Open();
    });
    mayBegin.Open();
    isOver.Wait();
}

TEST_F(WithinInARun, RingInItIsRefused) {
    std::optional<Job<void>> job;
    Gate mayBegin;
    job = Run(L"itself", [&] {
        mayBegin.Wait();
        const Within limit(1h);
        job->Wait();
    });
    mayBegin.Open();
    EXPECT_THROW(job->Get(), std::system_error);
}

}  // namespace
