// What memory does a queued task take?
//
// Linked to the library's objects: the pool class is not exported.
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "bench/harness/event.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/private_bytes.h"
#include "bench/harness/question.h"
#include "bench/peers/bare_deque_pool.h"
#include "bench/peers/empty_task.h"
#include "bench/peers/system_pool.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/jobs/job.h"
#include "concurrency/jobs/job_state.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/policies.h"
#include "concurrency/threadpool/thread_pool.h"
#include "tests/support/child_process.h"

namespace Zarvo::Bench {

namespace {

using FixedPool = Orvane::Internal::ThreadPool<Orvane::Internal::ComPolicyMTA>;
using Orvane::Internal::Task;

constexpr std::size_t kWorkers = 8;
constexpr const char* kMemory = "bytes per task";

// What keeps every worker of a pool from taking what is queued.
class Roadblock {
  public:
    // `submit(block)` submits a task that calls block.Hold(); returns when all workers are held.
    template <typename Submit>
    explicit Roadblock(Submit submit) {
        for (std::size_t i = 0; i < kWorkers; ++i) {
            submit(*this);
        }
        m_allHeld.WaitForLast();
    }
    Roadblock(const Roadblock&) = delete;
    Roadblock& operator=(const Roadblock&) = delete;

    void Hold() noexcept {
        m_allHeld.Arrive();
        m_open.Wait();
    }

  private:
    FinishLine m_allHeld{kWorkers};
    Event m_open{Event::Reset::kNever};
};

void HoldAt(void* block) {
    static_cast<Roadblock*>(block)->Hold();
}

Task HoldingTask(Roadblock& block) {
    return Orvane::MakeTask(L"Held", [&block] { block.Hold(); });
}

// Prints what this process has more for each of `count` tasks that nobody takes.
//
// On purpose ends the process: its workers are held for ever.
template <typename Submit>
[[noreturn]] void PrintGrowth(std::size_t count, Submit submit) {
    FinishLine never(count);
    const std::size_t before = PrivateBytes();
    for (std::size_t i = 0; i < count; ++i) {
        submit(never);
    }
    const std::size_t growth = PrivateBytes() - before;
    std::printf("%.3f\n", static_cast<double>(growth) / static_cast<double>(count));
    std::fflush(stdout);
    TerminateProcess(GetCurrentProcess(), 0);
    std::terminate();
}

[[noreturn]] void GrowFixedPool(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    const FixedPool pool(kWorkers);
    const Roadblock block([&pool](Roadblock& held) { pool.Core()->Queue(HoldingTask(held)); });
    PrintGrowth(count, [&pool](FinishLine& finish) { pool.Core()->Queue(EmptyTask(finish)); });
}

[[noreturn]] void GrowFixedPoolByJobs(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    const FixedPool pool(kWorkers);
    const Roadblock block([&pool](Roadblock& held) { pool.Core()->Queue(HoldingTask(held)); });
    std::vector<Orvane::Job<void>> jobs;
    jobs.reserve(count);
    PrintGrowth(count, [&](FinishLine& finish) {
        jobs.emplace_back(Orvane::Internal::Build(L"Empty", [&finish] { finish.Arrive(); }));
        const auto& job = jobs.back().Ref().State();
        job->Enlist();
        pool.Core()->Queue(Task(L"Empty", job));
    });
}

[[noreturn]] void GrowSystemPool(std::size_t count) {
    SystemPool pool(kWorkers);
    const Roadblock block([&pool](Roadblock& held) { pool.Submit<HoldAt>(&held); });
    PrintGrowth(count, [&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
}

[[noreturn]] void GrowBareDeque(std::size_t count) {
    BareDequePool pool(kWorkers);
    const Roadblock block([&pool](Roadblock& held) { pool.Submit(HoldAt, &held); });
    PrintGrowth(count, [&pool](FinishLine& finish) { SubmitEmptyTask(pool, finish); });
}

struct Grower {
    const char* name;
    void (*grow)(std::size_t count);
    bool isPeer;
};

constexpr Grower kGrowers[] = {
    {"fixed pool", GrowFixedPool, false},
    {"fixed pool, Job", GrowFixedPoolByJobs, false},
    {"system pool", GrowSystemPool, true},
    {"bare deque", GrowBareDeque, true},
};

// This program is its own child: queued_tasks_bench --grow NAME COUNT.
constexpr std::string_view kGrow = "--grow";

void GrowIfAsked(int argc, char** argv) {
    for (const Grower& grower : kGrowers) {
        if (argc == 4 && argv[1] == kGrow && argv[2] == std::string_view(grower.name)) {
            grower.grow(std::stoul(argv[3]));
        }
    }
}

// In a process of its own: what the heap and the library keep of the tasks of one round would serve the next.
Figures Memory(const char* name, std::size_t count) {
    const auto limit = std::chrono::minutes(5);
    const Test::ChildResult child =
        Test::RunChild("queued_tasks_bench", {std::string(kGrow), name, std::to_string(count)}, {}, limit);
    if (child.exitCode != 0) {
        throw std::runtime_error("the process that queues the tasks failed: " + child.standardError);
    }
    return {{kMemory, std::stod(child.standardOutput)}};
}

Table MemoryTable(std::size_t count) {
    const std::string many = std::to_string(count);
    Table table{
        "memory_" + many, "private bytes of a process for each of " + many + " queued tasks", {{kMemory, 0, true}}, {}};
    for (const Grower& grower : kGrowers) {
        table.subjects.push_back(
            {grower.name, [name = grower.name, count] { return Memory(name, count); }, grower.isPeer});
    }
    return table;
}

std::vector<Table> Tables(Effort effort) {
    return {MemoryTable(Scaled(effort, 1'000'000))};
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    GrowIfAsked(argc, argv);
    const Question question{
        "queued_tasks",
        "What memory does a queued task take?",
        {
            "Behind 8 workers that are held: of a fixed pool of the library's, of one of the system's, of the bare "
            "deque.",
            "The tasks are empty, so what a program would have to keep for a callback of the system's is not counted.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
