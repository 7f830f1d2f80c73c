#include "examples/file_digests/task_window.h"

#include <gtest/gtest.h>

#include <atomic>
#include <new>
#include <set>
#include <stdexcept>

#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "examples/file_digests/file_error.h"
#include "tests/support/gate.h"

namespace {

using namespace FileDigests;
using namespace Zarvo::Test;
using Orvane::Internal::GlobalThreadPool;
using std::chrono::milliseconds;

constexpr std::chrono::seconds kLong{60};

class TaskWindowTest : public testing::TestWithParam<TaskWindow::Launch> {
  protected:
    const Orvane::ConcurrencyLifetime m_lifetime;
};

TEST_P(TaskWindowTest, HandsOutEveryTaskOnceWithItsOutcome) {
    TaskWindow tasks(GetParam(), 8);
    std::atomic<int> runs = 0;
    for (std::size_t id = 10; id < 18; ++id) {
        ASSERT_FALSE(tasks.IsFull());
        tasks.Start(id, L"count", [&] { ++runs; });
    }
    EXPECT_TRUE(tasks.IsFull());

    std::set<std::size_t> ids;
    while (!tasks.IsEmpty()) {
        const auto ended = tasks.WaitForOne(kLong);
        ASSERT_TRUE(ended);
        EXPECT_FALSE(ended->error);
        ids.insert(ended->id);
    }

    EXPECT_EQ(ids, (std::set<std::size_t>{10, 11, 12, 13, 14, 15, 16, 17}));
    EXPECT_EQ(runs, 8);
}

TEST_P(TaskWindowTest, HandsOutTheOneThatEndsFirst) {
    Gate gate;
    TaskWindow tasks(GetParam(), 2);
    tasks.Start(1, L"waits", [&] { gate.Wait(); });
    tasks.Start(2, L"ends", [] {});

    EXPECT_EQ(tasks.WaitForOne(kLong)->id, 2U);
    EXPECT_FALSE(tasks.WaitForOne(milliseconds(1)));
    gate.Open();
    EXPECT_EQ(tasks.WaitForOne(kLong)->id, 1U);
}

TEST_P(TaskWindowTest, JobsErrorArrivesWithItsCode) {
    TaskWindow tasks(GetParam(), 1);
    tasks.Start(1, L"fails", [] { throw FileError("open", 32); });

    const auto ended = tasks.WaitForOne(kLong);

    ASSERT_TRUE(ended && ended->error);
    try {
        std::rethrow_exception(ended->error);
    } catch (const FileError& error) {
        EXPECT_EQ(error.Error(), 32U);
        EXPECT_STREQ(error.what(), "open");
    }
}

TEST_P(TaskWindowTest, LackOfMemoryInAJobIsThatTasksError) {
    TaskWindow tasks(GetParam(), 1);
    tasks.Start(1, L"fails", [] { throw std::bad_alloc(); });

    const auto ended = tasks.WaitForOne(kLong);

    ASSERT_TRUE(ended && ended->error);
    EXPECT_THROW(std::rethrow_exception(ended->error), FileError);
}

TEST_P(TaskWindowTest, CancelAllWakesWhatIsBlockedAndKeepsWhatHasEnded) {
    TaskWindow tasks(GetParam(), 3);
    Gate asleep;
    tasks.Start(1, L"sleeps", [&] {
        asleep.Open();
        Orvane::CancellableSleep(INFINITE);
    });
    tasks.Start(2, L"fails", [] { throw FileError("open", 32); });
    asleep.Wait();
    const auto failed = tasks.WaitForOne(kLong);
    tasks.Start(3, L"ends", [] {});
    const auto done = tasks.WaitForOne(kLong);

    tasks.CancelAll();
    const auto cancelled = tasks.WaitForOne(kLong);

    EXPECT_EQ(failed->id, 2U);
    EXPECT_EQ(done->id, 3U);
    EXPECT_FALSE(done->error);
    ASSERT_TRUE(cancelled && cancelled->error);
    EXPECT_EQ(cancelled->id, 1U);
    EXPECT_THROW(std::rethrow_exception(cancelled->error), Orvane::CancelledException);
    EXPECT_TRUE(tasks.IsEmpty());
}

TEST_P(TaskWindowTest, DestructorCancelsAndWaits) {
    std::atomic<bool> left = false;
    Gate asleep;
    {
        TaskWindow tasks(GetParam(), 1);
        tasks.Start(1, L"sleeps", [&] {
            const std::shared_ptr<void> atEnd(nullptr, [&](void*) { left = true; });
            asleep.Open();
            Orvane::CancellableSleep(INFINITE);
        });
        asleep.Wait();
    }
    EXPECT_TRUE(left);
}

INSTANTIATE_TEST_SUITE_P(Launch, TaskWindowTest,
                         testing::Values(&GlobalThreadPool::Queue, &GlobalThreadPool::LaunchInNewThread),
                         [](const auto& launch) { return launch.index == 0 ? "OnThePool" : "OnDedicatedThreads"; });

TEST(TaskWindow, TaskThatNeverStartedIsHandedOutAsCancelled) {
    TaskWindow tasks([](const Orvane::Internal::Task&) {}, 2);
    tasks.Start(1, L"lost", [] {});
    tasks.Start(2, L"lost", [] {});

    tasks.CancelAll();

    for (std::size_t id = 1; id <= 2; ++id) {
        const auto ended = tasks.WaitForOne(kLong);
        ASSERT_TRUE(ended && ended->error);
        EXPECT_EQ(ended->id, id);
        EXPECT_THROW(std::rethrow_exception(ended->error), Orvane::CancelledException);
    }
    EXPECT_FALSE(tasks.WaitForOne(kLong));
}

TEST(TaskWindow, FailedLaunchPassesTheErrorOnAndHoldsNothing) {
    TaskWindow tasks([](const Orvane::Internal::Task&) { throw std::runtime_error("no thread"); }, 1);

    EXPECT_THROW(tasks.Start(1, L"refused", [] {}), std::runtime_error);
    EXPECT_TRUE(tasks.IsEmpty());
}

}  // namespace
