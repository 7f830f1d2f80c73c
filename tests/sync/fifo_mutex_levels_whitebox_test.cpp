// The word of a fifo_mutex: it has a limit of levels, and is looked at again under the guard.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"
#include "tests/sync/fifo_mutex_peer.h"
#include "tests/sync/others.h"
#include "tests/sync/queued_task.h"

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

// The last one in line may have left between the first look at the word and the guard.
TEST(FifoMutex, ThatHasBecomeFreeMeanwhileIsTakenByOneThread) {
    for (const auto lock : {&FifoMutexPeer::TryLockInLine, &FifoMutexPeer::LockInLine}) {
        fifo_mutex mutex;
        EXPECT_TRUE(lock(mutex));
        EXPECT_EQ(FifoMutexPeer::OwnerOf(mutex), ::GetCurrentThreadId());
        EXPECT_EQ(FifoMutexPeer::LevelsOf(mutex), 1U);
        EXPECT_FALSE(IsFreeForOthers(mutex));
        mutex.unlock();
        EXPECT_TRUE(IsFreeForOthers(mutex));
    }
}

// Its owner is in the word, and the list is empty.
TEST(FifoMutex, ThatAnotherThreadOwnsWithoutALineIsRefusedUnderTheGuard) {
    fifo_mutex mutex;
    mutex.lock();
    OnAnotherThread([&] { EXPECT_FALSE(FifoMutexPeer::TryLockInLine(mutex)); });
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

// Does something in the next allocation of the calling thread inside the library.
class InTheNextAllocation {
  public:
    explicit InTheNextAllocation(std::function<void()> action) {
        s_action = std::move(action);
        s_thread = ::GetCurrentThreadId();
    }
    ~InTheNextAllocation() { s_thread = 0; }
    InTheNextAllocation(const InTheNextAllocation&) = delete;
    InTheNextAllocation& operator=(const InTheNextAllocation&) = delete;

  private:
    static void* Allocate(std::size_t size) {
        DWORD self = ::GetCurrentThreadId();
        if (s_thread.compare_exchange_strong(self, 0)) {
            s_action();
        }
        return s_before(size);
    }

    // On purpose not by its name, which stands for this function here.
    static inline void* (*const s_before)(std::size_t) =
        reinterpret_cast<void* (*)(std::size_t)>(ImportedFunction(LibraryUnderTest(), kAllocateName));

    static inline std::atomic<DWORD> s_thread = 0;
    static inline std::function<void()> s_action;

    const ImportPatch m_patch{LibraryUnderTest(), kAllocateName, &Allocate};
};

// The first one that waits has no list to wait in without memory. It moves the owner that it has found before.
TEST(FifoMutex, IsTakenIfItsOwnerLeavesWhileTheListIsMade) {
    fifo_mutex mutex;
    Gate isOwned;
    Gate mayLeave;
    Gate hasLeft;
    Thread owner([&] {
        mutex.lock();
        isOwned.Open();
        mayLeave.Wait();
        mutex.unlock();
        hasLeft.Open();
    });
    isOwned.Wait();
    {
        const InTheNextAllocation leaving([&] {
            mayLeave.Open();
            hasLeft.Wait();
        });
        mutex.lock();
    }
    EXPECT_EQ(FifoMutexPeer::OwnerOf(mutex), ::GetCurrentThreadId());
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
    owner.join();
}

// It gives the guard back for a moment, that others come to the line, and takes it again.
TEST(FifoMutex, IsLeftUnderTheGuardByAWaiterWhoseTimeHasPassed) {
    constexpr int kRounds = 10'000;
    fifo_mutex mutex;
    mutex.lock();
    std::atomic<bool> hasEnded = false;
    Thread late([&] {
        for (int round = 0; round < kRounds; ++round) {
            EXPECT_FALSE(mutex.try_lock_until(TimePoint()));
        }
        hasEnded = true;
    });
    while (!hasEnded) {
        FifoMutexPeer::UnderTheGuard(mutex, [&] {
            const std::size_t length = FifoMutexPeer::LengthOf(mutex);
            std::this_thread::yield();
            EXPECT_EQ(FifoMutexPeer::LengthOf(mutex), length);
        });
    }
    late.join();
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

// A waiter may sleep without limit behind an owner that has come in: that one wakes it.
TEST(FifoMutex, KnowsWhetherItsOwnerHasComeIn) {
    fifo_mutex mutex;
    mutex.lock();
    Gate isIn;
    Gate mayLeave;
    QueuedTask next(mutex, [&] {
        mutex.lock();
        isIn.Open();
        mayLeave.Wait();
        mutex.unlock();
    });
    QueuedTask last(mutex, [&] {
        mutex.lock();
        mutex.unlock();
    });
    FifoMutexPeer::UnderTheGuard(mutex, [&] { EXPECT_TRUE(FifoMutexPeer::OwnerHasComeIn(mutex)); });
    mutex.lock();
    FifoMutexPeer::UnderTheGuard(mutex, [&] {
        EXPECT_TRUE(FifoMutexPeer::OwnerHasComeIn(mutex));
        mutex.unlock();
        mutex.unlock();
        EXPECT_FALSE(FifoMutexPeer::OwnerHasComeIn(mutex));
    });
    isIn.Wait();
    FifoMutexPeer::UnderTheGuard(mutex, [&] { EXPECT_TRUE(FifoMutexPeer::OwnerHasComeIn(mutex)); });
    mayLeave.Open();
    next->Join();
    last->Join();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

// As long as no thread waits, the word says it all.
TEST(FifoMutex, IsTakenAndRefusedWithoutTheGuardWhileNoThreadWaits) {
    const auto lock = [](fifo_mutex& mutex) {
        mutex.lock();
        mutex.unlock();
    };
    const auto tryLock = [](fifo_mutex& mutex) {
        EXPECT_TRUE(mutex.try_lock());
        mutex.unlock();
    };
    const auto tryInVain = [](fifo_mutex& mutex) { EXPECT_FALSE(mutex.try_lock()); };
    for (const auto action : {+lock, +tryLock, +tryInVain}) {
        fifo_mutex mutex;
        if (action == +tryInVain) {
            mutex.lock();
        }
        Gate isHeld;
        Gate mayGo;
        Thread holder([&] {
            FifoMutexPeer::UnderTheGuard(mutex, [&] {
                isHeld.Open();
                mayGo.Wait();
            });
        });
        isHeld.Wait();
        TaskThread other([&] { action(mutex); });
        EXPECT_TRUE(Eventually([&] { return !other.IsRunning(); }, std::chrono::seconds(10)));
        mayGo.Open();
        holder.join();
        other.Join();
    }
}

}  // namespace
