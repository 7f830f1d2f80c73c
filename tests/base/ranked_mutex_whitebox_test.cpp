#include "concurrency/base/ranked_mutex.h"

#include <gtest/gtest.h>

#include <mutex>

#include "tests/support/thread.h"

namespace {

using namespace Orvane::Internal;
using namespace Zarvo::Test;

using Mutex = RankedMutex<std::mutex, LockRank::Leaf>;

bool IsFree(Mutex& mutex) {
    bool isFree = false;
    Thread([&] {
        isFree = mutex.try_lock();
        if (isFree) {
            mutex.unlock();
        }
    }).join();
    return isFree;
}

TEST(RankedLock, HoldsItsMutexForAScopeButWhereItIsReleased) {
    Mutex mutex;
    {
        RankedLock lock(mutex);
        EXPECT_FALSE(IsFree(mutex));
        {
            const ReleasedLock released(lock, mutex);
            EXPECT_TRUE(IsFree(mutex));
        }
        EXPECT_FALSE(IsFree(mutex));
        lock.unlock();
        EXPECT_TRUE(IsFree(mutex));
        lock.lock();
        EXPECT_FALSE(IsFree(mutex));
    }
    EXPECT_TRUE(IsFree(mutex));
}

}  // namespace
