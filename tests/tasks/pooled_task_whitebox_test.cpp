#include "concurrency/tasks/pooled_task.h"

#include <gtest/gtest.h>

#include <optional>

#include "concurrency/tasks/make_task.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;

constexpr std::uint32_t kPool = 1;
constexpr std::uint32_t kNextPool = 2;

Task MakeIdle() {
    return MakeTask(L"idle", [] {});
}

TEST(PooledTask, IsNotInThePoolBeforeItEnters) {
    const Task task = MakeIdle();
    const PooledTask entry(task);
    EXPECT_FALSE(PooledTask::IsIn(kPool, task));
}

TEST(PooledTask, IsInThePoolUntilItsLastEntryEnds) {
    const Task task = MakeIdle();
    std::optional<PooledTask> first(task);
    std::optional<PooledTask> second(task);
    first->Enter(kPool);
    second->Enter(kPool);

    first.reset();
    EXPECT_TRUE(PooledTask::IsIn(kPool, task));
    second.reset();
    EXPECT_FALSE(PooledTask::IsIn(kPool, task));
}

TEST(PooledTask, CopiesOfAHandleAreOneTaskAndOthersAreNot) {
    const Task task = MakeIdle();
    const Task copy = task;
    PooledTask entry(task);
    entry.Enter(kPool);

    EXPECT_TRUE(PooledTask::IsIn(kPool, copy));
    EXPECT_FALSE(PooledTask::IsIn(kPool, MakeIdle()));
}

TEST(PooledTask, AllEmptyHandlesAreOneTask) {
    {
        PooledTask entry{Task()};
        entry.Enter(kPool);
        EXPECT_TRUE(PooledTask::IsIn(kPool, Task()));
    }
    EXPECT_FALSE(PooledTask::IsIn(kPool, Task()));
}

TEST(PooledTask, LeftBehindInAStoppedPoolIsNotInTheNext) {
    const Task task = MakeIdle();
    std::optional<PooledTask> leftBehind(task);
    leftBehind->Enter(kPool);
    EXPECT_FALSE(PooledTask::IsIn(kNextPool, task));

    std::optional<PooledTask> entry(task);
    entry->Enter(kNextPool);
    EXPECT_TRUE(PooledTask::IsIn(kNextPool, task));
    leftBehind.reset();
    EXPECT_TRUE(PooledTask::IsIn(kNextPool, task));
    entry.reset();
    EXPECT_FALSE(PooledTask::IsIn(kNextPool, task));
}

TEST(PooledTask, ThatComesTooLateToAStoppedPoolDoesNotCount) {
    const Task task = MakeIdle();
    PooledTask entry(task);
    entry.Enter(kNextPool);
    {
        PooledTask late(task);
        late.Enter(kPool);
        EXPECT_TRUE(PooledTask::IsIn(kNextPool, task));
    }
    EXPECT_TRUE(PooledTask::IsIn(kNextPool, task));
}

}  // namespace
