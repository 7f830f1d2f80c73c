// The pool in use by many threads while the library is initialised and uninitialised.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <list>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/stress_run.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;

constexpr std::size_t kProducers = 16;
constexpr std::size_t kTasksEach = 25;

// The last uninitialisation comes right behind the last call, with most of the work still in the queue.
TEST(PoolCycles, EveryTaskOfSixteenProducersIsRunBeforeTheCycleEnds) {
    const StressRun stress(10);
    for (int number = 0; number < stress.Rounds(); ++number) {
        SCOPED_TRACE(stress.Description());
        std::atomic<std::size_t> ran = 0;
        ConcurrencyInitialize();
        {
            std::list<BackgroundCall> producers;
            for (std::size_t thread = 0; thread < kProducers; ++thread) {
                producers.emplace_back([&, thread] {
                    Random random = stress.Generator(number, thread);
                    for (std::size_t i = 0; i < kTasksEach; ++i) {
                        const ConcurrencyLifetime inner;
                        const bool own = Choose(random, 20) == 0;
                        const Task task = MakeTask(L"counted", [&ran] { ++ran; });
                        own ? GlobalThreadPool::LaunchInNewThread(task) : GlobalThreadPool::Queue(task);
                        if (Choose(random, 10) == 0) {
                            Linger(random);
                        }
                    }
                });
            }
            for (const BackgroundCall& producer : producers) {
                ASSERT_TRUE(producer.Ends());
            }
        }
        const BackgroundCall stop(&ConcurrencyUninitialize);
        ASSERT_TRUE(stop.Ends());
        EXPECT_EQ(ran, kProducers * kTasksEach);
    }
}

// Callers that do not keep to the rules: what they queue while the pool is torn down may or may not run, and may make
// the next pool, but nothing breaks or hangs.
TEST(PoolCycles, LateCallersDoNotBreakTheTeardown) {
    const StressRun stress(10);
    const auto ran = std::make_shared<std::atomic<std::size_t>>(0);
    std::atomic<std::size_t> queued = 0;
    {
        std::atomic<bool> enough = false;
        std::list<BackgroundCall> producers;
        for (std::size_t thread = 0; thread < 4; ++thread) {
            producers.emplace_back([&, thread] {
                Random random = stress.Generator(0, thread);
                while (!enough) {
                    GlobalThreadPool::Queue(MakeTask(L"counted", [ran] { ++*ran; }));
                    ++queued;
                    Linger(random);
                }
            });
        }
        for (int number = 0; number < stress.Rounds(); ++number) {
            Random random = stress.Generator(number, 100);
            ConcurrencyInitialize();
            const std::size_t before = *ran;
            EXPECT_TRUE(Eventually([&] { return *ran > before; }));
            Linger(random);
            ConcurrencyUninitialize();
        }
        enough = true;
        for (const BackgroundCall& producer : producers) {
            EXPECT_TRUE(producer.Ends());
        }
    }
    {
        const ConcurrencyLifetime lifetime;
    }
    EXPECT_LE(*ran, queued);
}

}  // namespace
