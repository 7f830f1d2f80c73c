// The platform refuses a thread, or the pool is full: what Run() does.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/at_end.h"
#include "tests/threadpool/background_call.h"
#include "tests/threadpool/task_records.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

auto Counting(int& destroyed) {
    return [end = AtEnd([&destroyed] { ++destroyed; })] {};
}

TEST(JobStart, OfARefusedThreadIsASystemErrorAndLeavesNoJob) {
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    Orvane::Run(L"first", [] {}).Get();
    int destroyed = 0;
    starts.FailAt(starts.Count() + 1);
    EXPECT_THROW((void)RunInNewThread(L"refused", Counting(destroyed)), std::system_error);
    EXPECT_EQ(destroyed, 1);
    RunInNewThread(L"next", [] {}).Get();
}

TEST(JobStart, OnAPoolThatCannotBeginThrowsAndTheNextTriesAgain) {
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    int destroyed = 0;
    starts.FailAt(1);
    EXPECT_THROW((void)Orvane::Run(L"refused", Counting(destroyed)), std::runtime_error);
    starts.FailAt(starts.Count() + 2);
    EXPECT_THROW(Post(L"refused", Counting(destroyed)), std::runtime_error);
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(Orvane::Run(L"next", [] { return 7; }).Get(), 7);
}

TEST(JobStart, OnAFullPoolThatCannotGrowThrowsInsteadOfWaiting) {
    const RecordedReports reports;
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull, &GlobalThreadPool::Queue));
    starts.FailAt(kBatch + 1);
    ASSERT_TRUE(held.Start(1, &GlobalThreadPool::Queue));  // calls for the growth
    ASSERT_TRUE(Eventually([&] { return CountTasks(reports, kStopped, kGrowthTask) == 1; }));
    int destroyed = 0;
    const BackgroundCall caller([&] {
        try {
            (void)Orvane::Run(L"refused", Counting(destroyed));
            ADD_FAILURE() << "nothing thrown";
        } catch (const std::system_error& error) {
            EXPECT_EQ(error.code(), std::errc::resource_unavailable_try_again);
        }
        EXPECT_THROW(Post(L"refused", Counting(destroyed)), std::system_error);
    });
    EXPECT_TRUE(caller.Ends());
    EXPECT_EQ(destroyed, 2);
    held.Release();
}

// One thread starts the growth and stays in it; the next caller waits for it.
TEST(JobStart, ThatWaitsForAGrowthIsACancellationPoint) {
    ThreadStarts starts;
    Gate growthMayGoOn;
    std::atomic<bool> isGrowing = false;
    starts.Before([&](int number) {
        if (number > kBatch) {
            isGrowing = true;
            growthMayGoOn.Wait();
        }
    });
    const ConcurrencyLifetime lifetime;
    HeldTasks held;
    ASSERT_TRUE(held.Start(kFirstFull - 1, &GlobalThreadPool::Queue));
    Gate mayStart;
    std::atomic<int> destroyed = 0;
    bool hasThrown = false;
    auto starter = Orvane::Run(L"starter", [&] {
        mayStart.Wait();
        try {
            (void)Orvane::Run(L"waits", [end = AtEnd([&destroyed] { ++destroyed; })] {});
        } catch (const CancelRequestedException&) {
            hasThrown = true;
            EXPECT_EQ(destroyed, 1);
            throw;
        }
    });
    ASSERT_TRUE(held.Start(1, &GlobalThreadPool::Queue));
    ASSERT_TRUE(Eventually([&] { return isGrowing.load(); }));
    mayStart.Open();
    Sleep(50);
    EXPECT_EQ(destroyed, 0);
    starter.Cancel();
    starter.Wait();
    EXPECT_TRUE(hasThrown);
    growthMayGoOn.Open();
    held.Release();
}

TEST(JobStart, ThatFailsLeavesNothingBehind) {
    ThreadStarts starts;
    const ConcurrencyLifetime lifetime;
    Orvane::Run(L"first", [] {}).Get();
    const auto fail = [&] {
        starts.FailAt(starts.Count() + 1);
        EXPECT_THROW((void)RunInNewThread(L"refused", [] {}), std::system_error);
    };
    fail();
    const ResourceProbe probe;
    for (int i = 0; i < 100; ++i) {
        fail();
    }
    Resources growth;
    EXPECT_TRUE(Eventually([&] {
        growth = probe.Growth();
        return growth.handles <= 0 && growth.threads <= 0 && growth.blocks <= 0;
    })) << growth;
}

}  // namespace
