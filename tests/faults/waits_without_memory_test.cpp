// Memory runs out at any point of a cancellable wait, and of cancelling a run that is in one.
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <ostream>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/cancellation/run_scope.h"
#include "tests/cancellation/wait_handles.h"
#include "tests/faults/every_allocation.h"
#include "tests/support/task_thread.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

// In a run, where the wait registers a notifier, and outside of one.
class WaitWithoutMemory : public testing::TestWithParam<bool> {
  protected:
    // `wait` fails with every allocation and is called again; `check` is called after each of the two.
    static void ExpectThatItWaitsLater(const std::function<void()>& wait, const std::function<void(bool)>& check) {
        const ConcurrencyLifetime lifetime;
        const int failures = ForEveryAllocation([&](Attempt& attempt) {
            std::optional<RunScope> run;
            if (GetParam()) {
                run.emplace();
            }
            const bool hasWaited = attempt.Succeeds(wait);
            check(hasWaited);
            if (!hasWaited) {
                wait();
                check(true);
            }
        });
        EXPECT_GT(failures, 0);
    }
};

TEST_P(WaitWithoutMemory, SleepsLater) {
    int slept = 0;
    ExpectThatItWaitsLater(
        [&] {
            CancellableSleep(1);
            ++slept;
        },
        [&](bool hasWaited) { EXPECT_EQ(std::exchange(slept, 0), hasWaited ? 1 : 0); });
}

TEST_P(WaitWithoutMemory, TakesNoSignalOfOneHandle) {
    const Event event(true);
    ExpectThatItWaitsLater([&] { EXPECT_EQ(CancellableWaitForSingleObject(event.Get(), 0), WAIT_OBJECT_0); },
                           [&](bool hasWaited) {
                               EXPECT_EQ(event.Take(), !hasWaited);
                               event.Signal();
                           });
}

TEST_P(WaitWithoutMemory, TakesNoSignalOfSeveralHandles) {
    const Events events(3);
    events.Signal(1);
    ExpectThatItWaitsLater(
        [&] { EXPECT_EQ(CancellableWaitForMultipleObjects(3, events.Data(), 0), WAIT_OBJECT_0 + 1); },
        [&](bool hasWaited) {
            EXPECT_EQ(events.Take(1), !hasWaited);
            events.Signal(1);
        });
}

TEST_P(WaitWithoutMemory, DoesNotLetGoOfTheLockOfACondition) {
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    std::unique_lock lock(mutex);
    bool waited = false;
    ExpectThatItWaitsLater(
        [&] {
            waited = CancellableConditionWait(mutex, condition, nullptr, [&] {
                condition.wait_for(lock, std::chrono::milliseconds(1));
                return true;
            });
        },
        [&](bool hasWaited) {
            EXPECT_EQ(std::exchange(waited, false), hasWaited);
            EXPECT_TRUE(lock.owns_lock());
        });
}

INSTANTIATE_TEST_SUITE_P(InARun, WaitWithoutMemory, testing::Bool());

enum class Place { Sleep, HandleWait, Line };

void PrintTo(Place place, std::ostream* stream) {
    *stream << (place == Place::Sleep ? "Sleep" : place == Place::HandleWait ? "HandleWait" : "Line");
}

// What a run can be blocked in.
class Block {
  public:
    explicit Block(Place place) : m_place(place) { m_mutex.lock(); }
    ~Block() { m_mutex.unlock(); }
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;

    void Enter() {
        switch (m_place) {
            case Place::Sleep: CancellableSleep(INFINITE); break;
            case Place::HandleWait: CancellableWaitForSingleObject(m_never.Get(), INFINITE); break;
            case Place::Line: m_mutex.lock(); break;
        }
    }

  private:
    const Place m_place;
    const Event m_never;
    fifo_mutex m_mutex;
};

class CancelWithoutMemory : public testing::TestWithParam<Place> {};

TEST_P(CancelWithoutMemory, ReachesTheRunAllTheSame) {
    const ConcurrencyLifetime lifetime;
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        Block block(GetParam());
        TaskThread thread([&] {
            for (;;) {
                block.Enter();
            }
        });
        EXPECT_TRUE(attempt.Succeeds([&] { thread.Cancel(); }));
        EXPECT_TRUE(thread.EndedCancelled());
    });
    EXPECT_EQ(failures, 0);
}

INSTANTIATE_TEST_SUITE_P(In, CancelWithoutMemory, testing::Values(Place::Sleep, Place::HandleWait, Place::Line));

// A run that is to be cancelled, and has no memory for its wait or for what it leaves it with.
class CancelledRunWithoutMemory : public testing::TestWithParam<Place> {};

TEST_P(CancelledRunWithoutMemory, EndsCancelled) {
    const ConcurrencyLifetime lifetime;
    const int failures = ForEveryAllocation([](Attempt& attempt) {
        Block block(GetParam());
        TaskThread thread([&] {
            (void)attempt.Succeeds([&] { block.Enter(); });
            block.Enter();
        });
        thread.Cancel();
        EXPECT_TRUE(thread.EndedCancelled());
    });
    EXPECT_GT(failures, 0);
}

// Without the line of a fifo_mutex, where such a run keeps its place.
INSTANTIATE_TEST_SUITE_P(In, CancelledRunWithoutMemory, testing::Values(Place::Sleep, Place::HandleWait));

}  // namespace
