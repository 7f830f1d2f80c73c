// What does an empty task cost on a pool that never grows, and how does the cost change with the number of workers?
//
// Linked to the library's objects: the pool class is not exported.
#include <cstddef>
#include <string>
#include <vector>

#include "bench/harness/flood.h"
#include "bench/harness/question.h"
#include "bench/peers/bare_deque_pool.h"
#include "bench/peers/empty_task.h"
#include "bench/peers/system_pool.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/policies.h"
#include "concurrency/threadpool/thread_pool.h"

namespace Zarvo::Bench {

namespace {

using FixedPool = Orvane::Internal::ThreadPool<Orvane::Internal::ComPolicyMTA>;

constexpr const char* kCost = "ns per task";

struct Load {
    std::size_t tasks;
    std::size_t producers;
    std::size_t workers;
};

template <typename Submit>
Figures WarmFlood(const Load& load, Submit submit) {
    WarmUp(submit);
    return {{kCost, Flood(load.tasks, load.producers, submit)}};
}

Figures FloodFixedPool(const Load& load) {
    const Orvane::ConcurrencyLifetime lifetime;
    const FixedPool pool(load.workers);
    return WarmFlood(load, [&pool](FinishLine& finish) { pool.Core()->Queue(EmptyTask(finish)); });
}

Figures FloodBareDeque(const Load& load) {
    BareDequePool pool(load.workers);
    return WarmFlood(load, [&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
}

Figures FloodSystemPool(const Load& load) {
    SystemPool pool(static_cast<DWORD>(load.workers));
    return WarmFlood(load, [&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
}

Table PeersTable(const std::string& name, const Load& load) {
    return {
        name,
        std::to_string(load.tasks) + " empty tasks, producers: " + std::to_string(load.producers) + ", 8 workers",
        {{kCost, 0, true}},
        {
            {"fixed pool", [=] { return FloodFixedPool(load); }},
            {"system pool", [=] { return FloodSystemPool(load); }, true},
            {"bare deque", [=] { return FloodBareDeque(load); }, true},
        },
    };
}

// The cost for each of some numbers of workers, in a column of its own.
Table WorkersTable(std::size_t tasks) {
    const std::vector<std::size_t> crews{8, 32, 128, 512};
    const auto heading = [](std::size_t workers) { return std::to_string(workers) + " workers, ns"; };
    const auto measure = [=](Figures (*flood)(const Load& load)) {
        Figures figures;
        for (const std::size_t workers : crews) {
            figures[heading(workers)] = flood({tasks, 1, workers}).at(kCost);
        }
        return figures;
    };
    Table table{"workers", std::to_string(tasks) + " empty tasks, one producer, more and more workers", {}, {}};
    for (const std::size_t workers : crews) {
        table.columns.push_back({heading(workers), 0, true});
    }
    table.subjects = {
        {"fixed pool", [=] { return measure(FloodFixedPool); }},
        {"system pool", [=] { return measure(FloodSystemPool); }, true},
        {"bare deque", [=] { return measure(FloodBareDeque); }, true},
    };
    return table;
}

std::vector<Table> Tables(Effort effort) {
    const bool isLong = effort == Effort::kAll;
    const std::size_t tasks = Scaled(effort, 30'000);
    const std::vector<std::size_t> crowds =
        isLong ? std::vector<std::size_t>{1, 4, 16, 64} : std::vector<std::size_t>{1, 4};
    std::vector<Table> tables;
    for (const std::size_t producers : crowds) {
        tables.push_back(PeersTable("producers_" + std::to_string(producers), {tasks, producers, 8}));
    }
    if (isLong) {
        for (const std::size_t many : {1'000, 10'000, 100'000, 1'000'000}) {
            tables.push_back(PeersTable("tasks_" + std::to_string(many), {many, 1, 8}));
        }
        tables.push_back(WorkersTable(tasks));
    }
    return tables;
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "fixed_pool_throughput",
        "What does an empty task cost on a pool that never grows?",
        {
            "fixed pool: the global pool's class with a fixed number of threads. The peers have as many.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
