// What becomes of the wait queue when memory runs out.

#include <gtest/gtest.h>

#include <new>

#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/failing_allocation.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

TEST(FifoMutex, KeepsTheLineAsItWasWhenThereIsNoMemoryForAPlaceInIt) {
    fifo_mutex mutex;
    for (const int allocation : {1, 2, 3}) {  // the owner's first level, its second; the place in the line
        mutex.lock();
        mutex.lock();
        OnAnotherThread([&] {
            const FailingAllocation failure(allocation);
            EXPECT_THROW(mutex.lock(), std::bad_alloc);
        });
        mutex.unlock();
        EXPECT_FALSE(IsFreeForOthers(mutex));
        mutex.unlock();
        EXPECT_TRUE(IsFreeForOthers(mutex));
    }
}

// On purpose: only cancellation and time-outs give up the place.
TEST(FifoMutex, KeepsThePlaceOfAThreadThatHasNoMemoryToWait) {
    fifo_mutex mutex;
    mutex.lock();
    Gate failed;
    Gate leave;
    Thread ghost([&] {
        {
            const FailingAllocation failure(3);
            EXPECT_THROW(mutex.lock(), std::bad_alloc);
        }
        failed.Open();
        leave.Wait();
        mutex.unlock();
    });
    failed.Wait();
    mutex.unlock();
    EXPECT_FALSE(IsFreeForOthers(mutex));

    // Its turn has come without its knowing: it may unlock.
    leave.Open();
    ghost.join();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

}  // namespace
