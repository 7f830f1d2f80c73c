// What counts the levels of a fifo_mutex is a word with a limit.

#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tests/sync/fifo_mutex_peer.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// One level too many would be that of another owner.
TEST(FifoMutex, HasALastLevel) {
    constexpr std::uint32_t kMost = 0xFFFFFFFF;
    fifo_mutex mutex;
    FifoMutexPeer::OwnWithLevels(mutex, kMost - 1);
    mutex.lock();
    for (const auto& lock :
         {+[](fifo_mutex& own) { own.lock(); }, +[](fifo_mutex& own) { static_cast<void>(own.try_lock()); },
          +[](fifo_mutex& own) { static_cast<void>(own.try_lock_until(TimePoint::max())); }}) {
        try {
            lock(mutex);
            ADD_FAILURE() << "one level more was given";
        } catch (const std::length_error& error) {
            EXPECT_EQ(error.what(), std::string("list too long"));
        }
        EXPECT_EQ(FifoMutexPeer::LevelsOf(mutex), kMost);
        EXPECT_EQ(FifoMutexPeer::OwnerOf(mutex), ::GetCurrentThreadId());
    }
    EXPECT_FALSE(IsFreeForOthers(mutex));

    FifoMutexPeer::OwnWithLevels(mutex, 1);
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

}  // namespace
