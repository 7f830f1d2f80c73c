// What do figures cost, those who ask for them and those who are counted?
//
// Linked to the library's objects: what is measured is not exported.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/question.h"
#include "concurrency/cancellation/run.h"
#include "concurrency/figures/figures.h"
#include "concurrency/jobs/run_snapshot.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/make_task.h"
#include "concurrency/tasks/run_counts.h"
#include "concurrency/threadpool/thread_pool.h"

namespace Zarvo::Bench {

namespace {

using namespace Orvane::Internal;

constexpr const char* kPoolMutex = "pool's mutex, ns";
constexpr const char* kRunsCopied = "runs copied, us";
constexpr const char* kAll = "GetFigures, us";
constexpr const char* kCost = "ns";

// While so many tasks run, each on a worker of its own.
Figures Ask(std::size_t running, std::size_t times) {
    const Orvane::ConcurrencyLifetime lifetime;
    const ThreadPool<NullPolicy> pool(running);
    FinishLine allRun(running);
    Event mayEnd(Event::Reset::kNever);
    for (std::size_t i = 0; i < running; ++i) {
        const std::wstring name = L"Held " + std::to_wstring(i);
        pool.Core()->Queue(Orvane::MakeTask(name.c_str(), [&] {
            allRun.Arrive();
            mayEnd.Wait();
        }));
    }
    allRun.WaitForLast();
    static_cast<void>(Orvane::GetFigures());  // the first call is dearer
    const double mutex = NanosecondsPerCall(1'000 * times, [&] { static_cast<void>(pool.Core()->GetLoad()); });
    const double runs = NanosecondsPerCall(times, [] {
        RunSnapshot snapshot;
        snapshot.CopyJobs();
        snapshot.CopyTasks();
    });
    const double all = NanosecondsPerCall(times, [] { static_cast<void>(Orvane::GetFigures()); });
    mayEnd.Set();
    return {{kPoolMutex, mutex}, {kRunsCopied, runs / 1'000}, {kAll, all / 1'000}};
}

Figures Count(std::size_t times) {
    RunTitle title;
    title.name = {L'F', L'e', L't', L'c', L'h', L' ', L'1', L'7'};
    const auto object = Run::Make();
    const Run& run = *Run::Of(object);
    return {{kCost, NanosecondsPerCall(times, [&] { CountRun(&title, run, RunEnd::Done); })}};
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t times = Scaled(effort, 100);
    const std::size_t many = Scaled(effort, 1'000);
    return {
        {"ask",
         "what a look at the figures takes; that at the pool holds its mutex for no longer",
         {{kPoolMutex, 0}, {kRunsCopied, 1}, {kAll, 0}},
         {
             {"1 running", [=] { return Ask(1, times); }},
             {std::to_string(many) + " running", [=] { return Ask(many, times); }},
         }},
        {"count",
         "what counting takes of each run, " + std::to_string(1'000 * times) + " times a round",
         {{kCost, 1}},
         {{"CountRun", [=] { return Count(1'000 * times); }}}},
    };
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "figures",
        "What do figures cost, those who ask for them and those who are counted?",
        {
            "Each running task has a worker of its own and a name of its own.",
            "pool's mutex: all that is read under it, its lock and unlock included.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
