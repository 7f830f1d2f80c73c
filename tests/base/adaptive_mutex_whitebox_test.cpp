#include "concurrency/base/adaptive_mutex.h"
#include "tests/support/thread.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <vector>

namespace {

using namespace Orvane::Internal;
using Zarvo::Test::Thread;

TEST(AdaptiveMutex, LetsOneInAtATime) {
    constexpr int kThreads = 4;
    constexpr int kTurns = 2'000;
    AdaptiveMutex mutex;
    int turns = 0;
    std::vector<Thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int turn = 0; turn < kTurns; ++turn) {
                const std::lock_guard lock(mutex);
                const int before = turns;
                if (turn % 64 == 0) {
                    std::this_thread::yield();
                }
                turns = before + 1;
            }
        });
    }
    threads.clear();
    EXPECT_EQ(turns, kThreads * kTurns);
}

TEST(AdaptiveMutex, IsRecursive) {
    AdaptiveMutex mutex;
    const auto isFreeForOthers = [&] {
        bool isFree = false;
        Thread([&] {
            isFree = mutex.try_lock();
            if (isFree) {
                mutex.unlock();
            }
        }).join();
        return isFree;
    };
    mutex.lock();
    mutex.lock();
    mutex.unlock();
    EXPECT_FALSE(isFreeForOthers());
    mutex.unlock();
    EXPECT_TRUE(isFreeForOthers());
}

}  // namespace
