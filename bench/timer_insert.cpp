// What does it cost to insert a task, the more tasks are scheduled already?
#include <cstddef>
#include <cstdint>
#include <functional>
#include <queue>
#include <random>
#include <string>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/question.h"
#include "bench/harness/wall_time.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/scheduler/global_scheduler.h"
#include "concurrency/tasks/make_task.h"

namespace Zarvo::Bench {

namespace {

using Orvane::Duration;
using Orvane::TimePoint;
using Orvane::Internal::GlobalScheduler;
using Orvane::Internal::ScheduledTask;

// What the scheduler's queue is at heart, without anybody who waits for it.
class BareHeap {
  public:
    void Push(const ScheduledTask& task) {
        AcquireSRWLockExclusive(&m_lock);
        m_heap.push(task);
        ReleaseSRWLockExclusive(&m_lock);
    }

  private:
    SRWLOCK m_lock = SRWLOCK_INIT;
    std::priority_queue<ScheduledTask, std::vector<ScheduledTask>, std::greater<>> m_heap;
};

using Starts = std::vector<TimePoint>;

// All of them more than a day away.
Starts InAnyOrder(std::size_t count) {
    std::mt19937_64 random(count);
    const TimePoint first = WallNow() + std::chrono::hours(30);
    Starts starts;
    for (std::size_t i = 0; i < count; ++i) {
        starts.push_back(first + Duration(static_cast<std::int64_t>(random() >> 24)));
    }
    return starts;
}

// Each is the new top of the heap: the longest way.
Starts EachEarlier(std::size_t count) {
    const TimePoint first = WallNow() + std::chrono::hours(30);
    Starts starts;
    for (std::size_t i = 0; i < count; ++i) {
        starts.push_back(first + Duration(static_cast<std::int64_t>(count - i)));
    }
    return starts;
}

using MakeStarts = Starts (*)(std::size_t count);

// One task for all: what it costs to build one is another question.
template <typename Insert>
double NanosecondsPerInsert(const Starts& starts, Insert insert) {
    const auto task = Orvane::MakeTask(L"Never", [] {});
    std::size_t next = 0;
    return NanosecondsPerCall(starts.size(), [&] { insert(ScheduledTask(task, starts[next++], Duration::zero())); });
}

double IntoScheduler(const Starts& starts) {
    const Orvane::ConcurrencyLifetime lifetime;
    GlobalScheduler::Insert(ScheduledTask(Orvane::MakeTask(L"First", [] {}), TimePoint::max(), Duration::zero()));
    return NanosecondsPerInsert(starts, GlobalScheduler::Insert);
}

double IntoBareHeap(const Starts& starts) {
    BareHeap heap;
    return NanosecondsPerInsert(starts, [&heap](const ScheduledTask& task) { heap.Push(task); });
}

std::string Heading(std::size_t count) {
    return std::to_string(count) + ", ns each";
}

Table InsertTable(const std::string& name, const std::string& title, MakeStarts makeStarts,
                  const std::vector<std::size_t>& counts) {
    const auto measure = [=](double (*into)(const Starts& starts)) {
        Figures figures;
        for (const std::size_t count : counts) {
            figures[Heading(count)] = into(makeStarts(count));
        }
        return figures;
    };
    Table table{name, title, {}, {}};
    for (const std::size_t count : counts) {
        table.columns.push_back({Heading(count), 0, true});
    }
    table.subjects = {
        {"scheduler", [=] { return measure(IntoScheduler); }},
        {"bare heap", [=] { return measure(IntoBareHeap); }, true},
    };
    return table;
}

std::vector<Table> Tables(Effort effort) {
    std::vector<std::size_t> counts{1'000, 10'000, 100'000, 1'000'000};
    for (std::size_t& count : counts) {
        count = Scaled(effort, count);
    }
    return {
        InsertTable("insert_in_any_order", "so many tasks inserted, their starts in any order", InAnyOrder, counts),
        InsertTable("insert_each_earlier", "so many tasks inserted, each due before all others", EachEarlier, counts),
    };
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "timer_insert",
        "What does it cost to insert a task, the more tasks are scheduled already?",
        {
            "bare heap: std::priority_queue of the same tasks, under an SRWLOCK.",
            "No task is due while it is measured. The scheduler's thread is woken by each insert that is due before "
            "all others.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
