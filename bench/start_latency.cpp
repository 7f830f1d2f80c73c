// How long after it was submitted does a task start on an idle pool, and how long does a caller wait for it in all?
#include <cstddef>
#include <string>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/flood.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
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
constexpr const char* kMedian = "p50 us";
constexpr const char* kTail = "p99 us";

// Long enough for the workers to be asleep again.
void LetThePoolFallIdle() {
    Sleep(1);
}

Figures Percentiles(const Samples& samples) {
    return {{kMedian, samples.Percentile(50)}, {kTail, samples.Percentile(99)}};
}

// `submit(start)` submits a task that calls start.Arrive().
template <typename Submit>
Figures SubmitToStart(std::size_t count, Submit submit) {
    WarmUp(submit);
    Samples samples;
    for (std::size_t i = 0; i < count; ++i) {
        FinishLine start(1);
        LetThePoolFallIdle();
        const auto submitted = CounterClock::now();
        submit(start);
        samples.Add(Microseconds(start.WaitForLast() - submitted));
    }
    return Percentiles(samples);
}

// `submitAndWait()` submits an empty task and returns when it has run.
template <typename SubmitAndWait>
Figures SubmitToEnd(std::size_t count, SubmitAndWait submitAndWait) {
    submitAndWait();  // the first one may create the pool
    Samples samples;
    for (std::size_t i = 0; i < count; ++i) {
        LetThePoolFallIdle();
        const auto submitted = CounterClock::now();
        submitAndWait();
        samples.Add(Microseconds(CounterClock::now() - submitted));
    }
    return Percentiles(samples);
}

Figures StartOnGlobalPool(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    return SubmitToStart(count, QueueEmptyTask);
}

Figures StartOnSystemPool(std::size_t count) {
    SystemPool pool(kWorkers);
    return SubmitToStart(count, [&pool](FinishLine& start) { SubmitEmptyTask(pool, start); });
}

Figures StartWorkObject(std::size_t count) {
    SystemPool pool(kWorkers);
    return SubmitToStart(count, [&pool](FinishLine& start) { SubmitWorkObject<ArriveAt>(&start, pool.Environment()); });
}

Figures StartOnBareDeque(std::size_t count) {
    BareDequePool pool(kWorkers);
    return SubmitToStart(count, [&pool](FinishLine& start) { SubmitEmptyTask(pool, start); });
}

Figures WaitOnGlobalPool(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    return SubmitToEnd(count, [] {
        Task task = Orvane::MakeTask(L"Wait", [] {});
        GlobalThreadPool::Queue(task);
        task.Wait();
    });
}

Figures WaitForWorkObject(std::size_t count) {
    SystemPool pool(kWorkers);
    return SubmitToEnd(count, [&pool] {
        PTP_WORK const work =
            CreateThreadpoolWork([](PTP_CALLBACK_INSTANCE, void*, PTP_WORK) {}, nullptr, pool.Environment());
        if (work == nullptr) {
            ThrowLastError("CreateThreadpoolWork");
        }
        SubmitThreadpoolWork(work);
        WaitForThreadpoolWorkCallbacks(work, FALSE);
        CloseThreadpoolWork(work);
    });
}

Figures WaitOnSystemPool(std::size_t count) {
    SystemPool pool(kWorkers);
    return SubmitToEnd(count, [&pool] {
        FinishLine end(1);
        SubmitEmptyTask(pool, end);
        end.WaitForLast();
    });
}

Figures WaitOnBareDeque(std::size_t count) {
    BareDequePool pool(kWorkers);
    return SubmitToEnd(count, [&pool] {
        FinishLine end(1);
        SubmitEmptyTask(pool, end);
        end.WaitForLast();
    });
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t count = Scaled(effort, effort == Effort::kAll ? 1'000 : 250);
    const std::string often = ", " + std::to_string(count) + " times a round";
    const std::vector<Column> columns{{kMedian, 1, true}, {kTail, 1, true}};
    return {
        {
            "submit_to_start",
            "idle pool, submit to start" + often,
            columns,
            {
                {"global pool", [=] { return StartOnGlobalPool(count); }},
                {"system pool", [=] { return StartOnSystemPool(count); }, true},
                {"work object", [=] { return StartWorkObject(count); }, true},
                {"bare deque", [=] { return StartOnBareDeque(count); }, true},
            },
        },
        {
            "submit_and_wait",
            "idle pool, submit and wait until it has run" + often,
            columns,
            {
                {"global pool", [=] { return WaitOnGlobalPool(count); }},
                {"system pool + event", [=] { return WaitOnSystemPool(count); }, true},
                {"work object", [=] { return WaitForWorkObject(count); }, true},
                {"bare deque + event", [=] { return WaitOnBareDeque(count); }, true},
            },
        },
    };
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "start_latency",
        "How long after it was submitted does a task start on an idle pool, and how long does a caller wait in all?",
        {
            "global pool: building the Task is part of the time; submit and wait is Queue and Task::Wait.",
            "system pool: TrySubmitThreadpoolCallback on a pool of 8 threads.",
            "work object: CreateThreadpoolWork, SubmitThreadpoolWork, WaitForThreadpoolWorkCallbacks, on such a pool.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
