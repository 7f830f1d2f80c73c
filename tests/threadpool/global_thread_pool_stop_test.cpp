// Workers that clients have killed.
#include <gtest/gtest.h>

#include <chrono>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/stopwatch.h"
#include "tests/threadpool/killed_worker.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

TEST(GlobalThreadPoolStop, NextPoolStartsWithoutKilledWorkers) {
    {
        const ConcurrencyLifetime lifetime;
        KillOneWorker();
        GlobalThreadPool::IncreaseKilledThreadCount();
    }
    const Stopwatch stopwatch;
    {
        const ConcurrencyLifetime lifetime;
        Task task = MakeTask(L"task", [] {});
        GlobalThreadPool::Queue(task);
        task.Wait();
    }
    EXPECT_LT(stopwatch.Elapsed(), 25s);
}

}  // namespace
