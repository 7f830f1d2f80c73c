// What becomes of the wait queue when memory runs out.

#include <gtest/gtest.h>

#include <atomic>
#include <new>

#include "concurrency/base/windows_api.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/gate.h"
#include "tests/support/import_patch.h"
#include "tests/support/imported_names.h"
#include "tests/support/thread.h"
#include "tests/sync/others.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// Lets one allocation of the calling thread inside the library fail.
class FailingAllocation {
  public:
    explicit FailingAllocation(int successesBefore) {
        s_successesLeft = successesBefore;
        s_thread = ::GetCurrentThreadId();
    }
    ~FailingAllocation() { s_thread = 0; }
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;

  private:
    static void* Allocate(std::size_t size) {
        if (::GetCurrentThreadId() == s_thread && s_successesLeft-- == 0) {
            return RefuseMemory();
        }
        return ::operator new(size);
    }

    static inline std::atomic<DWORD> s_thread = 0;
    static inline std::atomic<int> s_successesLeft = 0;

    const ImportPatch m_patch{LibraryUnderTest(), kAllocateName, &Allocate};
};

TEST(FifoMutex, NeedsNoMemoryWhileNobodyWaits) {
    fifo_mutex mutex;
    const FailingAllocation failure(0);
    mutex.lock();
    EXPECT_TRUE(mutex.try_lock());
    mutex.unlock();
    mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(mutex));
}

TEST(FifoMutex, KeepsTheLineAsItWasWhenThereIsNoMemoryForAPlaceInIt) {
    fifo_mutex mutex;
    for (const int successes : {0, 1, 2}) {  // the owner's first level, its second; the place in the line
        mutex.lock();
        mutex.lock();
        OnAnotherThread([&] {
            const FailingAllocation failure(successes);
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
            const FailingAllocation failure(2);
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
