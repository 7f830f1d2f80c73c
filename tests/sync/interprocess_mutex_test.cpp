#include "concurrency/sync/interprocess_mutex.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <type_traits>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/sync/lock_exception.h"
#include "tests/support/eventually.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/resource_probe.h"
#include "tests/support/task_thread.h"
#include "tests/sync/kernel_mutex.h"
#include "tests/sync/kernel_names.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// Whether a thread that owns nothing could have taken the kernel mutex now.
bool IsKernelMutexFree(const KnownMutex& mutex) {
    bool isFree = false;
    OnAnotherThread([&, handle = mutex.Handle()] {
        isFree = WaitForSingleObject(handle, 0) == WAIT_OBJECT_0;
        if (isFree) {
            ReleaseMutex(handle);
        }
    });
    return isFree;
}

TEST(InterprocessMutex, IsMadeOfANameWithoutACast) {
    static_assert(std::is_convertible_v<const wchar_t*, interprocess_mutex>);
    static_assert(std::is_default_constructible_v<interprocess_mutex>);
}

TEST(InterprocessMutex, IsTakenByLockAndFreedByUnlock) {
    KnownMutex mutex;
    EXPECT_TRUE(IsKernelMutexFree(mutex));
    mutex->lock();
    EXPECT_FALSE(IsKernelMutexFree(mutex));
    mutex->unlock();
    EXPECT_TRUE(IsKernelMutexFree(mutex));
}

TEST(InterprocessMutex, KeepsAWaiterOutUntilTheOwnerUnlocks) {
    interprocess_mutex mutex;
    mutex.lock();
    TaskThread waiter([&] {
        mutex.lock();
        mutex.unlock();
    });
    std::this_thread::sleep_for(100ms);
    EXPECT_TRUE(waiter.IsRunning());
    mutex.unlock();
    EXPECT_TRUE(waiter.EndedNormally());
}

TEST(InterprocessMutex, IsSharedByTheObjectsOfOneName) {
    const std::wstring name = UniqueName(L"shared");
    KnownMutex one(name.c_str());
    KnownMutex two(name.c_str());
    one->lock();
    EXPECT_FALSE(IsKernelMutexFree(two));
    one->unlock();
    EXPECT_TRUE(IsKernelMutexFree(two));
}

TEST(InterprocessMutex, MayBeLockedAgainByItsOwner) {
    KnownMutex mutex;
    mutex->lock();
    mutex->lock();
    mutex->unlock();
    EXPECT_FALSE(IsKernelMutexFree(mutex));
    mutex->unlock();
    EXPECT_TRUE(IsKernelMutexFree(mutex));
}

TEST(InterprocessMutex, SaysNothingWhenAllGoesWell) {
    const RecordedReports reports;
    {
        interprocess_mutex mutex(UniqueName(L"quiet").c_str());
        mutex.lock();
        mutex.unlock();
    }
    EXPECT_TRUE(reports.All().empty());
}

TEST(InterprocessMutex, GivesBackAllItTook) {
    const auto use = [] {
        interprocess_mutex mutex(UniqueName(L"probe").c_str());
        mutex.lock();
        mutex.unlock();
    };
    use();
    const ResourceProbe probe;
    for (int i = 0; i < 20; ++i) {
        use();
    }
    EXPECT_EQ(probe.Growth(), Resources{});
}

// The wait of a lock that another thread is about to begin, or has begun.
class ObservedWait {
  public:
    ObservedWait() { s_hasBegun = false; }

    bool HasBegun() const { return s_hasBegun; }

    // Of the wait that has begun.
    HANDLE FirstHandle() const { return s_handle; }
    DWORD Milliseconds() const { return s_milliseconds; }

  private:
    static DWORD WINAPI Wait(DWORD count, const HANDLE* handles, BOOL all, DWORD milliseconds) {
        if (!s_hasBegun) {
            s_handle = handles[0];
            s_milliseconds = milliseconds;
            s_hasBegun = true;
        }
        return ::WaitForMultipleObjects(count, handles, all, milliseconds);
    }

    static inline std::atomic<bool> s_hasBegun = false;
    static inline HANDLE s_handle = nullptr;  // these two before the first
    static inline DWORD s_milliseconds = 0;

    const ImportPatch m_patch{LibraryUnderTest(), "WaitForMultipleObjects", &Wait};
};

TEST(InterprocessMutex, WaitsForTheKernelMutexWithoutLimit) {
    KnownMutex mutex;
    mutex->lock();
    const ObservedWait wait;
    TaskThread waiter([&] {
        mutex->lock();
        mutex->unlock();
    });
    ASSERT_TRUE(Eventually([&] { return wait.HasBegun(); }));
    EXPECT_EQ(wait.FirstHandle(), mutex.Handle());
    EXPECT_EQ(wait.Milliseconds(), DWORD{INFINITE});
    mutex->unlock();
    EXPECT_TRUE(waiter.EndedNormally());
}

TEST(InterprocessMutex, IsLeftByACancelledWaiterWithoutAReport) {
    const RecordedReports reports;
    KnownMutex mutex;
    mutex->lock();
    const ObservedWait wait;
    TaskThread waiter([&] {
        EXPECT_THROW(mutex->lock(), CancelRequestedException);
        mutex->lock();
    });
    ASSERT_TRUE(Eventually([&] { return wait.HasBegun(); }));
    waiter.Cancel();
    EXPECT_TRUE(waiter.EndedCancelled());

    EXPECT_FALSE(IsKernelMutexFree(mutex));
    mutex->unlock();
    EXPECT_TRUE(IsKernelMutexFree(mutex));
    EXPECT_EQ(reports.Count(L"interprocess_mutex::DoLock"), 0U);
}

TEST(InterprocessMutex, IsNotTakenByATaskThatWasCancelledBeforeThoughItIsFree) {
    const RecordedReports reports;
    KnownMutex mutex;
    Gate cancelled;
    TaskThread task([&] {
        cancelled.Wait();
        mutex->lock();
    });
    task.Cancel();
    cancelled.Open();
    EXPECT_TRUE(task.EndedCancelled());
    EXPECT_TRUE(IsKernelMutexFree(mutex));
    EXPECT_EQ(reports.Count(L"interprocess_mutex::DoLock"), 0U);
}

TEST(InterprocessMutex, LetsTheOthersWaitOnWhenOneIsCancelled) {
    interprocess_mutex mutex;
    mutex.lock();
    TaskThread leaver([&] { mutex.lock(); });
    TaskThread stayer([&] {
        mutex.lock();
        mutex.unlock();
    });
    leaver.Cancel();
    EXPECT_TRUE(leaver.EndedCancelled());
    std::this_thread::sleep_for(50ms);
    EXPECT_TRUE(stayer.IsRunning());
    mutex.unlock();
    EXPECT_TRUE(stayer.EndedNormally());
}

}  // namespace
