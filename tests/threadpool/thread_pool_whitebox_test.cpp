#include "concurrency/threadpool/thread_pool.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/pool_fields.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Pool = ThreadPool<NullPolicy>;

TEST(ThreadPool, QueueIsFirstInFirstOut) {
    constexpr int kTasks = 1000;
    std::vector<int> order;
    std::vector<int> expected;
    {
        const Pool pool(1);
        HeldTasks held;
        ASSERT_TRUE(held.Start(1, QueueOf(pool)));
        for (int i = 0; i < kTasks; ++i) {
            pool.Core()->Queue(MakeTask(L"task", [&order, i] { order.push_back(i); }));
            expected.push_back(i);
        }
        EXPECT_EQ(CountsOf(pool).queue, static_cast<std::size_t>(kTasks));
    }
    EXPECT_EQ(order, expected);
}

TEST(ThreadPool, QueuedTaskIsPresentUntilItHasReturned) {
    const Pool pool(1);
    HeldTasks first;
    HeldTasks second;
    const Task running = first.Make();
    const Task queued = second.Make();
    ASSERT_TRUE(first.Start(1, [&](const Task&) { pool.Core()->Queue(running); }));
    pool.Core()->Queue(queued);
    EXPECT_TRUE(pool.Core()->IsPresent(running));
    EXPECT_TRUE(pool.Core()->IsPresent(queued));
    EXPECT_FALSE(pool.Core()->IsPresent(first.Make()));
    first.Release();
    EXPECT_TRUE(Eventually([&] { return queued.IsBusy(); }));
    EXPECT_TRUE(Eventually([&] { return !pool.Core()->IsPresent(running); }));
    EXPECT_TRUE(pool.Core()->IsPresent(queued));
    second.Release();
    EXPECT_TRUE(Eventually([&] { return !pool.Core()->IsPresent(queued); }));
}

TEST(ThreadPool, FieldsLieInTheirFixedOrder) {
    const Pool pool(1);
    const auto addresses = FieldOrder::Addresses(*pool.Core());
    for (std::size_t i = 1; i < addresses.size(); ++i) {
        EXPECT_LT(addresses[i - 1], addresses[i]) << "field " << i;
    }
}

}  // namespace
