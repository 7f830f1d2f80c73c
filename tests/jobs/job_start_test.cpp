// The platform refuses a thread, or the pool is full: what Run() does.
#include <gtest/gtest.h>

#include <stdexcept>
#include <system_error>

#include "concurrency/jobs/job.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/jobs/full_pool.h"
#include "tests/jobs/job_fixture.h"
#include "tests/support/eventually.h"
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
