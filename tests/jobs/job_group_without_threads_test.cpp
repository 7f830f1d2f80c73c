// What a group does when no worker can be started for it.
#include <gtest/gtest.h>

#include <exception>
#include <memory>
#include <string>

#include "concurrency/jobs/job_group.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/turnstile.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

std::string MessageOfWait(JobGroup& group) {
    try {
        group.Wait();
    } catch (const std::exception& error) {
        return error.what();
    }
    return {};
}

TEST(JobGroupWithoutThreads, FailsWithTheErrorOfThePool) {
    ThreadStarts starts;
    starts.FailAt(1);
    const ConcurrencyLifetime lifetime;
    bool ran = false;
    JobGroup group(L"group");
    group.Run(L"never", [&ran] { ran = true; });
    group.Run(L"never", [&ran] { ran = true; });
    EXPECT_EQ(MessageOfWait(group), "Failed to spawn thread, resource error");
    EXPECT_FALSE(ran);
    EXPECT_EQ(group.Counts().waiting, 0U);
    ASSERT_FALSE(group.Failures().empty());
    EXPECT_EQ(group.Failures().front().name, L"group");
}

// All workers are taken, and nobody can wait for a growth.
TEST(JobGroupWithoutThreads, FailsIfNobodyCanWaitForTheGrowth) {
    const FakeTicks ticks(100'000);
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, &Internal::GlobalThreadPool::Queue));
    starts.FailAt(starts.Count() + 1);
    const auto captured = std::make_shared<int>(1);
    bool ran = false;
    JobGroup group(L"group");
    group.Run(L"never", [captured, &ran] { ran = true; });
    EXPECT_NE(MessageOfWait(group), "");
    EXPECT_FALSE(ran);
    EXPECT_EQ(captured.use_count(), 1);
}

// The first group's runner asks for the growth that fails, and gets one of the last workers. The second one's gets none.
TEST(JobGroupWithoutThreads, FailsIfThePoolIsFullAndCannotGrow) {
    FakeTicks ticks(100'000);
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(6, &Internal::GlobalThreadPool::Queue));
    starts.FailAt(starts.Count() + 2);
    ticks.Advance(1'000);
    Turnstile turnstile;
    JobGroup first(L"first", 1);
    const OpensAtEnd end(turnstile);
    first.Run(L"held", [&turnstile] { turnstile.Pass(); });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    bool ran = false;
    JobGroup second(L"second");
    second.Run(L"never", [&ran] { ran = true; });
    EXPECT_NE(MessageOfWait(second), "");
    EXPECT_FALSE(ran);
}

// One runner is enough: the rest waits for it.
TEST(JobGroupWithoutThreads, GoesOnWithTheRunnerThatItHas) {
    FakeTicks ticks(100'000);
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(5, &Internal::GlobalThreadPool::Queue));
    Turnstile turnstile;
    JobGroup group(L"group");
    const OpensAtEnd end(turnstile);
    group.Run(L"held", [&turnstile] { turnstile.Pass(); });
    ASSERT_TRUE(Eventually([&] { return turnstile.Inside() == 1; }));
    starts.FailAt(starts.Count() + 1);
    for (int i = 0; i < 20; ++i) {
        group.Run(L"job", [] {});
    }
    turnstile.LetAllGo();
    group.Wait();
    EXPECT_EQ(group.Counts().done, 21U);
}

}  // namespace
