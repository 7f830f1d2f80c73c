// What does it cost to split work into many short tasks and wait for all of them?
#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/harness/counter_clock.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/flood.h"
#include "bench/harness/machine.h"
#include "bench/harness/question.h"
#include "bench/harness/work.h"
#include "bench/peers/bare_deque_pool.h"
#include "bench/peers/empty_task.h"
#include "bench/peers/system_pool.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/threadpool/global_thread_pool.h"

namespace Zarvo::Bench {

namespace {

using Orvane::Internal::GlobalThreadPool;
using Orvane::Internal::Task;

constexpr std::size_t kWorkers = 8;  // what the global pool begins with
constexpr const char* kTime = "ms";
constexpr const char* kThreads = "threads";

struct Job {
    std::size_t tasks;
    std::size_t steps;  // of each task
};

// What all tasks of one run share.
struct Fork {
    FinishLine finish;
    std::size_t steps;

    explicit Fork(const Job& job) : finish(job.tasks), steps(job.steps) {}

    void RunTask() {
        Work(steps);
        finish.Arrive();
    }
};

void RunTaskOf(void* fork) {
    static_cast<Fork*>(fork)->RunTask();
}

// `submit(fork)` submits one task; the time ends when the waiting thread runs again.
template <typename Submit>
double Milliseconds(const Job& job, Submit submit) {
    Fork fork(job);
    const auto start = CounterClock::now();
    for (std::size_t i = 0; i < job.tasks; ++i) {
        submit(fork);
    }
    fork.finish.WaitForLast();
    return Microseconds(CounterClock::now() - start) / 1'000;
}

Figures OnGlobalPool(const Job& job) {
    const ThreadIds before = ThreadsOfThisProcess();
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(QueueEmptyTask);
    const double time = Milliseconds(
        job, [](Fork& fork) { GlobalThreadPool::Queue(Orvane::MakeTask(L"Fork", [&fork] { fork.RunTask(); })); });
    return {{kTime, time}, {kThreads, ThreadsSince(before)}};
}

// Waits for every task through its own handle instead of counting them.
Figures OnGlobalPoolByHandles(const Job& job) {
    const ThreadIds before = ThreadsOfThisProcess();
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(QueueEmptyTask);
    const auto start = CounterClock::now();
    std::vector<Task> tasks;
    for (std::size_t i = 0; i < job.tasks; ++i) {
        tasks.push_back(Orvane::MakeTask(L"Fork", [steps = job.steps] { Work(steps); }));
        GlobalThreadPool::Queue(tasks.back());
    }
    for (Task& task : tasks) {
        task.Wait();
    }
    const double time = Microseconds(CounterClock::now() - start) / 1'000;
    return {{kTime, time}, {kThreads, ThreadsSince(before)}};
}

Figures OnSystemPool(const Job& job) {
    const ThreadIds before = ThreadsOfThisProcess();
    SystemPool pool(kWorkers);
    WarmUp([&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
    const double time = Milliseconds(job, [&pool](Fork& fork) { pool.Submit<RunTaskOf>(&fork); });
    return {{kTime, time}, {kThreads, ThreadsSince(before)}};
}

// One work object, submitted once for each task: the cheapest way to the system's pool, where all tasks are the same.
Figures OnSystemPoolByOneWorkObject(const Job& job) {
    const ThreadIds before = ThreadsOfThisProcess();
    SystemPool pool(kWorkers);
    WarmUp([&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
    const PTP_WORK_CALLBACK callback = [](PTP_CALLBACK_INSTANCE, void* fork, PTP_WORK) { RunTaskOf(fork); };
    PTP_WORK work = nullptr;
    const double time = Milliseconds(job, [&](Fork& fork) {
        if (work == nullptr) {
            work = CreateThreadpoolWork(callback, &fork, pool.Environment());
            if (work == nullptr) {
                ThrowLastError("CreateThreadpoolWork");
            }
        }
        SubmitThreadpoolWork(work);
    });
    CloseThreadpoolWork(work);
    return {{kTime, time}, {kThreads, ThreadsSince(before)}};
}

Figures OnBareDeque(const Job& job) {
    BareDequePool pool(kWorkers);
    WarmUp([&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
    return {{kTime, Milliseconds(job, [&pool](Fork& fork) { pool.Submit(RunTaskOf, &fork); })}, {kThreads, kWorkers}};
}

Figures OnThisThread(const Job& job) {
    return {{kTime, Milliseconds(job, [](Fork& fork) { fork.RunTask(); })}};
}

std::vector<Table> Tables(Effort effort) {
    const Job job{Scaled(effort, 10'000), StepsOf(std::chrono::microseconds(5))};
    return {{
        "fork_join",
        std::to_string(job.tasks) + " tasks of 5 us, from the first submit until the caller knows that all have run",
        {{kTime, 1, true}, {kThreads, 0}},
        {
            {"global pool", [=] { return OnGlobalPool(job); }},
            {"global pool, Task::Wait", [=] { return OnGlobalPoolByHandles(job); }},
            {"system pool", [=] { return OnSystemPool(job); }, true},
            {"one work object", [=] { return OnSystemPoolByOneWorkObject(job); }, true},
            {"bare deque", [=] { return OnBareDeque(job); }, true},
            {"one thread alone", [=] { return OnThisThread(job); }, true},
        },
    }};
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "fork_join",
        "What does it cost to split work into many short tasks and wait for all of them?",
        {
            "Every pool has run some tasks before. threads: those of the pool at the end.",
            "Task::Wait: the caller keeps all handles and waits for each; otherwise the last task sets an event.",
            "system pool: TrySubmitThreadpoolCallback on a pool of 8 threads. one work object: submitted for each "
            "task.",
            "one thread alone: the calling thread runs every task itself.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
