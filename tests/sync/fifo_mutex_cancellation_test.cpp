// Waits for a fifo_mutex are cancellation points.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/gate.h"
#include "tests/support/thread.h"
#include "tests/sync/line_of_tasks.h"
#include "tests/sync/others.h"
#include "tests/sync/queued_task.h"
#include "tests/sync/wall_clock.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

struct KindOfWait {
    const char* name;
    LineOfTasks::Wait wait;
};

void PrintTo(const KindOfWait& kind, std::ostream* stream) {
    *stream << kind.name;
}

class CancelledFifoMutexWait : public testing::TestWithParam<KindOfWait> {
  protected:
    // Cancels some of five waiters and judges what becomes of all.
    void CancelSomeOfFive(const std::vector<std::size_t>& leaving) {
        constexpr std::size_t kCount = 5;
        m_mutex.lock();
        LineOfTasks line(m_mutex, kCount, GetParam().wait);
        std::vector<Thread> requests;
        for (const std::size_t index : leaving) {
            requests.emplace_back([&line, index] { line[index].Cancel(); });
        }
        for (Thread& request : requests) {
            request.join();
        }
        std::vector<std::size_t> staying;
        for (std::size_t index = 0; index < kCount; ++index) {
            const bool leaves = std::find(leaving.begin(), leaving.end(), index) != leaving.end();
            if (leaves) {
                EXPECT_TRUE(line[index].EndedCancelled()) << index;
            } else {
                EXPECT_TRUE(line[index].IsRunning()) << index;
                staying.push_back(index);
            }
        }
        EXPECT_FALSE(IsFreeForOthers(m_mutex));
        EXPECT_TRUE(line.Order().empty());

        m_mutex.unlock();
        line.Join();
        EXPECT_EQ(line.Order(), LineOfTasks::Turns(staying));
        EXPECT_TRUE(IsFreeForOthers(m_mutex));
    }

    fifo_mutex m_mutex;
};

TEST_P(CancelledFifoMutexWait, OfTheFirstLeavesTheOthersInOrder) {
    CancelSomeOfFive({0});
}

TEST_P(CancelledFifoMutexWait, OfTheMiddleOneLeavesTheOthersInOrder) {
    CancelSomeOfFive({2});
}

TEST_P(CancelledFifoMutexWait, OfTheLastLeavesTheOthersInOrder) {
    CancelSomeOfFive({4});
}

TEST_P(CancelledFifoMutexWait, OfSeveralAtOnceLeavesTheOthersInOrder) {
    CancelSomeOfFive({0, 2, 3});
}

TEST_P(CancelledFifoMutexWait, OfAllLeavesTheOwnerAlone) {
    CancelSomeOfFive({4, 3, 2, 1, 0});
}

TEST_P(CancelledFifoMutexWait, LeavesWithTheExceptionOfCancellation) {
    m_mutex.lock();
    std::string text;
    QueuedTask waiter(m_mutex, [&] {
        try {
            GetParam().wait(m_mutex);
        } catch (const CancelRequestedException& exception) {
            text = exception.what();
            throw;
        }
    });
    waiter->Cancel();
    EXPECT_TRUE(waiter->EndedCancelled());
    EXPECT_EQ(text, "CancelRequestedException");
    m_mutex.unlock();
}

TEST_P(CancelledFifoMutexWait, ThrowsWithoutWaitingWhenItWasCancelledBefore) {
    m_mutex.lock();
    LineOfTasks line(m_mutex, 1);
    Gate cancelled;
    TaskThread late([&] {
        cancelled.Wait();
        GetParam().wait(m_mutex);
        m_mutex.unlock();
    });
    late.Cancel();
    cancelled.Open();
    EXPECT_TRUE(late.EndedCancelled());

    line.Append();
    m_mutex.unlock();
    line.Join();
    EXPECT_EQ(line.Order(), LineOfTasks::Turns({0, 1}));
    EXPECT_TRUE(IsFreeForOthers(m_mutex));
}

// Each look at the queue makes a new wait of it.
TEST_P(CancelledFifoMutexWait, IsHeardAfterSeveralLooksAtTheQueue) {
    m_mutex.lock();
    QueuedTask waiter(m_mutex, [&] { GetParam().wait(m_mutex); });
    for (int i = 0; i < 3; ++i) {
        WakeWaitersOf(m_mutex);
        EXPECT_TRUE(waiter->IsRunning());
    }
    waiter->Cancel();
    EXPECT_TRUE(waiter->EndedCancelled());
    m_mutex.unlock();
}

// On purpose: cancellation is tested before ownership.
TEST_P(CancelledFifoMutexWait, ThrowsEvenIfTheTurnHasCome) {
    m_mutex.lock();
    QueuedTask waiter(m_mutex, [&] { GetParam().wait(m_mutex); });
    QueuedTask next(m_mutex, [&] {
        m_mutex.lock();
        m_mutex.unlock();
    });
    // Without its notifier the request does not wake the waiter. It hears of it from the unlock that gives it its turn.
    const auto run = waiter->Future()->GetCancellationObject();
    run->RegisterNotifier({});
    waiter->Cancel();
    m_mutex.unlock();

    EXPECT_TRUE(waiter->EndedCancelled());
    EXPECT_TRUE(next->EndedNormally());
    EXPECT_TRUE(IsFreeForOthers(m_mutex));
}

TEST_P(CancelledFifoMutexWait, TakesAFreeMutexWithoutAskingForCancellation) {
    Gate cancelled;
    TaskThread task([&] {
        cancelled.Wait();
        GetParam().wait(m_mutex);
        GetParam().wait(m_mutex);
        EXPECT_TRUE(IsCancellationRequested());
        EXPECT_FALSE(IsFreeForOthers(m_mutex));
        m_mutex.unlock();
        m_mutex.unlock();
    });
    task.Cancel();
    cancelled.Open();
    EXPECT_TRUE(task.EndedNormally());
    EXPECT_TRUE(IsFreeForOthers(m_mutex));
}

TEST_P(CancelledFifoMutexWait, DoesNotDisturbARecursiveOwner) {
    m_mutex.lock();
    m_mutex.lock();
    QueuedTask waiter(m_mutex, [&] { GetParam().wait(m_mutex); });
    waiter->Cancel();
    EXPECT_TRUE(waiter->EndedCancelled());

    m_mutex.unlock();
    EXPECT_FALSE(IsFreeForOthers(m_mutex));
    m_mutex.unlock();
    EXPECT_TRUE(IsFreeForOthers(m_mutex));
}

INSTANTIATE_TEST_SUITE_P(
    , CancelledFifoMutexWait,
    testing::Values(
        KindOfWait{"Plain", LineOfTasks::PlainWait},
        KindOfWait{"Timed", [](fifo_mutex& mutex) { EXPECT_TRUE(mutex.try_lock_until(WallClockNow() + 1h)); }},
        KindOfWait{"Endless", [](fifo_mutex& mutex) { EXPECT_TRUE(mutex.try_lock_until(TimePoint::max())); }}),
    [](const auto& test) { return std::string(test.param.name); });

// A time that has passed is waited for like any other: with a look for the request first.
TEST(FifoMutex, ThrowsWhenItWasCancelledBeforeThoughTheTimeHasPassedToo) {
    fifo_mutex mutex;
    mutex.lock();
    for (const TimePoint& past : {WallClockNow() - 1ms, TimePoint(), TimePoint::min()}) {
        Gate cancelled;
        TaskThread task([&] {
            cancelled.Wait();
            static_cast<void>(mutex.try_lock_until(past));
        });
        task.Cancel();
        cancelled.Open();
        EXPECT_TRUE(task.EndedCancelled()) << past.time_since_epoch().count();
    }
}

// Without its notifier the request does not wake the waiter: it hears of both when it looks at the queue again.
TEST(FifoMutex, ThrowsWhenItIsCancelledAndTimesOutAtOnce) {
    fifo_mutex mutex;
    FakeWallClock clock;
    mutex.lock();
    QueuedTask waiter(mutex,
                      [&, deadline = WallClockNow() + 1h] { static_cast<void>(mutex.try_lock_until(deadline)); });
    const auto run = waiter->Future()->GetCancellationObject();
    run->RegisterNotifier({});
    waiter->Cancel();
    clock.Advance(2h);
    WakeWaitersOf(mutex);
    EXPECT_TRUE(waiter->EndedCancelled());
}

// The exception unwinds the guards of the mutexes that the task holds already.
TEST(FifoMutex, FreesWhatACancelledTaskHeldWhileItWaited) {
    fifo_mutex held;
    fifo_mutex wanted;
    wanted.lock();
    QueuedTask waiter(wanted, [&] {
        const std::lock_guard first(held);
        const std::lock_guard second(wanted);
    });
    EXPECT_FALSE(IsFreeForOthers(held));
    waiter->Cancel();
    EXPECT_TRUE(waiter->EndedCancelled());
    EXPECT_TRUE(IsFreeForOthers(held));
    wanted.unlock();
}

}  // namespace
