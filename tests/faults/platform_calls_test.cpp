// Calls of the platform fail beneath a pool that works, and beneath the locks that wait with its events. What each call's
// failure means to the class that makes it is told in that class's own tests.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/sync/lock_exception.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/cancellation/wait_faults.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/lifetime/slot_ledger.h"
#include "tests/support/eventually.h"
#include "tests/support/resource_probe.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// `use` is called once to warm up. Less than before is no leak: a thread may have been letting go of something.
void ExpectNoLeak(const std::function<void()>& use) {
    use();
    const ResourceProbe probe;
    for (int i = 0; i < 10; ++i) {
        use();
    }
    Resources growth;
    EXPECT_TRUE(Eventually([&] {
        growth = probe.Growth();
        return growth.handles <= 0 && growth.threads <= 0 && growth.blocks <= 0 && growth.bytes <= 0;
    })) << growth;
}

// A library's life in which a task runs on a worker and another on a thread of its own.
void LiveAndWork(const std::function<void()>& work = [] {}) {
    const ConcurrencyLifetime lifetime;
    std::shared_ptr<FutureImpl<void>> queued;
    GlobalThreadPool::Queue(MakeTask(L"queued", work, queued));
    queued->GetValue();
    std::shared_ptr<FutureImpl<void>> launched;
    GlobalThreadPool::LaunchInNewThread(MakeTask(L"launched", work, launched));
    launched->GetValue();
}

// Then no run is its thread's current one: a request is remembered, but not heard.
void ExpectNoCurrentRun() {
    EXPECT_EQ(GetFutureObject(), nullptr);
    EXPECT_FALSE(IsCancellationRequested());
    CancellableSleep(0);
}

TEST(PlatformFault, WithoutASlotTasksRunAndDoNotHearOfTheirCancellation) {
    SlotLedger ledger;
    ledger.FailAllocations(true);
    ExpectNoLeak([] { LiveAndWork(&ExpectNoCurrentRun); });
    EXPECT_EQ(ledger.ForeignAccessCount(), 0U);
}

TEST(PlatformFault, WithASlotThatCannotBeWrittenTasksRunAndDoNotHearOfTheirCancellation) {
    SlotLedger ledger;
    ledger.FailStores(true);
    ExpectNoLeak([] { LiveAndWork(&ExpectNoCurrentRun); });
    EXPECT_EQ(ledger.Held().size(), 0U);
}

TEST(PlatformFault, WithoutAnEventHandleWaitsFailAndLeaveTheSignal) {
    const ConcurrencyLifetime lifetime;
    const Event event(true);
    {
        const NoEvents noEvents;
        ExpectNoLeak([&] {
            EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), WAIT_FAILED);
            const HANDLE handle = event.Get();
            EXPECT_EQ(CancellableWaitForMultipleObjects(1, &handle, INFINITE), WAIT_FAILED);
        });
    }
    EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), INFINITE), WAIT_OBJECT_0);
}

TEST(PlatformFault, WithoutAnEventAnInterprocessMutexIsNotTaken) {
    interprocess_mutex mutex;
    {
        const NoEvents noEvents;
        ExpectNoLeak([&] { EXPECT_THROW(mutex.lock(), LockException); });
        EXPECT_THROW(mutex.unlock(), LockException);
    }
    mutex.lock();
    mutex.unlock();
}

TEST(PlatformFault, WithoutAnEventTheOtherWaitsWork) {
    const NoEvents noEvents;
    ExpectNoLeak([] {
        CancellableSleep(1);
        fifo_mutex mutex;
        mutex.lock();
        mutex.unlock();
        LiveAndWork();
    });
}

}  // namespace
