// Requests that come at any moment of a wait: none may be lost.
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <random>
#include <string>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/cancellation/current_task.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

unsigned long NumberFromEnvironment(const char* name, unsigned long otherwise) {
    const char* const text = std::getenv(name);
    return text != nullptr && *text != '\0' ? std::strtoul(text, nullptr, 10) : otherwise;
}

// A few hundred moments between the start of a wait and its middle.
class Moments {
  public:
    Moments() : m_seed(NumberFromEnvironment("ZARVO_STRESS_SEED", std::random_device()())), m_random(m_seed) {}

    unsigned long Seed() const { return m_seed; }

    void Pass() {
        for (unsigned spins = m_random() % 20'000; spins != 0; --spins) {
            std::atomic_signal_fence(std::memory_order_seq_cst);
        }
    }

  private:
    unsigned long m_seed;
    std::mt19937 m_random;
};

class CancellationStress : public testing::Test {
  protected:
    // Cancels a task at many moments of `wait`, which would otherwise go on for ever.
    template <typename Wait>
    void CancelAtManyMoments(Wait wait) {
        const unsigned long rounds = 100 * NumberFromEnvironment("ZARVO_STRESS_ROUNDS", 3);
        Moments moments;
        RecordProperty("seed", std::to_string(moments.Seed()));
        SCOPED_TRACE(testing::Message() << "ZARVO_STRESS_SEED=" << moments.Seed());
        for (unsigned long round = 0; round < rounds; ++round) {
            TaskThread waiter(wait);
            moments.Pass();
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
            CancellableConditionWait(mutex, condition, nullptr, [&] {
                condition.wait(lock);
                return true;
            });
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
