// What does an event of the trace cost, in nanoseconds?
#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/flood.h"
#include "bench/harness/question.h"
#include "bench/peers/empty_task.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "tests/support/child_process.h"
#include "zarvo_orvane_logging/trace.h"

namespace Zarvo::Bench {

namespace {

using Phase = OrvaneTrace::Phase;

constexpr std::string_view kMeasure = "--measure";
constexpr const char* kCost = "ns";

// As the library's own places do it.
void BeginSpan() {
    if (g_OrvaneTrace.IsOn()) {
        const OrvaneTrace::Argument group{.key = "group", .text = L"Import"};
        g_OrvaneTrace.Write(
            {.phase = Phase::Begin, .category = "job", .name = L"Fetch 17", .arguments = &group, .argumentCount = 1});
    }
}

void EndSpan() {
    if (g_OrvaneTrace.IsOn()) {
        g_OrvaneTrace.Write({.phase = Phase::End, .category = "job", .name = L"Fetch 17"});
    }
}

double CostOfAnEvent(std::size_t count) {
    BeginSpan();  // reads the environment
    EndSpan();
    return NanosecondsPerCall(count,
                              [] {
                                  BeginSpan();
                                  EndSpan();
                              }) /
           2;
}

double CostOfATask(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    WarmUp(QueueEmptyTask);
    return Flood(count, 1, QueueEmptyTask);
}

struct Measure {
    const char* name;
    double (*cost)(std::size_t count);
};
constexpr Measure kMeasures[] = {{"event", &CostOfAnEvent}, {"task", &CostOfATask}};

// In a child: the trace is on or off for a whole process.
void MeasureIfAsked(int argc, char** argv) {
    for (const Measure& measure : kMeasures) {
        if (argc == 4 && argv[1] == kMeasure && argv[2] == std::string_view(measure.name)) {
            std::printf("%.3f", measure.cost(std::stoul(argv[3])));
            std::exit(0);
        }
    }
}

double InAChild(const char* measure, std::size_t count, const std::string& traceFile) {
    const Test::ChildResult child =
        Test::RunChild("trace_cost_bench", {std::string(kMeasure), measure, std::to_string(count)},
                       {{"ZARVO_TRACE", traceFile}, {"ZARVO_LOG", ""}});
    if (child.exitCode != 0) {
        throw std::runtime_error("the child has ended with " + std::to_string(child.exitCode));
    }
    return std::stod(child.standardOutput);
}

Subject Off(const char* measure, std::size_t count) {
    return {"trace off", [=] { return Figures{{kCost, InAChild(measure, count, "")}}; }};
}

Subject On(const char* measure, std::size_t count) {
    return {"trace on", [=] {
                const std::filesystem::path file = std::filesystem::temp_directory_path() /
                                                   ("zarvo-bench-" + std::to_string(GetCurrentProcessId()) + ".json");
                const double cost = InAChild(measure, count, file.string());
                std::filesystem::remove(file);
                std::filesystem::remove(file.string() + ".1");
                return Figures{{kCost, cost}};
            }};
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t events = Scaled(effort, 200'000);
    const std::size_t tasks = Scaled(effort, 50'000);
    return {
        {"event",
         "one event, " + std::to_string(events) + " times a round",
         {{kCost, 2, true}},
         {Off("event", events), On("event", events)}},
        {"task",
         "an empty task on the pool, until it has run, " + std::to_string(tasks) + " from one producer",
         {{kCost, 0, true}},
         {Off("task", tasks), On("task", tasks)}},
    };
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    MeasureIfAsked(argc, argv);
    const Question question{
        "trace_cost",
        "What does the trace cost?",
        {
            "Off: no file. On: a file in the temporary folder. Each round is a process of its own.",
            "An event: half of the beginning and the end of a job's span, on one thread. A task writes four.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
