// What the mutexes are for: nothing is lost when many threads add at once.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "tests/support/stress_run.h"
#include "tests/support/task_thread.h"
#include "tests/support/thread.h"
#include "tests/sync/wall_clock.h"
#include "tests/sync/watchdog.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// A number that loses additions unless one thread adds at a time.
class Number {
  public:
    void AddOne() {
        const long before = m_value;
        std::this_thread::yield();
        m_value = before + 1;
        m_additions.fetch_add(1, std::memory_order_relaxed);
    }

    // Only once nobody adds any more.
    long Get() const { return m_value; }

    // At any time.
    long Additions() const { return m_additions.load(std::memory_order_relaxed); }

  private:
    volatile long m_value = 0;
    std::atomic<long> m_additions = 0;  // relaxed: orders nothing that the mutex under test should
};

class MutexCounter : public testing::TestWithParam<int> {
  protected:
    // About `additions` times the stress factor, each begun by `lock(mutex, chances)`, spread over the threads.
    template <typename Mutex, typename Lock>
    void ExpectExact(int additions, Lock lock) {
        const StressRun stress(additions / GetParam());
        Mutex mutex;
        Number number;
        std::atomic<int> working = GetParam();
        std::vector<Thread> threads;
        for (int index = 0; index < GetParam(); ++index) {
            threads.emplace_back([&, chances = stress.Generator(0, static_cast<unsigned>(index))]() mutable {
                for (int round = 0; round < stress.Rounds(); ++round) {
                    lock(mutex, chances);
                    number.AddOne();
                    mutex.unlock();
                }
                --working;
            });
        }
        WaitOrEnd("The threads that count", [&] { return working == 0; }, [&] { return number.Additions(); });
        for (Thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(number.Get(), static_cast<long>(stress.Rounds()) * GetParam());
    }
};

template <typename Mutex>
void LockPlainly(Mutex& mutex, Random&) {
    mutex.lock();
}

TEST_P(MutexCounter, IsExactUnderCheckedMutex) {
    ExpectExact<checked_mutex>(8'000, LockPlainly<checked_mutex>);
}

TEST_P(MutexCounter, IsExactUnderCheckedMutexLockedInAllWays) {
    ExpectExact<checked_mutex>(4'000, [](checked_mutex& mutex, Random& chances) {
        const auto way = chances() % 3;
        if (way == 0 || (way == 1 && !mutex.try_lock())) {
            mutex.lock();
        }
        while (way == 2 && !mutex.timed_lock(WallClockNow() + 1ms)) {
        }
    });
}

TEST_P(MutexCounter, IsExactUnderFifoMutex) {
    ExpectExact<fifo_mutex>(400, LockPlainly<fifo_mutex>);
}

TEST_P(MutexCounter, IsExactUnderInterprocessMutex) {
    ExpectExact<interprocess_mutex>(800, LockPlainly<interprocess_mutex>);
}

INSTANTIATE_TEST_SUITE_P(Threads, MutexCounter, testing::Values(4, 32), testing::PrintToStringParamName());

}  // namespace
