// Waits for a group, also inside its own jobs.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <system_error>

#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "tests/jobs/group_errors.h"
#include "tests/jobs/group_scene.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(JobGroupWait, OfAnEmptyGroupReturns) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Wait();
    EXPECT_TRUE(group.WaitFor(0s));
}

TEST(JobGroupWait, WithATimeOutTellsThatItWasNotEnough) {
    GroupScene scene;
    scene.group.Run(L"held", scene.Held());
    EXPECT_FALSE(scene.group.WaitFor(0s));
    EXPECT_FALSE(scene.group.WaitFor(-1h));
    EXPECT_FALSE(scene.group.WaitFor(5ms));
    EXPECT_FALSE(scene.group.WaitUntil(std::chrono::system_clock::now() + 5ms));
    EXPECT_FALSE(scene.group.WaitUntil(std::chrono::steady_clock::time_point::min()));
    scene.turnstile.LetAllGo();
    EXPECT_TRUE(scene.group.WaitFor(std::chrono::hours::max()));
    EXPECT_TRUE(scene.group.WaitUntil(std::chrono::system_clock::now()));
}

TEST(JobGroupWait, WithATimeOutThrowsTheFailureToo) {
    const ConcurrencyLifetime lifetime;
    JobGroup group(L"group");
    group.Run(L"fails", [] { throw OddFailure{1}; });
    EXPECT_THROW(static_cast<void>(group.WaitFor(kPatience)), OddFailure);
}

TEST(JobGroupWaitInside, IsADeadlockError) {
    const ConcurrencyLifetime lifetime;
    std::error_code error;
    std::string message;
    std::error_code inner;
    const auto wait = [](JobGroup& group) -> std::system_error {
        try {
            group.Wait();
        } catch (const std::system_error& failure) {
            return failure;
        }
        return std::system_error(std::error_code());
    };
    JobGroup group(L"group");
    group.Run(L"waits for itself", [&] {
        const std::system_error failure = wait(group);
        error = failure.code();
        message = failure.what();
        MakeTask(L"inner", [&] { inner = wait(group).code(); })();
    });
    group.Wait();
    EXPECT_EQ(error, std::errc::resource_deadlock_would_occur);
    EXPECT_NE(message.find("waits for itself"), std::string::npos) << message;
    EXPECT_EQ(inner, std::errc::resource_deadlock_would_occur);
}

TEST(JobGroupWaitInside, WithATimeOutIsNotEnough) {
    const ConcurrencyLifetime lifetime;
    bool wasEnough = true;
    JobGroup group(L"group");
    group.Run(L"waits for itself", [&] { wasEnough = group.WaitFor(5ms); });
    group.Wait();
    EXPECT_FALSE(wasEnough);
}

TEST(JobGroupWaitInside, ThroughAJobElsewhereIsADeadlockError) {
    const ConcurrencyLifetime lifetime;
    std::atomic<int> errors = 0;
    const auto expectRing = [&errors](const std::function<void()>& wait) {
        try {
            wait();
        } catch (const std::system_error& failure) {
            errors += failure.code() == std::errc::resource_deadlock_would_occur ? 1 : 0;
        }
    };
    JobGroup group(L"group");
    Gate elsewhereIsThere;
    std::optional<Job<void>> elsewhere;
    group.Run(L"inside", [&] {
        elsewhereIsThere.Wait();
        expectRing([&] { elsewhere->Wait(); });
    });
    elsewhere.emplace(RunInNewThread(L"elsewhere", [&] { expectRing([&] { group.Wait(); }); }));
    elsewhereIsThere.Open();
    elsewhere->Wait();
    group.Wait();
    EXPECT_EQ(errors, 1);
}

}  // namespace
