// What an interprocess_mutex remembers for diagnosis: whether it is locked, and by which thread.

#include <gtest/gtest.h>

#include "concurrency/base/windows_api.h"
#include "concurrency/sync/lock_exception.h"
#include "tests/sync/interprocess_mutex_peer.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

void ExpectFields(const interprocess_mutex& mutex, bool isLocked, DWORD owner) {
    EXPECT_EQ(InterprocessMutexPeer::IsMarkedLocked(mutex), isLocked);
    EXPECT_EQ(InterprocessMutexPeer::OwnerOf(mutex), owner);
}

TEST(InterprocessMutexFields, NameTheOwnerBetweenLockAndUnlock) {
    interprocess_mutex mutex;
    ExpectFields(mutex, false, 0);
    mutex.lock();
    ExpectFields(mutex, true, ::GetCurrentThreadId());
    mutex.unlock();
    ExpectFields(mutex, false, 0);
}

// The platform does.
TEST(InterprocessMutexFields, DoNotCountLevels) {
    interprocess_mutex mutex;
    mutex.lock();
    mutex.lock();
    mutex.unlock();
    ExpectFields(mutex, false, 0);
    mutex.unlock();
}

TEST(InterprocessMutexFields, StayWhenALockFails) {
    interprocess_mutex mutex;
    DWORD deadOwner = 0;
    OnAnotherThread([&] {
        deadOwner = ::GetCurrentThreadId();
        mutex.lock();
    });
    EXPECT_THROW(mutex.lock(), LockException);
    ExpectFields(mutex, true, deadOwner);
    mutex.unlock();
}

TEST(InterprocessMutexFields, StayWhenAnUnlockFails) {
    interprocess_mutex mutex;
    EXPECT_THROW(mutex.unlock(), LockException);
    ExpectFields(mutex, false, 0);
    mutex.lock();
    OnAnotherThread([&] { EXPECT_THROW(mutex.unlock(), LockException); });
    ExpectFields(mutex, true, ::GetCurrentThreadId());
    mutex.unlock();
}

}  // namespace
