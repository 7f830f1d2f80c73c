// Requests that come at any moment of a wait: none may be lost.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/cancellation/current_task.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/support/stress_run.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// A moment between the start of a wait and its middle.
void PassMoment(Random& random) {
    for (std::size_t spins = Choose(random, 20'000); spins != 0; --spins) {
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

class CancellationStress : public testing::Test {
  protected:
    // Cancels a task at many moments of `wait`, which would otherwise go on for ever.
    template <typename Wait>
    void CancelAtManyMoments(Wait wait) {
        const StressRun stress(300);
        SCOPED_TRACE(stress.Description());
        Random random = stress.Generator(0, 0);
        for (int round = 0; round < stress.Rounds(); ++round) {
            TaskThread waiter(wait);
            PassMoment(random);
            waiter.Cancel();
            ASSERT_TRUE(waiter.EndedCancelled()) << "round " << round;
        }
    }
};

TEST_F(CancellationStress, NoRequestIsLostOnASleep) {
    CancelAtManyMoments([] { CancellableSleep(INFINITE); });
}

TEST_F(CancellationStress, NoRequestIsLostOnAHandleWait) {
    const Event event;
    CancelAtManyMoments([&] { CancellableWaitForSingleObject(event.Get(), INFINITE); });
}

TEST_F(CancellationStress, NoRequestIsLostOnAWaitForSeveralHandles) {
    const Events events(5);
    CancelAtManyMoments([&] { CancellableWaitForMultipleObjects(events.Count(), events.Data(), INFINITE); });
}

TEST_F(CancellationStress, NoRequestIsLostOnAConditionWait) {
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    CancelAtManyMoments([&] {
        std::unique_lock lock(mutex);
        for (;;) {
            CancellableConditionWait(mutex, condition, nullptr, [&] { condition.wait(lock); });
        }
    });
}

TEST_F(CancellationStress, NoRequestIsLostBetweenShortWaits) {
    const Event event;
    CancelAtManyMoments([&] {
        for (;;) {
            CancellableSleep(0);
            CancellableWaitForSingleObject(event.Get(), 0);
            CancellationPoint();
        }
    });
}

}  // namespace
