// The platform refuses to start one of the pool's threads, counted over the pool's life: 1 to 8 are the first workers,
// 9 to 16 the first growth, 17 to 24 the second. What happens then is told in tests/threadpool; here it is about what
// is left behind.
#include <gtest/gtest.h>

#include <chrono>
#include <exception>
#include <string>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_ticks.h"
#include "tests/support/resource_probe.h"
#include "tests/threadpool/held_tasks.h"
#include "tests/threadpool/thread_starts.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr int kBatch = 8;
constexpr int kSpare = 2;

const auto kQueue = &GlobalThreadPool::Queue;

// A pool whose start with the given number fails, and so many held tasks that it comes to that.
class PoolThatCannotStart {
  public:
    explicit PoolThatCannotStart(int number) : m_number(number) { m_starts.FailAt(number); }

    // Returns what the pool's first user is told.
    std::string Fill() {
        try {
            const int growths = (m_number - 1) / kBatch;
            for (int batches = 1; batches <= growths; ++batches) {
                m_ticks.Advance(1'000);
                EXPECT_TRUE(m_held.Start(batches * kBatch - kSpare - m_running, kQueue));
                m_running = batches * kBatch - kSpare;
            }
            kQueue(m_last);
            return {};
        } catch (const std::exception& error) {
            return error.what();
        }
    }

    // All starts were asked for, and what was running has ended.
    void EmptyAgain() {
        EXPECT_TRUE(Eventually([this] { return m_starts.Count() == m_number; }));
        m_held.Release();
        m_last.Wait();
    }

  private:
    const int m_number;
    FakeTicks m_ticks{100'000};
    ThreadStarts m_starts;
    HeldTasks m_held;
    Task m_last = MakeTask(L"last", [] {});
    int m_running = 0;
};

class ThreadStartOfAPool : public testing::TestWithParam<int> {
  protected:
    static bool IsAFirstWorker() { return GetParam() <= kBatch; }
};

TEST_P(ThreadStartOfAPool, LeavesNothingBehindWhenItFails) {
    const auto failOnce = [] {
        const ConcurrencyLifetime lifetime;
        PoolThatCannotStart pool(GetParam());
        EXPECT_EQ(pool.Fill(), IsAFirstWorker() ? "Failed to spawn thread, resource error" : "");
        if (!IsAFirstWorker()) {
            pool.EmptyAgain();
        }
    };
    const Resources atFirst = Resources::Now();
    failOnce();
    ASSERT_TRUE(Eventually([&] { return Resources::Now().threads == atFirst.threads; }));
    // A leak grows every time. GCC's posix runtime keeps two blocks for each thread of the largest number that ran at once.
    Resources growth;
    for (int time = 0; time < 5; ++time) {
        const ResourceProbe probe;
        for (int i = 0; i < 5; ++i) {
            failOnce();
        }
        const auto nothingIsLeft = [&] {
            growth = probe.Growth();
            return growth == Resources{};
        };
        if (Eventually(nothingIsLeft, std::chrono::seconds(5))) {
            return;
        }
    }
    EXPECT_EQ(growth, Resources{}) << "left behind, five times over";
}

INSTANTIATE_TEST_SUITE_P(Number, ThreadStartOfAPool, testing::Values(1, 8, 9, 12, 17));

}  // namespace
