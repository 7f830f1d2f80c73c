// What does the scheduler need for one due task, the more other tasks run?
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "bench/harness/wall_time.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/scheduler/schedule.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"

namespace Zarvo::Bench {

namespace {

using Orvane::Internal::GlobalScheduler;
using Orvane::Internal::GlobalThreadPool;
using Orvane::Internal::ScheduledTask;
using Orvane::Internal::Task;

constexpr const char* kTurn = "ns per turn";
constexpr const char* kAsk = "IsPresent, ns";

// Tasks that run until they are released.
class RunningTasks {
  public:
    explicit RunningTasks(std::size_t count) : m_begun(count) {
        for (std::size_t i = 0; i < count; ++i) {
            m_tasks.push_back(Orvane::MakeTask(L"Running", [this] {
                m_begun.Arrive();
                m_release.Wait();
            }));
            GlobalThreadPool::Queue(m_tasks.back());
        }
        if (count != 0) {
            m_begun.WaitForLast();
        }
    }
    ~RunningTasks() {
        m_release.Set();
        for (Task& task : m_tasks) {
            task.Wait();
        }
    }
    RunningTasks(const RunningTasks&) = delete;
    RunningTasks& operator=(const RunningTasks&) = delete;

  private:
    FinishLine m_begun;
    Event m_release{Event::Reset::kNever};
    std::vector<Task> m_tasks;
};

// `entries` recurrent tasks are due at the same tick, in each of `periods`. Behind them comes one that takes the time.
double NanosecondsPerTurn(std::size_t entries, std::size_t periods) {
    const auto period = std::chrono::milliseconds(200);
    const auto first = WallNow() + period;
    Samples samples;
    FinishLine last(periods);
    std::vector<Orvane::Tracker> trackers;
    for (std::size_t i = 0; i < entries; ++i) {
        trackers.push_back(Orvane::Schedule(L"Entry", first, period, [] {}));
    }
    std::vector<double> late(periods);
    for (std::size_t i = 0; i < periods; ++i) {
        const auto due = first + period * static_cast<int>(i) + Orvane::Duration(1);
        const auto note = [&last, &late, i, due] {
            late[i] = Microseconds(WallNow() - due);
            last.Arrive();
        };
        GlobalScheduler::Insert(ScheduledTask(Orvane::MakeTask(L"Last", note), due, Orvane::Duration::zero()));
    }
    last.WaitForLast();
    for (const double microseconds : late) {
        samples.Add(1'000 * microseconds / static_cast<double>(entries));
    }
    return samples.Median();
}

Figures Dispatch(std::size_t entries, std::size_t periods, std::size_t running) {
    const Orvane::ConcurrencyLifetime lifetime;
    const RunningTasks crowd(running);
    const Task absent = Orvane::MakeTask(L"Absent", [] {});
    GlobalThreadPool::IsPresent(absent);  // the first use creates the pool
    const double ask =
        NanosecondsPerCall(entries, [&absent] { benchmark::DoNotOptimize(GlobalThreadPool::IsPresent(absent)); });
    return {{kTurn, NanosecondsPerTurn(entries, periods)}, {kAsk, ask}};
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t entries = Scaled(effort, 1'000);
    const std::size_t periods = effort == Effort::kShortest ? 1 : 10;
    const std::size_t many = Scaled(effort, 200);
    return {{
        "dispatch",
        std::to_string(entries) + " recurrent tasks that are due at once, " + std::to_string(periods) +
            " periods a round",
        {{kTurn, 0, true}, {kAsk, 0, true}},
        {
            {"none running", [=] { return Dispatch(entries, periods, 0); }, true},
            {std::to_string(many) + " running", [=] { return Dispatch(entries, periods, many); }},
        },
    }};
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "timer_dispatch",
        "What does the scheduler need for one due task, the more other tasks run?",
        {
            "turn: from the due time until a task that is due behind all others runs, for each of them.",
            "IsPresent: of a task that is neither queued nor running. The scheduler asks it once per turn.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
