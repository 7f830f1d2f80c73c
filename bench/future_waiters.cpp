// How long after a future is fulfilled do all threads run again that wait for it, the more they are?
#include <algorithm>
#include <cstddef>
#include <future>
#include <latch>
#include <memory>
#include <string>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/thread.h"

namespace Zarvo::Bench {

namespace {

// Microseconds from `fulfil()` until the last of `waiters` threads has returned from `wait()`.
template <typename Wait, typename Fulfil>
double UntilAllRun(std::size_t waiters, Wait wait, Fulfil fulfil) {
    FinishLine awake(waiters);
    std::latch begun(static_cast<std::ptrdiff_t>(waiters));
    std::vector<Test::Thread> threads;
    for (std::size_t i = 0; i < waiters; ++i) {
        threads.emplace_back([&] {
            begun.count_down();
            wait();
            awake.Arrive();
        });
    }
    begun.wait();
    Sleep(static_cast<DWORD>(10 + waiters / 10));  // long enough for all of them to be asleep
    const auto start = CounterClock::now();
    fulfil();
    return Microseconds(awake.WaitForLast() - start);
}

// The future of a task, which runs on this thread.
double WaitForFuture(std::size_t waiters) {
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> future;
    Orvane::Internal::Task task = Orvane::MakeTask(L"Awaited", [] {}, future);
    return UntilAllRun(waiters, [&future] { future->GetValue(); }, [&task] { task(); });
}

double WaitForSharedFuture(std::size_t waiters) {
    std::packaged_task<void()> task([] {});
    const std::shared_future<void> future = task.get_future().share();
    return UntilAllRun(waiters, [future] { future.get(); }, [&task] { task(); });
}

double WaitForEvent(std::size_t waiters) {
    Event event(Event::Reset::kNever);
    return UntilAllRun(waiters, [&event] { event.Wait(); }, [&event] { event.Set(); });
}

std::string Heading(std::size_t waiters) {
    return std::to_string(waiters) + " waiting, us";
}

// The fewer there are, the more often: the threads are made anew each time.
Figures ForEach(const std::vector<std::size_t>& crowds, double (*untilAllRun)(std::size_t waiters)) {
    const Orvane::ConcurrencyLifetime lifetime;
    Figures figures;
    for (const std::size_t waiters : crowds) {
        Samples samples;
        for (std::size_t i = 0; i < std::max<std::size_t>(20 / waiters, 1); ++i) {
            samples.Add(untilAllRun(waiters));
        }
        figures[Heading(waiters)] = samples.Median();
    }
    return figures;
}

std::vector<Table> Tables(Effort effort) {
    std::vector<std::size_t> crowds{1, 10, 100};
    if (effort == Effort::kAll) {
        crowds.push_back(1'000);
    }
    Table table{"waiters", "from fulfilling until the last of so many waiting threads runs", {}, {}};
    for (std::size_t& waiters : crowds) {
        waiters = Scaled(effort, waiters);
        table.columns.push_back({Heading(waiters), 0, true});
    }
    table.subjects = {
        {"future of a task", [=] { return ForEach(crowds, WaitForFuture); }},
        {"std::shared_future", [=] { return ForEach(crowds, WaitForSharedFuture); }, true},
        {"event", [=] { return ForEach(crowds, WaitForEvent); }, true},
    };
    return {table};
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "future_waiters",
        "How long after a future is fulfilled do all threads run again that wait for it?",
        {
            "future of a task: FutureImpl<void>::GetValue. std::shared_future: of a std::packaged_task.",
            "event: WaitForSingleObject on an event that stays signalled. Running the empty task is part of the time.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
