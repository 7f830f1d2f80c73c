// Many threads insert while the library is initialised and uninitialised.
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <list>
#include <memory>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"
#include "tests/scheduler/moments.h"
#include "tests/support/eventually.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/stress_run.h"
#include "tests/threadpool/background_call.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::size_t kThreads = 8;
constexpr std::size_t kTasksEach = 50;
// How many tasks come in one cycle of use. The scheduler hands over whatever is due before it stops: where it is slower than
// those who insert, it would never stop.
constexpr int kLateTasks = 1'000;

// The last uninitialisation comes right behind the last insert.
TEST(SchedulerCycles, EveryInsertedTaskIsRunOrReported) {
    const StressRun stress(10);
    RecordedReports reports;
    for (int number = 0; number < stress.Rounds(); ++number) {
        SCOPED_TRACE(stress.Description());
        reports.Clear();
        std::atomic<std::size_t> ran = 0;
        std::atomic<std::size_t> later = 0;
        ConcurrencyInitialize();
        {
            std::list<BackgroundCall> inserting;
            for (std::size_t thread = 0; thread < kThreads; ++thread) {
                inserting.emplace_back([&, thread] {
                    Random random = stress.Generator(number, thread);
                    for (std::size_t i = 0; i < kTasksEach; ++i) {
                        const bool due = Choose(random, 4) != 0;
                        later += due ? 0 : 1;
                        const Task task = MakeTask(L"counted", [&ran] { ++ran; });
                        GlobalScheduler::Insert(ScheduledTask(task, due ? k1970 : Now() + 1h, kOnce));
                        if (Choose(random, 10) == 0) {
                            Linger(random);
                        }
                    }
                });
            }
            for (const BackgroundCall& call : inserting) {
                ASSERT_TRUE(call.Ends());
            }
        }
        const BackgroundCall stop(&ConcurrencyUninitialize);
        ASSERT_TRUE(stop.Ends());

        EXPECT_EQ(reports.Count(L"Schedule"), later);
        EXPECT_EQ(ran + later, kThreads * kTasksEach);
    }
}

// Callers that do not keep to the rules: what they insert while the scheduler is torn down may or may not run, and may
// make the next scheduler, but nothing breaks or hangs.
TEST(SchedulerCycles, LateCallersDoNotBreakTheTeardown) {
    const StressRun stress(10);
    const auto ran = std::make_shared<std::atomic<std::size_t>>(0);
    std::atomic<std::size_t> inserted = 0;
    {
        std::atomic<bool> enough = false;
        std::atomic<int> allowed = 0;
        std::list<BackgroundCall> inserting;
        for (std::size_t thread = 0; thread < 4; ++thread) {
            inserting.emplace_back([&, thread] {
                Random random = stress.Generator(0, thread);
                while (!enough) {
                    if (--allowed < 0) {
                        PauseBriefly();
                        continue;
                    }
                    const Task task = MakeTask(L"counted", [ran] { ++*ran; });
                    GlobalScheduler::Insert(ScheduledTask(task, Choose(random, 2) == 0 ? k1970 : Now() + 2ms, kOnce));
                    ++inserted;
                    Linger(random);
                }
            });
        }
        for (int number = 0; number < stress.Rounds(); ++number) {
            Random random = stress.Generator(number, 100);
            ConcurrencyInitialize();
            const std::size_t before = *ran;
            allowed = kLateTasks;
            EXPECT_TRUE(Eventually([&] { return *ran > before; }));
            Linger(random);
            ConcurrencyUninitialize();
        }
        enough = true;
        for (const BackgroundCall& call : inserting) {
            EXPECT_TRUE(call.Ends());
        }
    }
    {
        const ConcurrencyLifetime lifetime;
    }
    EXPECT_LE(*ran, inserted);
}

}  // namespace
