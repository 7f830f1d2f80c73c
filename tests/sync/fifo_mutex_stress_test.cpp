// Races around the hand-over of a fifo_mutex.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>

#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/stopwatch.h"
#include "tests/support/stress_run.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"
#include "tests/sync/others.h"
#include "tests/sync/wall_clock.h"
#include "tests/sync/watchdog.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// Keeps the thread busy until the time has come: nothing wakes so exactly.
void SpinUntil(TimePoint time) {
    while (WallClockNow() < time) {
    }
}

Duration Between(Random& chances, Duration least, Duration most) {
    return Duration(std::uniform_int_distribution<std::int64_t>(least.count(), most.count())(chances));
}

// An owner, a waiter that leaves the line at about the moment of its turn, and one behind it that must be served.
//
// Ten parts of a thousand rounds each under `./dev stress`.
class FifoMutexHandOver : public testing::TestWithParam<unsigned> {
  protected:
    static constexpr int kRoundsOfAPart = 20;

    void TearDown() override {
        std::cout << m_turns << " of the leaving waiters had their turn all the same, " << m_late
                  << " times the one behind looked again" << std::endl;
        EXPECT_TRUE(IsFreeForOthers(m_mutex));
    }

    // The one behind. Its wait for its turn begins when the object exists.
    std::unique_ptr<TaskThread> StartStayer() {
        return std::make_unique<TaskThread>([this] {
            m_mutex.lock();
            EnterAndLeave();
        });
    }

    void EnterAndLeave() {
        EXPECT_EQ(m_inside.fetch_add(1), 0);
        m_inside.fetch_sub(1);
        m_mutex.unlock();
    }

    void ExpectServed(TaskThread& stayer) {
        const Stopwatch stopwatch;
        WaitOrEnd("The waiter behind one that left", [&] { return !stayer.IsRunning(); }, [] { return 0; });
        m_late += stopwatch.Elapsed() > 50ms ? 1 : 0;
    }

    fifo_mutex m_mutex;
    std::atomic<int> m_inside = 0;
    std::atomic<int> m_turns = 0;
    int m_late = 0;
};

TEST_P(FifoMutexHandOver, IsNotLostWhenTheNextTimesOut) {
    const StressRun stress(kRoundsOfAPart);
    Random chances = stress.Generator(0, GetParam());
    for (int round = 0; round < stress.Rounds(); ++round) {
        m_mutex.lock();
        const TimePoint deadline = WallClockNow() + Between(chances, 2ms, 6ms);
        TaskThread leaver([&] {
            if (m_mutex.try_lock_until(deadline)) {
                ++m_turns;
                EnterAndLeave();
            }
        });
        const auto stayer = StartStayer();
        SpinUntil(deadline + Between(chances, -500us, 1500us));
        m_mutex.unlock();
        ExpectServed(*stayer);
        leaver.Join();
    }
}

TEST_P(FifoMutexHandOver, IsNotLostWhenTheNextIsCancelled) {
    const StressRun stress(kRoundsOfAPart);
    Random chances = stress.Generator(0, GetParam());
    for (int round = 0; round < stress.Rounds(); ++round) {
        m_mutex.lock();
        TaskThread leaver([&] {
            m_mutex.lock();
            ++m_turns;
            EnterAndLeave();
        });
        const auto stayer = StartStayer();
        const TimePoint moment = WallClockNow() + 3ms;
        Thread request([&, time = moment + Between(chances, -100us, 100us)] {
            SpinUntil(time);
            leaver.Cancel();
        });
        SpinUntil(moment + Between(chances, -100us, 100us));
        m_mutex.unlock();
        ExpectServed(*stayer);
        request.join();
        leaver.Join();
    }
}

INSTANTIATE_TEST_SUITE_P(Part, FifoMutexHandOver, testing::Range(1U, 11U));

}  // namespace
