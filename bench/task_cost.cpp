// What do the single steps of a task cost, in nanoseconds?
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"
#include "bench/harness/flood.h"
#include "bench/harness/question.h"
#include "bench/peers/bare_deque_pool.h"
#include "bench/peers/empty_task.h"
#include "bench/peers/system_pool.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/cancellation/wait_protocol.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/make_task.h"
#include "zarvo_orvane_logging/orvane_logging.h"

namespace Zarvo::Bench {

namespace {

using Orvane::Internal::FutureImpl;
using Orvane::Internal::FutureState;
using Orvane::Internal::Task;

constexpr const char* kCost = "ns";
constexpr const char* kTwoReports = "ns of 2 reports";
constexpr const char* kRun = "ns of the run";
constexpr const char* kShare = "% of the run";
constexpr const char* kProcessor = "processor ns";
constexpr const char* kWall = "ns until it has run";
constexpr std::size_t kWorkers = 8;  // what the global pool begins with

Task DoNothing() {
    return Orvane::MakeTask(L"Nothing", [] {});
}

// What one call takes on a thread that runs no task.
template <typename Call>
Subject OutsideOfTasks(std::string name, std::size_t count, Call call, bool isPeer = false) {
    return {std::move(name),
            [count, call] {
                const Orvane::ConcurrencyLifetime lifetime;
                return Figures{{kCost, NanosecondsPerCall(count, call)}};
            },
            isPeer};
}

// What one call takes inside of a task.
template <typename Call>
Subject InsideOfTask(std::string name, std::size_t count, Call call) {
    return {std::move(name), [count, call] {
                const Orvane::ConcurrencyLifetime lifetime;
                double cost = 0;
                Task task = Orvane::MakeTask(L"Measure", [&] { cost = NanosecondsPerCall(count, call); });
                task();
                return Figures{{kCost, cost}};
            }};
}

// What a wait pays for saying what it waits in.
Subject NoteOfAWait(std::size_t count) {
    return {"note of a wait", [count] {
                using namespace Orvane::Internal;
                const Orvane::ConcurrencyLifetime lifetime;
                double cost = 0;
                Task task = Orvane::MakeTask(L"Measure", [&] {
                    const WaitingRun run = CurrentRun();
                    cost = NanosecondsPerCall(count,
                                              [&run] { const WaitingRun::Note note(run, WaitKind::Sleep, nullptr); });
                });
                task();
                return Figures{{kCost, cost}};
            }};
}

void BuildAndDestroy() {
    benchmark::DoNotOptimize(DoNothing());
}

void BuildRunAndDestroy() {
    Task task = DoNothing();
    task();
}

void PackagedTask() {
    std::packaged_task<void()> task([] {});
    benchmark::DoNotOptimize(task.get_future());
}

void RunPackagedTask() {
    std::packaged_task<void()> task([] {});
    std::future<void> future = task.get_future();
    task();
    future.get();
}

// Installs a future as the thread's current one and takes it away again, as every run does.
void SwapCurrentFuture(const std::shared_ptr<FutureState>& future) {
    std::weak_ptr<FutureState> previous = Orvane::Internal::ResetFutureObject(future);
    Orvane::Internal::ResetFutureObject(std::move(previous));
}

// A task that is cancelled on its own thread: the exception is thrown, passes one frame and is caught by the wrapper.
void CancelOnOwnThread() {
    Task task = DoNothing();
    task = Orvane::MakeTask(L"Cancelled", [&task] { task.Cancel(); });
    task();
}

std::vector<Subject> TaskSubjects(std::size_t count) {
    const Task task = DoNothing();
    return {
        OutsideOfTasks("build and destroy", count, BuildAndDestroy),
        OutsideOfTasks("build, run here, destroy", count, BuildRunAndDestroy),
        OutsideOfTasks("build, run here, cancel itself", count / 10 + 1, CancelOnOwnThread),
        OutsideOfTasks("copy a handle", count, [task] { benchmark::DoNotOptimize(Task(task)); }),
        OutsideOfTasks("packaged_task", count, PackagedTask, true),
        OutsideOfTasks("packaged_task, run", count, RunPackagedTask, true),
    };
}

std::vector<Subject> CallSubjects(std::size_t count) {
    const std::shared_ptr<FutureState> future(new FutureImpl<void>());
    const auto mutex = std::make_shared<std::recursive_mutex>();
    const auto ask = [] { benchmark::DoNotOptimize(Orvane::IsCancellationRequested()); };
    const auto pass = [] { Orvane::CancellationPoint(); };
    return {
        InsideOfTask("IsCancellationRequested", count, ask),
        OutsideOfTasks("IsCancellationRequested, no task", count, ask),
        InsideOfTask("CancellationPoint", count, pass),
        OutsideOfTasks("CancellationPoint, no task", count, pass),
        OutsideOfTasks("ResetFutureObject, there and back", count, [future] { SwapCurrentFuture(future); }),
        NoteOfAWait(count),
        OutsideOfTasks(
            "recursive_mutex", count, [mutex] { std::lock_guard lock(*mutex); }, true),
    };
}

// Waits that are over at once.
std::vector<Subject> WaitSubjects(std::size_t count) {
    const auto signalled = std::make_shared<Event>(Event::Reset::kNever);
    signalled->Set();
    return {
        InsideOfTask("CancellableWaitForSingleObject", count,
                     [signalled] { Orvane::CancellableWaitForSingleObject(signalled->Handle(), INFINITE); }),
        InsideOfTask("CancellableSleep(0)", count, [] { Orvane::CancellableSleep(0); }),
        OutsideOfTasks(
            "WaitForMultipleObjects", count,
            [signalled] {
                const HANDLE handle = signalled->Handle();
                WaitForMultipleObjects(1, &handle, FALSE, INFINITE);
            },
            true),
        OutsideOfTasks(
            "CreateEvent, CloseHandle", count, [] { const Event unused; }, true),
        OutsideOfTasks(
            "Sleep(0)", count, [] { Sleep(0); }, true),
    };
}

void ReportTwice(const wchar_t* name) {
    for (int i = 0; i < 2; ++i) {
        const unsigned thread = GetCurrentThreadId();
        const unsigned process = GetCurrentProcessId();
        g_OrvaneLogging.Report(1, 16, L"Concurrency.Task",
                               L"Task [%s] started in thread [0x%x (%d)] of process [0x%x (%d)]", name, thread, thread,
                               process, process);
    }
}

// The start and stop records of a task, when no sink wants them, within a run of `run` nanoseconds.
Figures ShareOfReports(std::size_t count, double run) {
    const double reports = NanosecondsPerCall(count, [] { ReportTwice(L"Nothing"); });
    return {{kTwoReports, reports}, {kRun, run}, {kShare, 100 * reports / run}};
}

Figures ReportsOfInlineRun(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    return ShareOfReports(count, NanosecondsPerCall(count, BuildRunAndDestroy));
}

Figures ReportsOfPooledRun(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(QueueEmptyTask);
    return ShareOfReports(count, Flood(count, 1, QueueEmptyTask));
}

// What all threads of this process have computed so far, in nanoseconds. It moves in steps of up to 16 ms.
double ProcessorTime() {
    FILETIME created{};
    FILETIME ended{};
    FILETIME kernel{};
    FILETIME user{};
    if (GetProcessTimes(GetCurrentProcess(), &created, &ended, &kernel, &user) == FALSE) {
        ThrowLastError("GetProcessTimes");
    }
    const auto ticks = [](const FILETIME& time) {
        return static_cast<double>((static_cast<std::uint64_t>(time.dwHighDateTime) << 32U) | time.dwLowDateTime);
    };
    return 100 * (ticks(kernel) + ticks(user));
}

// Of a flood of `count` tasks: what all processors together spend on each, and how long it takes.
template <typename Submit>
Figures ProcessorTimePerTask(std::size_t count, Submit submit) {
    WarmUp(submit);
    const double before = ProcessorTime();
    const double wall = Flood(count, 1, submit);
    return {{kProcessor, (ProcessorTime() - before) / static_cast<double>(count)}, {kWall, wall}};
}

std::vector<Subject> ProcessorSubjects(std::size_t count) {
    return {
        {"global pool",
         [count] {
             const Orvane::ConcurrencyLifetime lifetime;
             return ProcessorTimePerTask(count, QueueEmptyTask);
         }},
        {"system pool",
         [count] {
             SystemPool pool(kWorkers);
             return ProcessorTimePerTask(count, [&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
         },
         true},
        {"bare deque",
         [count] {
             BareDequePool pool(kWorkers);
             return ProcessorTimePerTask(count, [&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
         },
         true},
    };
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t count = Scaled(effort, 20'000);
    const std::size_t flood = Scaled(effort, 50'000);
    const std::string times = std::to_string(count) + " times a round";
    return {
        {"task", "an empty task, " + times, {{kCost, 0, true}}, TaskSubjects(count)},
        {"calls", "single calls, " + times, {{kCost, 0, true}}, CallSubjects(count)},
        {"waits",
         "waits that are over at once, on a signalled event or of no time",
         {{kCost, 0, true}},
         WaitSubjects(count / 10 + 1)},
        {"reports",
         "the log reports of a run, with no sink",
         {{kTwoReports, 0}, {kRun, 0}, {kShare, 1}},
         {
             {"run here", [=] { return ReportsOfInlineRun(count); }},
             {"run on the pool", [=] { return ReportsOfPooledRun(count); }},
         }},
        {"processor_time",
         "processor time of an empty task on a pool, " + std::to_string(flood) + " from one producer",
         {{kProcessor, 0, true}, {kWall, 0}},
         ProcessorSubjects(flood)},
    };
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "task_cost",
        "What do the single steps of a task cost?",
        {
            "packaged_task: std::packaged_task<void()> with its future. recursive_mutex: lock and unlock, for scale.",
            "processor ns: of all threads of the process together. The pools have 8 threads to begin with.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
