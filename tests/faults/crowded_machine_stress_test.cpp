// A machine that has much else to do.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <list>

#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/faults/mixed_load.h"
#include "tests/support/stopwatch.h"
#include "tests/support/stress_run.h"
#include "tests/support/thread.h"

namespace {

using namespace Orvane;
using namespace Zarvo::Test;

// Threads that want the processor again and again, until the object goes.
class OtherWork {
  public:
    explicit OtherWork(int threads) {
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this] {
                while (!m_isOver) {
                    for (const Stopwatch stopwatch; stopwatch.Elapsed() < std::chrono::microseconds(20);) {
                    }
                    ++m_turns;
                    Sleep(100);
                }
            });
        }
    }
    ~OtherWork() { m_isOver = true; }
    OtherWork(const OtherWork&) = delete;
    OtherWork& operator=(const OtherWork&) = delete;

    long Turns() const { return m_turns; }

  private:
    std::atomic<bool> m_isOver = false;
    std::atomic<long> m_turns = 0;
    std::list<Thread> m_threads;  // last: they use the others
};

TEST(CrowdedMachine, DoesAllThatIsAskedForBesideAThousandThreads) {
    const OtherWork others(1'000);
    const StressRun run(1);
    for (int round = 0; round < run.Rounds(); ++round) {
        const ConcurrencyLifetime lifetime;
        ExpectAMixedLoadToEnd();
    }
    EXPECT_GT(others.Turns(), 1'000);
}

}  // namespace
