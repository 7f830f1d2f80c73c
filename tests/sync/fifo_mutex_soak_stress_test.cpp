// Everything that can happen to a fifo_mutex, at once and in any order.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "concurrency/cancellation/current_task.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/stress_run.h"
#include "tests/support/thread.h"
#include "tests/sync/others.h"
#include "tests/sync/wall_clock.h"
#include "tests/sync/watchdog.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

// The task that a thread runs just now, for those who cancel it.
class CurrentTask {
  public:
    void Set(const Task& task) {
        const std::lock_guard lock(m_mutex);
        m_task = task;
    }

    void Cancel() {
        Task task;
        {
            const std::lock_guard lock(m_mutex);
            task = m_task;
        }
        task.Cancel();
    }

  private:
    std::mutex m_mutex;
    Task m_task;
};

class FifoMutexSoak : public testing::Test {
  protected:
    static constexpr unsigned kThreads = 8;

    // One task that takes the mutex in one of its ways, if it gets it.
    void RunOneTask(Random& chances, CurrentTask& current) {
        std::shared_ptr<FutureImpl<void>> future;
        Task task = MakeTask(
            L"soak",
            [this, &chances] {
                if (!TakeInSomeWay(chances)) {
                    ++m_inVain;
                    return;
                }
                Use(chances() % 4 == 0);
                m_mutex.unlock();
            },
            future);
        current.Set(task);
        task();
        ++m_tasks;
        m_cancelled += future->IsCancelled() ? 1 : 0;
    }

    bool TakeInSomeWay(Random& chances) {
        const std::chrono::microseconds patience(chances() % 5000);
        switch (chances() % 6) {
            case 0: return m_mutex.try_lock();
            case 1: return m_mutex.try_lock_until(WallClockNow() + patience);
            case 2: return m_mutex.try_lock_for(patience);
            default: m_mutex.lock(); return true;
        }
    }

    void Use(bool isLong) {
        const std::lock_guard secondLevel(m_mutex);
        EXPECT_EQ(m_inside.fetch_add(1), 0);
        if (isLong) {
            std::this_thread::sleep_for(1ms);
        }
        ++m_turns;
        EXPECT_EQ(m_inside.fetch_sub(1), 1);
    }

    fifo_mutex m_mutex;
    std::array<CurrentTask, kThreads> m_current;
    std::atomic<int> m_inside = 0;
    long m_turns = 0;  // guarded by m_mutex
    std::atomic<long> m_tasks = 0;
    std::atomic<long> m_inVain = 0;
    std::atomic<long> m_cancelled = 0;
    std::atomic<unsigned> m_working = kThreads;
};

TEST_F(FifoMutexSoak, ServesPlainTimedAndCancelledWaitersToTheEnd) {
    const StressRun stress(60);
    std::vector<Thread> threads;
    for (unsigned index = 0; index < kThreads; ++index) {
        threads.emplace_back([&, index, chances = stress.Generator(0, index)]() mutable {
            for (int round = 0; round < stress.Rounds(); ++round) {
                RunOneTask(chances, m_current[index]);
            }
            --m_working;
        });
    }
    Thread cancelling([&, chances = stress.Generator(0, kThreads)]() mutable {
        while (m_working != 0) {
            m_current[chances() % kThreads].Cancel();
            std::this_thread::sleep_for(1ms);
        }
    });
    WaitOrEnd("The soak", [this] { return m_working == 0; }, [this] { return m_tasks.load(); });
    for (Thread& thread : threads) {
        thread.join();
    }
    cancelling.join();

    std::cout << m_turns << " turns, " << m_inVain << " in vain, " << m_cancelled << " cancelled" << std::endl;
    EXPECT_GT(m_turns, 0);
    EXPECT_GT(m_inVain, 0);
    EXPECT_GT(m_cancelled, 0);
    EXPECT_EQ(m_turns + m_inVain + m_cancelled, m_tasks);
    EXPECT_TRUE(IsFreeForOthers(m_mutex));
}

}  // namespace
