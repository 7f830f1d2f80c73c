// A stream of tasks that wait for half a millisecond each, on a machine of 16 processors as far as the pool knows.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <iostream>

#include "concurrency/base/clock.h"
#include "concurrency/base/condition.h"
#include "concurrency/base/processors.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/stopwatch.h"
#include "tests/threadpool/pool_peers.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

void WaitHalfAMillisecond() {
    RankedMutex<std::recursive_mutex, LockRank::Leaf> mutex;
    Condition never;
    RankedLock lock(mutex);
    never.wait_for(lock, 500us);
}

TEST(ShortTasksOnManyProcessors, GetMoreThanEightThreadsAndNotManyMoreThanProcessors) {
    SetProcessorCountForTest(16);
    std::atomic<std::int64_t> inTasks = 0;  // nanoseconds
    {
        const ThreadPool<NullPolicy> pool(0);
        const auto task = [&inTasks] {
            const auto start = MonotonicClock::now();
            WaitHalfAMillisecond();
            inTasks += (MonotonicClock::now() - start).count();
        };
        const auto queueFor = [&](std::chrono::seconds time) {
            for (const Stopwatch stopwatch; stopwatch.Elapsed() < time;) {
                pool.Core()->Queue(MakeTask(L"short", task));
            }
        };
        queueFor(1s);
        const auto before = inTasks.load();
        const Stopwatch second;
        queueFor(1s);
        const double atATime = static_cast<double>(inTasks - before) /
                               static_cast<double>(std::chrono::nanoseconds(second.Elapsed()).count());
        const auto threads = CountsOf(pool).threadCount;
        std::cout << atATime << " tasks at a time over the second second, " << threads << " threads" << std::endl;
        EXPECT_GE(threads, 2 * kGrowthBatch);
        EXPECT_LE(threads, 8 * kGrowthBatch);  // 16 to 24 where the threads get their processors in time
    }
    SetProcessorCountForTest(0);
}

}  // namespace
