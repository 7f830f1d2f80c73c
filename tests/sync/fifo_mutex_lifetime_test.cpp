// A fifo_mutex that is destroyed as early as its users may, while others are still on their way out of it.

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <new>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"
#include "tests/support/thread.h"
#include "tests/sync/queued_task.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// Gives what the library allocates at one moment a page of its own, which nobody can touch any more when it is freed:
// whoever still does ends the process.
class PageOfItsOwn {
  public:
    PageOfItsOwn() { s_page = nullptr; }
    ~PageOfItsOwn() {
        if (s_page != nullptr) {
            VirtualFree(s_page, 0, MEM_RELEASE);
        }
    }
    PageOfItsOwn(const PageOfItsOwn&) = delete;
    PageOfItsOwn& operator=(const PageOfItsOwn&) = delete;

    // The one allocation in `make()` moves there.
    template <typename Make>
    auto Allocated(Make make) {
        s_isAwaited = true;
        auto made = make();
        s_isAwaited = false;
        return made;
    }

    bool IsFreed() const { return s_isFreed; }

  private:
    static constexpr std::size_t kSize = 4096;

    static void* Allocate(std::size_t size) {
        if (!s_isAwaited.exchange(false)) {
            return ::operator new(size);
        }
        s_isFreed = false;
        s_page = VirtualAlloc(nullptr, kSize, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
        return s_page;
    }

    static void Free(void* memory, std::size_t) {
        if (memory == nullptr || memory != s_page) {
            ::operator delete(memory);
            return;
        }
        DWORD before = 0;
        VirtualProtect(memory, kSize, PAGE_NOACCESS, &before);
        s_isFreed = true;
    }

    static inline std::atomic<bool> s_isAwaited = false;
    static inline std::atomic<bool> s_isFreed = false;
    static inline std::atomic<void*> s_page = nullptr;

    const ImportPatch m_allocations{LibraryUnderTest(), kAllocateName, &Allocate};
    const ImportPatch m_releases{LibraryUnderTest(), kFreeName, &Free};
};

// Holds a thread where it has just left a lock of the library for the first time.
class HeldBehindALock {
  public:
    HeldBehindALock() {
        s_self = this;
        s_thread = 0;
    }
    HeldBehindALock(const HeldBehindALock&) = delete;
    HeldBehindALock& operator=(const HeldBehindALock&) = delete;

    // On the thread to be held.
    void HoldMe() { s_thread = ::GetCurrentThreadId(); }

    void WaitUntilItIsHeld() { m_held.Wait(); }
    void Release() { m_released.Open(); }

  private:
    static void WINAPI Leave(CRITICAL_SECTION* section) {
        ::LeaveCriticalSection(section);
        DWORD self = ::GetCurrentThreadId();
        if (s_thread.compare_exchange_strong(self, 0)) {
            s_self->m_held.Open();
            s_self->m_released.Wait();
        }
    }

    static inline HeldBehindALock* s_self = nullptr;
    static inline std::atomic<DWORD> s_thread = 0;

    Gate m_held;
    Gate m_released;
    const ImportPatch m_patch{LibraryUnderTest(), "LeaveCriticalSection", &Leave};
};

// Between the guard and the wake-up, unlock() no longer owns anything.
TEST(FifoMutexLifetime, EndsWithTheNextOwnerThoughTheOneBeforeIsStillInUnlock) {
    PageOfItsOwn page;
    std::unique_ptr<fifo_mutex> mutex = page.Allocated([] { return std::make_unique<fifo_mutex>(); });
    mutex->lock();
    Gate left;
    QueuedTask next(*mutex, [&] {
        mutex->lock();
        left.Wait();
        mutex->unlock();
        mutex.reset();
    });
    QueuedTask leaver(*mutex, [&] { mutex->lock(); });
    HeldBehindALock owner;
    fifo_mutex& unlocked = *mutex;
    Thread destruction([&] {
        owner.WaitUntilItIsHeld();
        leaver->Cancel();  // a request wakes all waiters
        leaver->Join();
        left.Open();
        next->Join();
        EXPECT_EQ(mutex, nullptr);
        owner.Release();
    });
    owner.HoldMe();
    unlocked.unlock();
    destruction.join();
    EXPECT_TRUE(page.IsFreed());
}

// A request has let go of the run's own lock and is about to take the guard.
TEST(FifoMutexLifetime, EndsWithTheOwnerThoughARequestForAFormerWaiterIsOnItsWay) {
    PageOfItsOwn page;
    std::unique_ptr<fifo_mutex> mutex = page.Allocated([] { return std::make_unique<fifo_mutex>(); });
    mutex->lock();
    Gate left;
    QueuedTask waiter(*mutex, [&] {
        try {
            mutex->lock();
        } catch (const CancelRequestedException&) {
            left.Open();
            throw;
        }
    });
    HeldBehindALock requester;
    Thread request([&] {
        requester.HoldMe();
        waiter->Future()->RequestCancel();
    });
    requester.WaitUntilItIsHeld();
    WakeWaitersOf(*mutex);
    left.Wait();
    mutex->unlock();
    mutex.reset();
    requester.Release();

    request.join();
    EXPECT_TRUE(waiter->EndedCancelled());
    EXPECT_TRUE(page.IsFreed());
}

}  // namespace
