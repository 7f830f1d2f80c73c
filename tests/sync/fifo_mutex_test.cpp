#include "concurrency/sync/fifo_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <numeric>
#include <thread>
#include <vector>

#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/resource_probe.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"
#include "tests/sync/line_of_tasks.h"
#include "tests/sync/others.h"
#include "tests/sync/wall_clock.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

std::vector<std::size_t> UpTo(std::size_t count) {
    std::vector<std::size_t> indices(count);
    std::iota(indices.begin(), indices.end(), std::size_t{0});
    return indices;
}

class FifoMutexWithWaiters : public testing::TestWithParam<std::size_t> {};

TEST_P(FifoMutexWithWaiters, ServesThemInOrderOfArrival) {
    fifo_mutex mutex;
    mutex.lock();
    LineOfTasks line(mutex, GetParam());
    EXPECT_TRUE(line.Order().empty());

    mutex.unlock();
    line.Join();
    EXPECT_EQ(line.Order(), LineOfTasks::Turns(UpTo(GetParam())));
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST_P(FifoMutexWithWaiters, ServesTimedOnesInTheSameLine) {
    fifo_mutex mutex;
    mutex.lock();
    LineOfTasks line(mutex, 0);
    for (std::size_t i = 0; i < GetParam(); ++i) {
        if (i % 2 == 0) {
            line.Append([](fifo_mutex& waited) { ASSERT_TRUE(waited.try_lock_until(WallClockNow() + 1h)); });
        } else {
            line.Append();
        }
    }
    mutex.unlock();
    line.Join();
    EXPECT_EQ(line.Order(), LineOfTasks::Turns(UpTo(GetParam())));
}

INSTANTIATE_TEST_SUITE_P(, FifoMutexWithWaiters, testing::Values(1, 3, 30), testing::PrintToStringParamName());

TEST(FifoMutex, HandsOverOnlyWhenTheOwnerBeforeHasUnlocked) {
    fifo_mutex mutex;
    mutex.lock();
    Gate leave[3];
    std::atomic<int> turns = 0;
    std::vector<std::unique_ptr<QueuedTask>> waiters;
    for (Gate& gate : leave) {
        waiters.push_back(std::make_unique<QueuedTask>(mutex, [&] {
            mutex.lock();
            ++turns;
            gate.Wait();
            mutex.unlock();
        }));
    }
    mutex.unlock();
    for (int turn = 1; turn <= 3; ++turn) {
        ASSERT_TRUE(Eventually([&] { return turns == turn; }));
        EXPECT_FALSE(IsFreeForOthers(mutex));
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(turns, turn);
        leave[turn - 1].Open();
    }
}

TEST(FifoMutex, IsFreeAgainAfterTheLastUnlock) {
    fifo_mutex mutex;
    EXPECT_TRUE(IsFreeForOthers(mutex));
    mutex.lock();
    EXPECT_FALSE(IsFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(FifoMutex, ServesThreadsThatRunNoTask) {
    fifo_mutex mutex;
    mutex.lock();
    std::atomic<bool> served = false;
    Thread waiter([&] {
        mutex.lock();
        served = true;
        mutex.unlock();
    });
    std::this_thread::sleep_for(50ms);
    EXPECT_FALSE(served);
    mutex.unlock();
    waiter.join();
    EXPECT_TRUE(served);
}

TEST(FifoMutex, MustBeUnlockedAsOftenAsItsOwnerLockedIt) {
    fifo_mutex mutex;
    mutex.lock();
    mutex.lock();
    LineOfTasks line(mutex, 1);

    mutex.unlock();
    EXPECT_FALSE(IsFreeForOthers(mutex));
    EXPECT_TRUE(line.Order().empty());

    mutex.unlock();
    line.Join();
    EXPECT_EQ(line.Order(), LineOfTasks::Turns({0}));
}

TEST(FifoMutex, MayBeLockedAgainInEveryWay) {
    fifo_mutex mutex;
    ASSERT_TRUE(mutex.try_lock());
    mutex.lock();
    ASSERT_TRUE(mutex.try_lock());
    ASSERT_TRUE(mutex.try_lock_until(TimePoint::min()));
    for (int level = 4; level > 0; --level) {
        EXPECT_FALSE(IsFreeForOthers(mutex)) << level;
        mutex.unlock();
    }
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(FifoMutex, LetsItsOwnerPassThoseWhoWait) {
    fifo_mutex mutex;
    mutex.lock();
    LineOfTasks line(mutex, 2);
    mutex.lock();
    ASSERT_TRUE(mutex.try_lock());
    ASSERT_TRUE(mutex.try_lock_until(TimePoint::max()));
    for (int level = 4; level > 0; --level) {
        EXPECT_TRUE(line.Order().empty());
        mutex.unlock();
    }
    line.Join();
    EXPECT_EQ(line.Order(), LineOfTasks::Turns({0, 1}));
}

// A waiter becomes an owner like any other.
TEST(FifoMutex, MayBeLockedAgainByAFormerWaiter) {
    fifo_mutex mutex;
    mutex.lock();
    Gate leave;
    std::atomic<bool> isOwner = false;
    QueuedTask waiter(mutex, [&] {
        mutex.lock();
        mutex.lock();
        mutex.unlock();
        isOwner = true;
        leave.Wait();
        mutex.unlock();
    });
    mutex.unlock();
    ASSERT_TRUE(Eventually([&] { return isOwner.load(); }));
    EXPECT_FALSE(IsFreeForOthers(mutex));
    leave.Open();
    waiter->Join();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(FifoMutex, RemembersThousandsOfLevels) {
    constexpr int kLevels = 10'000;
    fifo_mutex mutex;
    for (int level = 0; level < kLevels; ++level) {
        mutex.lock();
    }
    for (int level = 1; level < kLevels; ++level) {
        mutex.unlock();
    }
    EXPECT_FALSE(IsFreeForOthers(mutex));
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(FifoMutex, RefusesTryLockOfAnotherAtOnceWithoutAPlaceInTheLine) {
    fifo_mutex mutex;
    Gate leave;
    std::atomic<bool> isOwner = false;
    TaskThread owner([&] {
        mutex.lock();
        isOwner = true;
        leave.Wait();
        mutex.unlock();
    });
    ASSERT_TRUE(Eventually([&] { return isOwner.load(); }));
    EXPECT_FALSE(mutex.try_lock());
    EXPECT_FALSE(mutex.try_lock());
    leave.Open();
    owner.Join();

    // Had this thread an entry, it would be the owner now. (It is alive: no other thread has its id.)
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

// The line keeps an entry for reuse: it must not keep the id of the thread that used it before.
TEST(FifoMutex, KnowsItsOwnerWhoeverHadItBefore) {
    fifo_mutex mutex;
    mutex.lock();
    mutex.unlock();
    Gate leave;
    std::atomic<bool> isOwner = false;
    TaskThread owner([&] {
        mutex.lock();
        EXPECT_TRUE(mutex.try_lock());
        mutex.unlock();
        isOwner = true;
        leave.Wait();
        mutex.unlock();
    });
    ASSERT_TRUE(Eventually([&] { return isOwner.load(); }));
    EXPECT_FALSE(mutex.try_lock());
    leave.Open();
    owner.Join();
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(FifoMutex, DoesNotLetTryLockOvertakeTheLine) {
    fifo_mutex mutex;
    mutex.lock();
    Gate leave;
    QueuedTask first(mutex, [&] {
        mutex.lock();
        leave.Wait();
        mutex.unlock();
    });
    LineOfTasks second(mutex, 1);
    mutex.unlock();

    // From here on the first waiter is the owner, whether it knows that yet or not.
    EXPECT_FALSE(mutex.try_lock());
    leave.Open();
    second.Join();
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
}

TEST(FifoMutex, GivesBackAllItTook) {
    const auto use = [] {
        fifo_mutex mutex;
        mutex.lock();
        LineOfTasks line(mutex, 3);
        line[1].Cancel();
        mutex.unlock();
        line.Join();
    };
    EXPECT_EQ(GrowthOver(5, use), Resources{});
}

TEST(FifoMutex, IsDestroyedSilentlyAndWithoutWaitingWhileItIsOwned) {
    {
        fifo_mutex warmUp;
        warmUp.lock();
    }
    const RecordedReports reports;
    const ResourceProbe probe;
    {
        fifo_mutex mutex;
        mutex.lock();
        mutex.lock();
    }
    EXPECT_EQ(probe.Growth(), Resources{});
    EXPECT_TRUE(reports.All().empty());
}

}  // namespace
