// How many allocations, locks and wake-ups does a task need?
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

#include "bench/harness/finish_line.h"
#include "bench/harness/flood.h"
#include "bench/harness/platform_calls.h"
#include "bench/harness/question.h"
#include "bench/peers/empty_task.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"

namespace Zarvo::Bench {

namespace {

using Orvane::Internal::GlobalThreadPool;
using Orvane::Internal::Task;

constexpr const char* kAllocations = "allocations";
constexpr const char* kBytes = "bytes";
constexpr const char* kLocks = "lock pairs";
constexpr const char* kWakeUps = "wake-ups";
constexpr const char* kSleeps = "sleeps";

Task DoNothing() {
    return Orvane::MakeTask(L"Nothing", [] {});
}

Figures PerTask(const CallCounts& counts, std::size_t tasks) {
    const auto share = [tasks](std::int64_t count) { return static_cast<double>(count) / static_cast<double>(tasks); };
    return {{kAllocations, share(counts.allocations)},
            {kBytes, share(counts.bytes)},
            {kLocks, share(counts.locks)},
            {kWakeUps, share(counts.wakeUps)},
            {kSleeps, share(counts.sleeps)}};
}

// What happens in `step(task)`, for each of many tasks that `prepare(task)` has been called with before.
Figures CountStep(std::size_t tasks, const std::function<void(Task&)>& prepare,
                  const std::function<void(Task&)>& step) {
    const Orvane::ConcurrencyLifetime lifetime;
    std::vector<Task> all(tasks);
    for (Task& task : all) {
        prepare(task);
    }
    const PlatformCalls calls;
    const CallCounts before = calls.Now();
    for (Task& task : all) {
        step(task);
    }
    return PerTask(calls.Now() - before, tasks);
}

void Build(Task& task) {
    task = DoNothing();
}

void BuildAndRun(Task& task) {
    task = DoNothing();
    task();
}

void Drop(Task& task) {
    task = Task();
}

// Building and destroying included. `runAll(finish)` has every task run that arrives at the finish line.
Figures CountOnPool(std::size_t tasks, const std::function<void()>& runAll) {
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(QueueEmptyTask);
    Sleep(10);  // the last worker falls asleep
    const PlatformCalls calls;
    const CallCounts before = calls.Now();
    runAll();
    Sleep(10);
    return PerTask(calls.Now() - before, tasks);
}

Figures CountOneByOne(std::size_t tasks) {
    return CountOnPool(tasks, [tasks] {
        for (std::size_t i = 0; i < tasks; ++i) {
            FinishLine finish(1);
            QueueEmptyTask(finish);
            finish.WaitForLast();
            Sleep(1);  // the worker falls asleep
        }
    });
}

Figures CountFlood(std::size_t tasks) {
    return CountOnPool(tasks, [tasks] { Flood(tasks, 1, QueueEmptyTask); });
}

Figures CountSubmitAndWait(std::size_t tasks) {
    return CountOnPool(tasks, [tasks] {
        for (std::size_t i = 0; i < tasks; ++i) {
            Task task = DoNothing();
            GlobalThreadPool::Queue(task);
            task.Wait();
            Sleep(1);  // the worker falls asleep
        }
    });
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t tasks = Scaled(effort, 200);
    const std::size_t flood = Scaled(effort, 20'000);
    const auto keep = [](Task&) {};
    const auto run = [](Task& task) { task(); };
    const auto wait = [](Task& task) { task.Wait(); };
    return {{
        "footprint",
        "calls to the platform for each empty task",
        {{kAllocations, 2}, {kBytes, 0}, {kLocks, 2}, {kWakeUps, 2}, {kSleeps, 2}},
        {
            {"build", [=] { return CountStep(tasks, keep, Build); }},
            {"run on this thread", [=] { return CountStep(tasks, Build, run); }},
            {"wait, when it has run", [=] { return CountStep(tasks, BuildAndRun, wait); }},
            {"destroy, when it has run", [=] { return CountStep(tasks, BuildAndRun, Drop); }},
            {"all, on an idle pool", [=] { return CountOneByOne(tasks); }},
            {"all, on an idle pool, Wait", [=] { return CountSubmitAndWait(tasks); }},
            {"all, in a flood", [=] { return CountFlood(flood); }},
        },
    }};
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "task_footprint",
        "How many allocations, locks and wake-ups does a task need?",
        {
            "all: build, queue, run and destroy, the pool's own work included.",
            "Counted in this program, the library and the C++ runtime. Not counted: the lock inside "
            "std::atomic<std::shared_ptr>,",
            "which spins, and what the platform's own locks and heap do.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
