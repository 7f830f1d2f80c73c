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
    return WarmFlood(load, TrySubmitEmptyTask);
}

Table PeersTable(const char* name, const Load& load) {
    return {
        name,
        std::to_string(load.tasks) + " empty tasks, producers: " + std::to_string(load.producers),
        {{kCost, 0, true}},
        {
            {"8 fixed workers", [=] { return FloodFixedPool(load); }},
            {"TrySubmit", [=] { return FloodSystemPool(load); }, true},
            {"bare deque", [=] { return FloodBareDeque(load); }, true},
        },
    };
}

Table WorkersTable(std::size_t tasks) {
    Table table{
        "workers", std::to_string(tasks) + " empty tasks, one producer, more and more workers", {{kCost, 0, true}}, {}};
    for (const std::size_t workers : {8, 32, 128, 512}) {
        const Load load{tasks, 1, workers};
        table.subjects.push_back(
            {std::to_string(workers) + " fixed workers", [=] { return FloodFixedPool(load); }, workers == 8});
    }
    return table;
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t tasks = Scaled(effort, 30'000);
    std::vector<Table> tables{
        PeersTable("one_producer", {tasks, 1, 8}),
        PeersTable("four_producers", {tasks, 4, 8}),
    };
    if (effort == Effort::kAll) {
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
            "fixed workers: the global pool's class with a fixed number of threads. The bare deque has as many.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
