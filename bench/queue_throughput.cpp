// What does an empty task cost on the pools, from the first submit until the last one has run?
#include <cstddef>
#include <string>
#include <vector>

#include "bench/harness/flood.h"
#include "bench/harness/machine.h"
#include "bench/harness/question.h"
#include "bench/peers/bare_deque_pool.h"
#include "bench/peers/empty_task.h"
#include "bench/peers/system_pool.h"
#include "concurrency/lifetime/concurrency_lifetime.h"

namespace Zarvo::Bench {

namespace {

constexpr std::size_t kWorkers = 8;  // what the global pool begins with
constexpr const char* kCost = "ns per task";
constexpr const char* kThreads = "threads";

Figures FloodGlobalPool(std::size_t tasks, std::size_t producers) {
    const ThreadIds before = ThreadsOfThisProcess();
    const Orvane::ConcurrencyLifetime lifetime;  // a fresh pool for each round
    WarmUp(QueueEmptyTask);
    const double cost = Flood(tasks, producers, QueueEmptyTask);
    return {{kCost, cost}, {kThreads, ThreadsSince(before)}};
}

// `submit(pool, finish)` submits an empty task to the system's pool.
Figures FloodSystemPool(std::size_t tasks, std::size_t producers,
                        void (*submit)(SystemPool& pool, FinishLine& finish)) {
    const ThreadIds before = ThreadsOfThisProcess();
    SystemPool pool(kWorkers);
    const auto toPool = [&pool, submit](FinishLine& finish) { submit(pool, finish); };
    WarmUp(toPool);
    const double cost = Flood(tasks, producers, toPool);
    return {{kCost, cost}, {kThreads, ThreadsSince(before)}};
}

void SubmitEmptyWorkObject(SystemPool& pool, FinishLine& finish) {
    SubmitWorkObject<ArriveAt>(&finish, pool.Environment());
}

Figures FloodDefaultPool(std::size_t tasks, std::size_t producers, const ThreadIds& atStart) {
    WarmUp(TrySubmitEmptyTask);
    const double cost = Flood(tasks, producers, TrySubmitEmptyTask);
    return {{kCost, cost}, {kThreads, ThreadsSince(atStart)}};
}

Figures FloodBareDeque(std::size_t tasks, std::size_t producers) {
    BareDequePool pool(kWorkers);
    const auto submit = [&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); };
    WarmUp(submit);
    return {{kCost, Flood(tasks, producers, submit)}, {kThreads, kWorkers}};
}

Table FloodTable(const std::string& name, std::size_t tasks, std::size_t producers) {
    return {
        name,
        std::to_string(tasks) + " empty tasks, producers: " + std::to_string(producers),
        {{kCost, 0, true}, {kThreads, 0}},
        {
            {"global pool", [=] { return FloodGlobalPool(tasks, producers); }},
            {"system pool", [=] { return FloodSystemPool(tasks, producers, SubmitEmptyTask); }, true},
            {"bare deque", [=] { return FloodBareDeque(tasks, producers); }, true},
        },
    };
}

// With the dearer peers as well.
Table ProducersTable(std::size_t tasks, std::size_t producers) {
    const ThreadIds atStart = ThreadsOfThisProcess();
    Table table = FloodTable("producers_" + std::to_string(producers), tasks, producers);
    table.subjects.push_back(
        {"work object", [=] { return FloodSystemPool(tasks, producers, SubmitEmptyWorkObject); }, true});
    table.subjects.push_back({"default pool", [=] { return FloodDefaultPool(tasks, producers, atStart); }, true});
    return table;
}

std::vector<Table> Tables(Effort effort) {
    const bool isLong = effort == Effort::kAll;
    const std::vector<std::size_t> crowds =
        isLong ? std::vector<std::size_t>{1, 4, 16, 64} : std::vector<std::size_t>{1, 4};
    std::vector<Table> tables;
    for (const std::size_t producers : crowds) {
        tables.push_back(ProducersTable(Scaled(effort, 30'000), producers));
    }
    if (isLong) {
        for (const std::size_t tasks : {1'000, 10'000, 100'000, 1'000'000}) {
            tables.push_back(FloodTable("tasks_" + std::to_string(tasks), tasks, 1));
        }
    }
    return tables;
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "queue_throughput",
        "What does an empty task cost, from the first submit until the last one has run?",
        {
            "global pool: Task built, queued, run and destroyed.",
            "system pool: TrySubmitThreadpoolCallback on a pool of 8 threads. default pool: on that of the process.",
            "work object: CreateThreadpoolWork, SubmitThreadpoolWork, CloseThreadpoolWork, on a pool of 8 threads.",
            "bare deque: function pointers, SRWLOCK, CONDITION_VARIABLE, 8 threads. threads: of the pool, at the end.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
