// Jobs of a group, and their handles.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <stop_token>
#include <string>

#include "concurrency/errors/exceptions.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/this_job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/jobs/group_scene.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(JobGroupRun, GivesTheResultOnceTheGroupIsGone) {
    const ConcurrencyLifetime lifetime;
    GroupJob<std::unique_ptr<int>> job;
    {
        JobGroup group(L"group");
        job = group.Run(L"seven", [](std::unique_ptr<int> value) { return value; }, std::make_unique<int>(7));
        group.Wait();
    }
    EXPECT_EQ(*job.Get(), 7);
}

TEST(JobGroupRun, OfANullNameIsNameless) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(nullptr);
    const auto job = group.Run(nullptr, [] {});
    group.Wait();
    EXPECT_EQ(group.GetName(), L"");
    EXPECT_EQ(job.GetName(), L"");
}

TEST(JobGroupRun, KeepsLongNamesInFull) {
    const ConcurrencyLifetime lifetime;
    const std::wstring name(5'000, L'n');
    JobGroup group(name.c_str());
    const auto job = group.Run(name.c_str(), [] {});
    group.Wait();
    EXPECT_EQ(group.GetName(), name);
    EXPECT_EQ(job.GetName(), name);
}

TEST(JobGroupRun, ThrowsBeforeTheFirstInitialisation) {
    JobGroup group(L"group");
    EXPECT_THROW(group.Run(L"job", [] {}), Unexpected);
    EXPECT_THROW(group.TryRun(L"job", [] {}), Unexpected);
    EXPECT_THROW(group.RunInNewThread(L"job", [] {}), Unexpected);
    EXPECT_THROW(group.Schedule(L"job", 0s, 0s, [] {}), Unexpected);
    group.Wait();
}

TEST(JobGroupRun, WorksAgainAfterTheNextInitialisation) {
    JobGroup group(L"group");
    EXPECT_THROW(group.Run(L"job", [] {}), Unexpected);
    const ConcurrencyLifetime lifetime;
    EXPECT_EQ(group.Run(L"job", [] { return 4; }).Get(), 4);
}

// The results die at the jobs' ends, as nobody is left to take them.
TEST(GroupJobHandle, DroppedBeforeTheEndLeavesTheJobGoingAndItsResultToTheEnd) {
    const ConcurrencyLifetime lifetime;
    const auto result = std::make_shared<int>(1);
    Gate gate;
    JobGroup group(L"group");
    group.Run(L"job", [&gate, &result] {
        gate.Wait();
        return result;
    });
    gate.Open();
    group.Wait();
    EXPECT_EQ(group.Counts().done, 1U);
    EXPECT_EQ(result.use_count(), 1);
}

// The thread of the limit has the job as long as the callback runs.
TEST(GroupJobHandle, DroppedBeforeTheEndHasItsResultDestroyedThoughAThreadHasTheJobStill) {
    const ConcurrencyLifetime lifetime;
    const auto result = std::make_shared<int>(1);
    Gate begun;
    Gate mayEnd;
    Gate isAsked;
    Gate mayReturn;
    std::optional<std::stop_callback<std::function<void()>>> callback;
    JobGroup group(L"group");
    {
        auto job = group.Run(L"job", [&] {
            callback.emplace(StopTokenOfThisJob(), [&] {
                isAsked.Open();
                mayReturn.Wait();
            });
            begun.Open();
            mayEnd.Wait();
            return result;
        });
        begun.Wait();
        job.CancelAfter(1ms);
    }
    isAsked.Wait();
    mayEnd.Open();
    group.Wait();
    EXPECT_EQ(result.use_count(), 1);
    mayReturn.Open();
}

TEST(GroupJobHandle, KeptKeepsTheResult) {
    const ConcurrencyLifetime lifetime;
    const auto result = std::make_shared<int>(1);
    JobGroup group(L"group");
    {
        const auto job = group.Run(L"job", [&result] { return result; });
        group.Wait();
        EXPECT_EQ(result.use_count(), 2);
    }
    EXPECT_EQ(result.use_count(), 1);
}

TEST(GroupJobHandle, CancelOfAWaitingJobDestroysItsCallableAtOnceAndSparesTheOthers) {
    const auto captured = std::make_shared<int>(1);
    GroupScene scene(1);
    scene.AddHeld(1);
    bool ran = false;
    const auto job = scene.group.Run(L"waiting", [captured, &ran] { ran = true; });
    scene.AddHeld(1);
    job.Cancel();
    EXPECT_EQ(captured.use_count(), 1);
    EXPECT_TRUE(job.IsReady());
    EXPECT_EQ(scene.group.Counts().cancelled, 1U);
    scene.turnstile.LetAllGo();
    EXPECT_TRUE(Eventually([&] { return scene.group.Counts().done == 2; }));
    EXPECT_FALSE(ran);
    EXPECT_EQ(scene.group.GetCancelReason().cause, CancelCause::None);
}

}  // namespace
