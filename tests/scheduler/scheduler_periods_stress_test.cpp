// Every period of every recurrent task is either run or reported, once, however late the scheduler is.
//
// The wall clock stands still at the end of the last period: what is due by then is known exactly, and the scheduler has
// the time it needs to catch up.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <iostream>
#include <list>
#include <map>
#include <string>
#include <thread>

#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"
#include "tests/support/eventually.h"
#include "tests/support/fake_wall_clock.h"
#include "tests/support/plain_thread.h"
#include "tests/support/recorded_reports.h"
#include "tests/support/stress_run.h"
#include "tests/sync/wall_clock.h"
#include "tests/sync/watchdog.h"
#include "zarvo_orvane_logging/orvane_logging.h"

namespace {

using namespace Orvane;
using namespace Orvane::Internal;
using namespace Zarvo::Test;
using namespace std::chrono_literals;

constexpr std::size_t kTasks = 1'000;
constexpr std::chrono::milliseconds kPeriod{10};
constexpr int kFailuresOnly = 4;

// A recurrent task that mostly ends at once, and now and then takes longer than its period. No run of it ends before
// `mayEnd`.
class Job {
  public:
    Job(std::wstring name, Random random, std::function<bool()> mayEnd)
        : m_name(std::move(name)), m_random(random), m_mayEnd(std::move(mayEnd)) {}

    void Run() {
        m_together += m_inside.exchange(true) ? 1 : 0;
        if (Choose(m_random, 500) == 0) {
            std::this_thread::sleep_for(kPeriod * 2);
        }
        EXPECT_TRUE(Eventually(m_mayEnd));
        ++m_runs;
        m_inside = false;
    }

    const wchar_t* Name() const { return m_name.c_str(); }
    std::size_t Runs() const { return m_runs; }
    std::size_t RunsAtOnce() const { return m_together; }

  private:
    const std::wstring m_name;
    Random m_random;  // of the one run that there is at a time
    const std::function<bool()> m_mayEnd;
    std::atomic<bool> m_inside = false;
    std::atomic<std::size_t> m_runs = 0;
    std::atomic<std::size_t> m_together = 0;
};

// Keeps the processors and the pool busy with something else.
class Load {
  public:
    explicit Load(const StressRun& stress) {
        for (std::size_t i = 0; i < 2; ++i) {
            m_threads.emplace_back([this, random = stress.Generator(0, kTasks + i)]() mutable {
                while (!m_enough) {
                    Linger(random);
                    GlobalThreadPool::Queue(MakeTask(L"load", [] {}));
                }
            });
        }
    }
    ~Load() { m_enough = true; }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;

  private:
    std::atomic<bool> m_enough = false;
    std::list<PlainThread> m_threads;
};

// How many overruns have been reported of each task.
std::map<std::wstring, std::size_t> CountReports(const RecordedReports& reports) {
    std::map<std::wstring, std::size_t> counts;
    for (const RecordedReport& record : reports.Matching(L"Scheduler")) {
        ++counts[std::get<std::wstring>(record.arguments.at(0))];
    }
    return counts;
}

TEST(SchedulerPeriods, AreAllRunOrReportedAndNeverTwiceAtOnce) {
    const StressRun stress(60);
    const auto due = static_cast<std::size_t>(stress.Rounds());
    const RecordedReports reports;
    g_OrvaneLogging.SetMinimumLevel(kFailuresOnly);
    std::list<Job> jobs;
    // There is an overrun even where the scheduler needs more than a period to come round.
    jobs.emplace_back(L"job 0", stress.Generator(0, 0), [&] { return reports.Count(L"Scheduler") != 0; });
    for (std::size_t i = 1; i < kTasks; ++i) {
        jobs.emplace_back(L"job " + std::to_wstring(i), stress.Generator(0, i), [] { return true; });
    }
    const auto runs = [&] {
        std::size_t sum = 0;
        for (const Job& job : jobs) {
            sum += job.Runs();
        }
        return sum;
    };
    const auto turns = [&] { return runs() + reports.Count(L"Scheduler"); };

    FakeWallClock clock;
    const TimePoint start = WallClockNow() + 100ms;
    clock.StopAt(start + kPeriod * stress.Rounds() - Duration(1));
    const ConcurrencyLifetime lifetime;
    const Load load(stress);
    std::list<Tracker> trackers;
    for (Job& job : jobs) {
        trackers.push_back(Schedule(job.Name(), start, kPeriod, [&job] { job.Run(); }));
    }

    const Stopwatch stopwatch;
    WaitOrEnd("The last period", [&] { return turns() >= due * kTasks; }, turns);
    std::cout << runs() << " runs and " << reports.Count(L"Scheduler") << " reports in "
              << std::chrono::duration_cast<std::chrono::milliseconds>(stopwatch.Elapsed()).count() << " ms"
              << std::endl;
    std::this_thread::sleep_for(100ms);  // to show that nothing happens

    const auto reported = CountReports(reports);
    for (const Job& job : jobs) {
        const auto found = reported.find(job.Name());
        const std::size_t skipped = found != reported.end() ? found->second : 0;
        ASSERT_EQ(job.Runs() + skipped, due) << stress.Description();
        ASSERT_EQ(job.RunsAtOnce(), 0U) << stress.Description();
    }
    EXPECT_GT(runs(), 0U);
    EXPECT_GT(reports.Count(L"Scheduler"), 0U);
}

}  // namespace
