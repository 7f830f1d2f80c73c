// The order of the fields and what is virtual, which are part of the interface.

#include <gtest/gtest.h>

#include <type_traits>

#include "tests/sync/checked_mutex_peer.h"
#include "tests/sync/interprocess_mutex_peer.h"

namespace {

using namespace Orvane;

TEST(CheckedMutex, KeepsTheLockBeforeTheFlagBehindTheVirtualTable) {
    const checked_mutex mutex;
    const auto offsets = CheckedMutexPeer::OffsetsOf(mutex);

    EXPECT_EQ(offsets.mutex, sizeof(void*));
    EXPECT_GE(offsets.condition, offsets.mutex + sizeof(Internal::RecursiveMutex));
    EXPECT_GE(offsets.held, offsets.condition + sizeof(Internal::Condition));
    EXPECT_GE(offsets.locked, offsets.held + 4);
    EXPECT_LT(offsets.locked, sizeof(checked_mutex));
}

TEST(CheckedMutex, HoldsAWordOfZerosOrOnes) {
    checked_mutex mutex;
    EXPECT_EQ(CheckedMutexPeer::HeldWordOf(mutex), 0U);
    mutex.lock();
    EXPECT_EQ(CheckedMutexPeer::HeldWordOf(mutex), 0xFFFFFFFFU);
    mutex.unlock();
    EXPECT_EQ(CheckedMutexPeer::HeldWordOf(mutex), 0U);
}

// Only the destructor is virtual: with these names taken by virtual functions this would not compile.
struct OtherResults : checked_mutex {
    double lock();
    double try_lock();
    double timed_lock(const TimePoint& deadline);
    double unlock();
};

TEST(CheckedMutex, HasAVirtualDestructorAndNoOtherVirtualFunction) {
    EXPECT_TRUE(std::has_virtual_destructor_v<checked_mutex>);
    EXPECT_TRUE(std::has_virtual_destructor_v<OtherResults>);
}

TEST(InterprocessMutex, KeepsHandleThenFlagThenOwner) {
    const interprocess_mutex mutex;
    const auto offsets = InterprocessMutexPeer::OffsetsOf(mutex);

    EXPECT_EQ(offsets.handle, 0U);
    EXPECT_EQ(offsets.locked, sizeof(HANDLE));
    EXPECT_EQ(offsets.owner, sizeof(HANDLE) + 4);
    EXPECT_EQ(sizeof(interprocess_mutex), sizeof(HANDLE) + 8);
}

}  // namespace
