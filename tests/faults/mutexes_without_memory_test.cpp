// Memory runs out at any point of taking and giving back a mutex.
#include <gtest/gtest.h>

#include <chrono>
#include <new>
#include <optional>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/sync/lock_exception.h"
#include "tests/faults/every_allocation.h"
#include "tests/scheduler/moments.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"
#include "tests/sync/kernel_names.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

TEST(CheckedMutexWithoutMemory, NeedsNone) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        EXPECT_TRUE(attempt.Succeeds([] {
            checked_mutex mutex;
            mutex.lock();
            EXPECT_FALSE(mutex.try_lock());
            EXPECT_FALSE(mutex.timed_lock(Now() + std::chrono::milliseconds(1)));
            mutex.unlock();
            EXPECT_TRUE(mutex.timed_lock(Now()));
            mutex.unlock();
        }));
    });
    EXPECT_EQ(failures, 0);
}

TEST(FifoMutexWithoutMemory, IsNotMade) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        std::optional<fifo_mutex> mutex;
        if (!attempt.Succeeds([&] { mutex.emplace(); })) {
            mutex.emplace();
        }
        EXPECT_TRUE(IsFreeForOthers(*mutex));
    });
    EXPECT_GT(failures, 0);
}

TEST(FifoMutexWithoutMemory, IsTakenAndTakenOnceMoreWhileNobodyWaits) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        fifo_mutex mutex;
        EXPECT_TRUE(attempt.Succeeds([&] {
            mutex.lock();
            EXPECT_TRUE(mutex.try_lock());
        }));
        mutex.unlock();
        EXPECT_FALSE(IsFreeForOthers(mutex));
        mutex.unlock();
        EXPECT_TRUE(IsFreeForOthers(mutex));
    });
    EXPECT_EQ(failures, 0);
}

TEST(FifoMutexWithoutMemory, IsGivenBackAllTheSame) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        fifo_mutex mutex;
        mutex.lock();
        EXPECT_TRUE(attempt.Succeeds([&] { mutex.unlock(); }));
        EXPECT_TRUE(IsFreeForOthers(mutex));
    });
    EXPECT_EQ(failures, 0);
}

// A thread that got into the line but has no memory to wait keeps its place, and gives it back by unlocking.
TEST(FifoMutexWithoutMemory, IsFreeAgainWhenAWaiterHasGivenBackThePlaceThatItMayHaveKept) {
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        fifo_mutex mutex;
        mutex.lock();
        bool hasFailed = false;
        bool keepsPlace = false;
        Gate tried;
        Gate leave;
        PlainThread waiter([&] {
            const auto wait = [&] { EXPECT_FALSE(mutex.try_lock_until(Now() + std::chrono::milliseconds(1))); };
            hasFailed = !attempt.Succeeds(wait);
            tried.Open();
            leave.Wait();
            if (keepsPlace) {
                mutex.unlock();
            }
        });
        tried.Wait();
        mutex.unlock();
        keepsPlace = !IsFreeForOthers(mutex);
        EXPECT_TRUE(hasFailed || !keepsPlace);
        leave.Open();
        waiter.Join();
        EXPECT_TRUE(IsFreeForOthers(mutex));
    });
    EXPECT_GT(failures, 0);
}

TEST(InterprocessMutexWithoutMemory, IsNotMade) {
    const std::wstring name = UniqueName(L"made without memory");
    const int failures = ForEveryAllocation([&](Attempt& attempt) {
        std::optional<interprocess_mutex> mutex;
        if (!attempt.Succeeds([&] { mutex.emplace(name.c_str()); })) {
            mutex.emplace(name.c_str());
        }
        mutex->lock();
        mutex->unlock();
    });
    EXPECT_GT(failures, 0);
}

// The kernel's mutex behind a name, seen past the library.
bool IsFreeForOthers(const std::wstring& name) {
    bool isFree = false;
    OnAnotherThread([&] {
        const HANDLE handle = CreateMutexW(nullptr, FALSE, name.c_str());
        isFree = WaitForSingleObject(handle, 0) == WAIT_OBJECT_0 && ReleaseMutex(handle) != FALSE;
        CloseHandle(handle);
    });
    return isFree;
}

TEST(InterprocessMutexWithoutMemory, IsNotTaken) {
    const std::wstring name = L"Local\\" + UniqueName(L"taken without memory");
    const int failures = ForEveryAllocation([&](Attempt& attempt) {
        interprocess_mutex mutex(name.c_str());
        if (!attempt.Succeeds([&] { mutex.lock(); })) {
            EXPECT_TRUE(IsFreeForOthers(name));
            mutex.lock();
        }
        EXPECT_FALSE(IsFreeForOthers(name));
        mutex.unlock();
        EXPECT_TRUE(IsFreeForOthers(name));
    });
    EXPECT_GT(failures, 0);
}

TEST(InterprocessMutexWithoutMemory, RefusesToBeGivenBackByAnotherWithOneErrorOrTheOther) {
    ForEveryAllocation([](Attempt& attempt) {
        interprocess_mutex mutex;
        const auto unlock = [&] {
            try {
                mutex.unlock();
            } catch (const LockException&) {
                throw std::bad_alloc();  // as good
            }
        };
        EXPECT_FALSE(attempt.Succeeds(unlock));
        mutex.lock();
        mutex.unlock();
    });
}

}  // namespace
