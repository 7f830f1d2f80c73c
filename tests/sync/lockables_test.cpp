// The mutexes under the guards and algorithms of the standard library.

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <type_traits>
#include <vector>

#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/thread.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

template <typename Mutex>
concept BasicLockable = requires(Mutex& mutex) {
    { mutex.lock() } -> std::same_as<void>;
    { mutex.unlock() } -> std::same_as<void>;
};

template <typename Mutex>
concept Lockable = BasicLockable<Mutex> && requires(Mutex& mutex) {
    { mutex.try_lock() } -> std::same_as<bool>;
};

template <typename Mutex>
concept TimedLockable = Lockable<Mutex> && requires(Mutex& mutex) {
    { mutex.try_lock_for(1ms) } -> std::same_as<bool>;
    { mutex.try_lock_for(std::chrono::duration<float>(1)) } -> std::same_as<bool>;
    { mutex.try_lock_until(std::chrono::steady_clock::now()) } -> std::same_as<bool>;
    { mutex.try_lock_until(std::chrono::system_clock::now()) } -> std::same_as<bool>;
    { mutex.try_lock_until(TimePoint()) } -> std::same_as<bool>;
};

static_assert(Lockable<checked_mutex>);
static_assert(TimedLockable<fifo_mutex>);
static_assert(BasicLockable<interprocess_mutex>);

template <typename Mutex>
class EveryMutex : public testing::Test {
  protected:
    Mutex m_mutex;
};

using Mutexes = testing::Types<checked_mutex, fifo_mutex, interprocess_mutex>;
TYPED_TEST_SUITE(EveryMutex, Mutexes);

TYPED_TEST(EveryMutex, CannotBeCopiedOrMoved) {
    EXPECT_FALSE(std::is_copy_constructible_v<TypeParam>);
    EXPECT_FALSE(std::is_copy_assignable_v<TypeParam>);
    EXPECT_FALSE(std::is_move_constructible_v<TypeParam>);
    EXPECT_FALSE(std::is_move_assignable_v<TypeParam>);
    EXPECT_TRUE(std::is_default_constructible_v<TypeParam>);
    EXPECT_TRUE(std::is_nothrow_destructible_v<TypeParam>);
}

// Whether a guard keeps the mutex for its scope: nobody else's turn comes while it lives, and one comes afterwards.
template <typename Mutex, typename MakeGuard>
void ExpectGuardedScope(Mutex& mutex, MakeGuard makeGuard) {
    bool isInside = false;
    bool metOther = false;
    Thread other;
    {
        const auto guard = makeGuard(mutex);
        isInside = true;
        other = Thread([&] {
            const std::lock_guard own(mutex);
            metOther = isInside;
        });
        std::this_thread::sleep_for(30ms);
        isInside = false;
    }
    other.join();
    EXPECT_FALSE(metOther);
}

TYPED_TEST(EveryMutex, IsHeldForTheScopeOfEachGuard) {
    ExpectGuardedScope(this->m_mutex, [](TypeParam& mutex) { return std::unique_lock(mutex); });
    ExpectGuardedScope(this->m_mutex, [](TypeParam& mutex) { return std::lock_guard(mutex); });
    ExpectGuardedScope(this->m_mutex, [](TypeParam& mutex) { return std::scoped_lock(mutex); });
    ExpectGuardedScope(this->m_mutex, [](TypeParam& mutex) {
        std::unique_lock lock(mutex, std::defer_lock);
        lock.lock();
        return lock;
    });
}

TYPED_TEST(EveryMutex, IsUnlockedWhenAGuardIsUnwound) {
    try {
        const std::lock_guard guard(this->m_mutex);
        throw 1;
    } catch (int) {
    }
    ExpectGuardedScope(this->m_mutex, [](TypeParam& mutex) { return std::unique_lock(mutex); });
}

TYPED_TEST(EveryMutex, GuardsAConditionOfItsUser) {
    std::condition_variable_any condition;
    bool isReady = false;
    Thread other([&] {
        const std::lock_guard guard(this->m_mutex);
        isReady = true;
        condition.notify_all();
    });
    {
        std::unique_lock lock(this->m_mutex);
        EXPECT_TRUE(condition.wait_for(lock, 30s, [&] { return isReady; }));
    }
    other.join();
}

template <typename Mutex>
class EveryTriedMutex : public EveryMutex<Mutex> {};

using TriedMutexes = testing::Types<checked_mutex, fifo_mutex>;
TYPED_TEST_SUITE(EveryTriedMutex, TriedMutexes);

TYPED_TEST(EveryTriedMutex, IsTriedByUniqueLock) {
    const std::unique_lock first(this->m_mutex, std::try_to_lock);
    EXPECT_TRUE(first.owns_lock());
    OnAnotherThread([&] {
        const std::unique_lock second(this->m_mutex, std::try_to_lock);
        EXPECT_FALSE(second.owns_lock());
    });
}

TEST(FifoMutex, IsWaitedForByTheTimedFormsOfUniqueLock) {
    fifo_mutex mutex;
    {
        const std::unique_lock first(mutex, 1h);
        EXPECT_TRUE(first.owns_lock());
        OnAnotherThread([&] {
            const std::unique_lock byDuration(mutex, 10ms);
            const std::unique_lock byTime(mutex, std::chrono::steady_clock::now() + 10ms);
            EXPECT_FALSE(byDuration.owns_lock());
            EXPECT_FALSE(byTime.owns_lock());
        });
    }
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(Mutexes, AreAllOrNoneTakenByStdTryLock) {
    checked_mutex checked;
    fifo_mutex fifo;
    std::mutex plain;
    EXPECT_EQ(std::try_lock(checked, fifo, plain), -1);
    OnAnotherThread([&] { EXPECT_EQ(std::try_lock(checked, fifo, plain), 0); });
    checked.unlock();
    OnAnotherThread([&] { EXPECT_EQ(std::try_lock(checked, fifo, plain), 1); });
    EXPECT_TRUE(IsFreeForOthers(checked));
    fifo.unlock();
    plain.unlock();
}

// In every order at once: without the algorithm's retreat this would soon be a deadlock.
TEST(Mutexes, AreLockedTogetherInAnyOrderWithoutADeadlock) {
    constexpr int kRounds = 300;
    checked_mutex checked;
    fifo_mutex fifo;
    fifo_mutex secondFifo;
    std::mutex plain;
    int shared = 0;
    const auto repeat = [&](auto&... mutexes) {
        for (int round = 0; round < kRounds; ++round) {
            const std::scoped_lock lock(mutexes...);
            ++shared;
        }
    };
    std::vector<Thread> threads;
    threads.emplace_back([&] { repeat(checked, fifo, secondFifo, plain); });
    threads.emplace_back([&] { repeat(plain, secondFifo, fifo, checked); });
    threads.emplace_back([&] { repeat(fifo, plain, checked, secondFifo); });
    threads.emplace_back([&] { repeat(secondFifo, checked, plain, fifo); });
    for (Thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(shared, 4 * kRounds);
    EXPECT_TRUE(IsFreeForOthers(checked));
    EXPECT_TRUE(IsFreeForOthers(fifo));
    EXPECT_TRUE(IsFreeForOthers(secondFifo));
}

}  // namespace
