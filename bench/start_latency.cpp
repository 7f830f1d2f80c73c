// How long after it was submitted does a task start on an idle pool, and how long does a caller wait for it in all?
#include <cstddef>
#include <future>
#include <string>
#include <system_error>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/flood.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "bench/peers/bare_deque_pool.h"
#include "bench/peers/empty_task.h"
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

Figures StartOnBareDeque(std::size_t count) {
    BareDequePool pool(kWorkers);
    return SubmitToStart(count, [&pool](FinishLine& start) { SubmitEmptyTask(pool, start); });
}

Figures StartAsync(std::size_t count) {
    std::future<void> future;  // of the last one, which has ended when the next one is submitted
    return SubmitToStart(
        count, [&future](FinishLine& start) { future = std::async(std::launch::async, [&start] { start.Arrive(); }); });
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
    return SubmitToEnd(count, [] {
        PTP_WORK const work = CreateThreadpoolWork([](PTP_CALLBACK_INSTANCE, void*, PTP_WORK) {}, nullptr, nullptr);
        if (work == nullptr) {
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateThreadpoolWork");
        }
        SubmitThreadpoolWork(work);
        WaitForThreadpoolWorkCallbacks(work, FALSE);
        CloseThreadpoolWork(work);
    });
}

Figures WaitOnSystemPool(std::size_t count) {
    return SubmitToEnd(count, [] {
        FinishLine end(1);
        TrySubmitEmptyTask(end);
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

Figures WaitForAsync(std::size_t count) {
    return SubmitToEnd(count, [] { std::async(std::launch::async, [] {}).get(); });
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
                {"TrySubmit", [=] { return SubmitToStart(count, TrySubmitEmptyTask); }, true},
                {"work object", [=] { return SubmitToStart(count, SubmitEmptyWorkObject); }, true},
                {"bare deque", [=] { return StartOnBareDeque(count); }, true},
                {"std::async", [=] { return StartAsync(count); }, true},
            },
        },
        {
            "submit_and_wait",
            "idle pool, submit and wait until it has run" + often,
            columns,
            {
                {"global pool", [=] { return WaitOnGlobalPool(count); }},
                {"TrySubmit + event", [=] { return WaitOnSystemPool(count); }, true},
                {"work object", [=] { return WaitForWorkObject(count); }, true},
                {"bare deque + event", [=] { return WaitOnBareDeque(count); }, true},
                {"std::async", [=] { return WaitForAsync(count); }, true},
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
            "work object: CreateThreadpoolWork, SubmitThreadpoolWork, WaitForThreadpoolWorkCallbacks.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
