// What do jobs, groups and loops cost?
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/flood.h"
#include "bench/harness/machine.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "bench/harness/work.h"
#include "bench/peers/bare_deque_pool.h"
#include "bench/peers/empty_task.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/figures/figures.h"
#include "concurrency/jobs/job_group.h"
#include "concurrency/jobs/parallel.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"

namespace Zarvo::Bench {

namespace {

using Orvane::Internal::FutureImpl;
using Orvane::Internal::GlobalThreadPool;
using std::chrono::milliseconds;

constexpr const char* kMicroseconds = "us";
constexpr const char* kMilliseconds = "ms";
constexpr const char* kNanoseconds = "ns an item";
constexpr const char* kThreads = "threads";
constexpr const char* kLongest = "longest Run, ms";
constexpr const char* kLate50 = "late p50 us";
constexpr const char* kLate99 = "late p99 us";

double MillisecondsSince(CounterClock::time_point start) {
    return Microseconds(CounterClock::now() - start) / 1'000;
}

// ---- one job

template <typename Once>
Figures MedianOf(std::size_t times, Once once) {
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(QueueEmptyTask);
    Samples samples;
    for (std::size_t i = 0; i < times; ++i) {
        const auto start = CounterClock::now();
        once();
        samples.Add(Microseconds(CounterClock::now() - start));
    }
    return {{kMicroseconds, samples.Median()}};
}

Table RunAndGet(Effort effort) {
    const std::size_t times = Scaled(effort, 5'000);
    return {"run_and_get",
            "an empty job on an idle pool, from its start until its outcome has been read; median of " +
                std::to_string(times),
            {{kMicroseconds, 1, true}},
            {
                {"Run, Get", [=] { return MedianOf(times, [] { Orvane::Run(L"Empty", [] {}).Get(); }); }},
                {"Queue, GetValue",
                 [=] {
                     return MedianOf(times, [] {
                         std::shared_ptr<FutureImpl<void>> outcome;
                         GlobalThreadPool::Queue(Orvane::MakeTask(L"Empty", [] {}, outcome));
                         outcome->GetValue();
                     });
                 },
                 true},
            }};
}

// ---- loops

Figures ForEachOnPool(std::size_t items, std::size_t steps) {
    const ThreadIds before = ThreadsOfThisProcess();
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(QueueEmptyTask);
    std::vector<std::size_t> range(items, steps);
    const auto start = CounterClock::now();
    Orvane::ForEach(L"Item", range, Work);
    return {{kMilliseconds, MillisecondsSince(start)}, {kThreads, ThreadsSince(before)}};
}

struct DequeItem {
    std::size_t steps;
    FinishLine finish;
};

void RunDequeItem(void* argument) {
    auto& item = *static_cast<DequeItem*>(argument);
    Work(item.steps);
    item.finish.Arrive();
}

Figures OnBareDeque(std::size_t items, std::size_t steps) {
    constexpr std::size_t kWorkers = 8;
    BareDequePool pool(kWorkers);
    WarmUp([&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
    DequeItem item{steps, FinishLine(items)};
    const auto start = CounterClock::now();
    for (std::size_t i = 0; i < items; ++i) {
        pool.Submit(RunDequeItem, &item);
    }
    item.finish.WaitForLast();
    return {{kMilliseconds, MillisecondsSince(start)}, {kThreads, kWorkers}};
}

Figures OnThisThread(std::size_t items, std::size_t steps) {
    const auto start = CounterClock::now();
    for (std::size_t i = 0; i < items; ++i) {
        Work(steps);
    }
    return {{kMilliseconds, MillisecondsSince(start)}};
}

Table Loop(Effort effort) {
    const std::size_t items = Scaled(effort, 10'000);
    const std::size_t steps = StepsOf(std::chrono::microseconds(5));
    return {"for_each",
            std::to_string(items) + " items of 5 us, until the caller knows that all are done",
            {{kMilliseconds, 1, true}, {kThreads, 0}},
            {
                {"ForEach", [=] { return ForEachOnPool(items, steps); }},
                {"bare deque", [=] { return OnBareDeque(items, steps); }, true},
                {"one thread alone", [=] { return OnThisThread(items, steps); }, true},
            }};
}

Table EmptyItems(Effort effort) {
    const std::size_t items = Scaled(effort, 1'000'000);
    return {"empty_items",
            std::to_string(items) + " items without work",
            {{kNanoseconds, 1, true}},
            {{"ForEach", [=] {
                  const Orvane::ConcurrencyLifetime lifetime;
                  WarmUp(QueueEmptyTask);
                  std::vector<int> range(items);
                  const auto start = CounterClock::now();
                  Orvane::ForEach(L"Item", range, [](int& item) { ++item; });
                  return Figures{{kNanoseconds, MillisecondsSince(start) * 1e6 / static_cast<double>(items)}};
              }}}};
}

// ---- items that wait

Figures WaitingInAGroup(std::size_t items) {
    const ThreadIds before = ThreadsOfThisProcess();
    const Orvane::ConcurrencyLifetime lifetime;
    const auto start = CounterClock::now();
    double longest = 0;
    Orvane::JobGroup group(L"Items", 16);
    for (std::size_t i = 0; i < items; ++i) {
        const auto call = CounterClock::now();
        group.Run(L"Item", [] { Orvane::CancellableSleep(3); });
        longest = std::max(longest, MillisecondsSince(call));
    }
    group.Wait();
    return {{kMilliseconds, MillisecondsSince(start)}, {kLongest, longest}, {kThreads, ThreadsSince(before)}};
}

Figures WaitingAsSingleTasks(std::size_t items) {
    const ThreadIds before = ThreadsOfThisProcess();
    const Orvane::ConcurrencyLifetime lifetime;
    const auto start = CounterClock::now();
    double longest = 0;
    FinishLine finish(items);
    for (std::size_t i = 0; i < items; ++i) {
        const auto call = CounterClock::now();
        GlobalThreadPool::Queue(Orvane::MakeTask(L"Item", [&finish] {
            Orvane::CancellableSleep(3);
            finish.Arrive();
        }));
        longest = std::max(longest, MillisecondsSince(call));
    }
    finish.WaitForLast();
    return {{kMilliseconds, MillisecondsSince(start)}, {kLongest, longest}, {kThreads, ThreadsSince(before)}};
}

Table WaitingItems(Effort effort) {
    const std::size_t items = Scaled(effort, 300);
    return {"waiting_items",
            std::to_string(items) + " items that wait for 3 ms, 16 at a time, on a fresh pool, until all are done",
            {{kMilliseconds, 0, true}, {kLongest, 1}, {kThreads, 0}},
            {
                {"group", [=] { return WaitingInAGroup(items); }},
                {"single tasks", [=] { return WaitingAsSingleTasks(items); }, true},
            }};
}

// How late the runs of a schedule of 5 ms begin while `beside` runs, each after the moment it was due last.
template <typename Beside>
Figures LatenessBeside(Beside beside) {
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(QueueEmptyTask);
    constexpr std::chrono::microseconds kInterval{5'000};
    std::vector<double> late;
    std::size_t most = 0;
    FinishLine begun(1);
    {
        const auto first = std::chrono::system_clock::now() + kInterval;
        const Orvane::Tracker beat = Orvane::Schedule(L"Beat", first, kInterval, [&] {
            if (late.empty()) {
                begun.Arrive();
            }
            late.push_back(Microseconds((std::chrono::system_clock::now() - first) % kInterval));
            if (late.size() % 64 == 0) {
                most = std::max(most, static_cast<std::size_t>(Orvane::GetFigures().pool.workers));
            }
        });
        begun.WaitForLast();
        beside();
    }
    Samples samples;
    for (const double one : late) {
        samples.Add(one);
    }
    return {{kThreads, most}, {kLate50, samples.Median()}, {kLate99, samples.Percentile(99)}};
}

Table LongQueue(Effort effort) {
    const std::size_t items = Scaled(effort, 10'000);
    return {
        "long_queue",
        "a schedule of 5 ms beside " + std::to_string(items) + " items that wait for 10 ms, 8 at a time",
        {{kLate50, 0, true}, {kLate99, 0, true}, {kThreads, 0}},
        {
            {"group",
             [=] {
                 return LatenessBeside([=] {
                     Orvane::JobGroup group(L"Items", 8);
                     group.ForgetEnded();
                     for (std::size_t i = 0; i < items; ++i) {
                         group.Run(L"Item", [] { Orvane::CancellableSleep(10); });
                     }
                     group.Wait();
                 });
             }},
            {"idle pool",
             [=] { return LatenessBeside([=] { Sleep(static_cast<DWORD>(std::min<std::size_t>(items, 2'000))); }); },
             true},
        }};
}

// ---- cancellation

// Sleeps until it is asked, and needs `time` to leave then.
void LeaveSlowly(DWORD time) {
    try {
        Orvane::CancellableSleep(INFINITE);
    } catch (const Orvane::CancelRequestedException&) {
        Sleep(time);
        throw;
    }
}

Figures CancelChildren(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    FinishLine allRun(count);
    auto parent = Orvane::Run(L"Parent", [&] {
        std::vector<Orvane::Job<void>> children;
        for (std::size_t i = 0; i < count; ++i) {
            children.push_back(Orvane::RunInNewThread(L"Child", [&allRun] {
                allRun.Arrive();
                LeaveSlowly(50);
            }));
        }
        Orvane::WhenAll(children);
    });
    allRun.WaitForLast();
    const auto start = CounterClock::now();
    parent.Cancel();
    parent.Wait();
    return {{kMilliseconds, MillisecondsSince(start)}};
}

Figures CancelDedicated(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    FinishLine allRun(count);
    Orvane::JobGroup group(L"Blocked", Orvane::Unbounded);
    for (std::size_t i = 0; i < count; ++i) {
        group.RunInNewThread(L"Blocked", [&allRun] {
            allRun.Arrive();
            Orvane::CancellableSleep(INFINITE);
        });
    }
    allRun.WaitForLast();
    const auto start = CounterClock::now();
    group.Cancel();
    try {
        group.Wait();
    } catch (const Orvane::CancelledException&) {
    }
    return {{kMicroseconds, MillisecondsSince(start) * 1'000 / static_cast<double>(count)}};
}

std::vector<Table> CancelTables(Effort effort) {
    const std::size_t children = Scaled(effort, 100);
    Table cancelled{"cancelled_children",
                    std::to_string(children) +
                        " children that need 50 ms to leave: from the request for their parent until it has ended",
                    {{kMilliseconds, 0, true}},
                    {{"parent", [=] { return CancelChildren(children); }}}};
    Table dedicated{
        "cancelled_group",
        "blocked jobs on threads of their own: from the request for their group until all have ended, for each",
        {{kMicroseconds, 0, true}},
        {}};
    for (const std::size_t count : {250U, 500U, 1'000U}) {
        dedicated.subjects.push_back({std::to_string(count) + " jobs",
                                      [=] { return CancelDedicated(Scaled(effort, count)); },
                                      dedicated.subjects.empty()});
    }
    return {cancelled, dedicated};
}

// With all workers blocked.
Figures LimitLateness(std::size_t times) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::vector<Orvane::Job<void>> blockers;
    constexpr std::size_t kWorkers = 8;
    Event open{Event::Reset::kNever};
    FinishLine allHeld(kWorkers);
    for (std::size_t i = 0; i < kWorkers; ++i) {
        blockers.push_back(Orvane::Run(L"Blocker", [&] {
            allHeld.Arrive();
            open.Wait();
        }));
    }
    allHeld.WaitForLast();
    Samples late;
    for (std::size_t i = 0; i < times; ++i) {
        constexpr milliseconds kLimit{5};
        auto job = Orvane::RunInNewThread(L"Limited", [] { Orvane::CancellableSleep(INFINITE); });
        const auto due = CounterClock::now() + kLimit;
        job.CancelAfter(kLimit);
        job.Wait();
        late.Add(Microseconds(CounterClock::now() - due));
    }
    open.Set();
    return {{kLate50, late.Median()}, {kLate99, late.Percentile(99)}};
}

Table Limits(Effort effort) {
    const std::size_t times = Scaled(effort, 200);
    return {"time_limit",
            "a limit of 5 ms while all workers are blocked: from its time until the job has ended; " +
                std::to_string(times) + " times",
            {{kLate50, 0, true}, {kLate99, 0, true}},
            {{"CancelAfter", [=] { return LimitLateness(times); }}}};
}

std::vector<Table> Tables(Effort effort) {
    std::vector<Table> tables{RunAndGet(effort), Loop(effort), EmptyItems(effort), WaitingItems(effort),
                              Limits(effort)};
    for (Table& table : CancelTables(effort)) {
        tables.push_back(std::move(table));
    }
    if (effort != Effort::kUsual) {
        tables.push_back(LongQueue(effort));
    }
    return tables;
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "jobs",
        "What do jobs, groups and loops cost?",
        {
            "for_each: the pools have run some tasks before. bare deque: 8 threads, each item submitted by itself.",
            "waiting_items: the pool is created within the time. single tasks: queued one by one, without a bound.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
