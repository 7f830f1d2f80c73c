// What do the mutexes cost: alone, in a crowd, when they are handed over, and when a waiter is cancelled?
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "bench/peers/system_mutexes.h"
#include "bench/peers/ticket_lock.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/thread.h"

namespace Zarvo::Bench {

namespace {

using std::chrono::milliseconds;

constexpr const char* kTurn = "ns a turn";
constexpr const char* kMedian = "p50 us";
constexpr const char* kTail = "p99 us";

std::wstring NameOf(const wchar_t* what) {
    return L"mutex_cost_" + std::to_wstring(GetCurrentProcessId()) + what;
}

class NamedKernelMutex : public KernelMutex {
  public:
    NamedKernelMutex() : KernelMutex(NameOf(L"_kernel")) {}
};

class NamedInterprocessMutex : public Orvane::interprocess_mutex {
  public:
    NamedInterprocessMutex() : interprocess_mutex(NameOf(L"_interprocess").c_str()) {}
};

template <typename Mutex>
Figures Uncontended(std::size_t turns) {
    Mutex mutex;
    return {{kTurn, NanosecondsPerCall(turns, [&mutex] {
                 mutex.lock();
                 mutex.unlock();
             })}};
}

// Several threads that do nothing but take turns. On purpose a turn ends when all the others stand in line: otherwise
// one thread has thousands of cheap turns alone whenever the system lets the others stand still outside of the line.
template <typename Mutex>
Figures Contended(milliseconds time, std::size_t threads) {
    Mutex mutex;
    std::atomic<std::size_t> inLine = 0;
    std::atomic<std::size_t> turns = 0;
    std::atomic<bool> isOver = false;
    const auto takeTurns = [&] {
        while (!isOver) {
            ++inLine;
            const std::lock_guard lock(mutex);
            --inLine;
            while (inLine < threads - 1 && !isOver) {
                SwitchToThread();
            }
            ++turns;
        }
    };
    std::vector<Test::Thread> crowd;
    for (std::size_t i = 0; i < threads; ++i) {
        crowd.emplace_back(takeTurns);
    }
    while (turns == 0) {
        Sleep(1);
    }
    const std::size_t before = turns;
    const auto start = CounterClock::now();
    std::this_thread::sleep_for(time);
    const std::size_t after = turns;
    const auto end = CounterClock::now();
    isOver = true;
    return {{kTurn, static_cast<double>((end - start).count()) /
                        static_cast<double>(std::max<std::size_t>(after - before, 1))}};
}

// `block(begins, isAwake)` runs on a thread of its own, calls `begins()` right before it blocks and `isAwake()` as soon
// as it runs again. Meanwhile the calling thread wakes it with `wake()`.
template <typename Prepare, typename Block, typename Wake>
Figures TimeToWake(std::size_t count, Prepare prepare, Block block, Wake wake) {
    Event begin;
    Event begun;
    Event ended;
    std::optional<FinishLine> awake;
    Test::Thread blocking([&] {
        for (std::size_t i = 0; i < count; ++i) {
            begin.Wait();
            block([&begun] { begun.Set(); }, [&awake] { awake->Arrive(); });
            ended.Set();
        }
    });
    Samples samples;
    for (std::size_t i = 0; i < count; ++i) {
        awake.emplace(1);
        prepare();
        begin.Set();
        begun.Wait();
        Sleep(1);  // long enough for it to be asleep
        const auto start = CounterClock::now();
        wake();
        samples.Add(Microseconds(awake->WaitForLast() - start));
        ended.Wait();
    }
    return {{kMedian, samples.Percentile(50)}, {kTail, samples.Percentile(99)}};
}

template <typename Mutex>
Figures HandOver(std::size_t count) {
    Mutex mutex;
    const auto block = [&mutex](auto begins, auto isAwake) {
        begins();
        const std::lock_guard lock(mutex);
        isAwake();
    };
    return TimeToWake(count, [&] { mutex.lock(); }, block, [&] { mutex.unlock(); });
}

// From the request to the handler of CancelRequestedException in the task.
template <typename Mutex>
Figures CancelToThrow(std::size_t count) {
    const Orvane::ConcurrencyLifetime lifetime;
    Mutex mutex;
    mutex.lock();
    Orvane::Internal::Task task;
    const auto block = [&](auto begins, auto isAwake) {
        task = Orvane::MakeTask(L"Cancelled", [&mutex, begins, isAwake] {
            try {
                begins();
                mutex.lock();
            } catch (const Orvane::CancelRequestedException&) {
                isAwake();
                throw;
            }
        });
        task();
    };
    const Figures figures = TimeToWake(count, [] {}, block, [&task] { task.Cancel(); });
    mutex.unlock();
    return figures;
}

// From the notification to `isAwake`, which `leave(isAwake)` calls.
template <typename Condition, typename Mutex, typename Leave>
Figures NotifyToWake(std::size_t count, Leave leave) {
    Mutex mutex;
    Condition condition;
    bool isRequested = false;
    const auto block = [&](auto begins, auto isAwake) {
        begins();
        std::unique_lock lock(mutex);
        condition.wait(lock, [&] { return isRequested; });
        leave(isAwake);
    };
    const auto wake = [&] {
        const std::lock_guard lock(mutex);
        isRequested = true;
        condition.notify_all();
    };
    return TimeToWake(count, [&] { isRequested = false; }, block, wake);
}

constexpr auto kReturn = [](auto isAwake) { isAwake(); };

constexpr auto kThrow = [](auto isAwake) {
    try {
        throw Orvane::CancelRequestedException();
    } catch (const Orvane::CancelRequestedException&) {
        isAwake();
    }
};

// The same measurement of each mutex, for so long or so often; those that ask the system each time, for `slow`.
template <template <typename> typename MeasureOf, typename Amount>
std::vector<Subject> EveryMutex(Amount fast, Amount slow) {
    return {
        {"checked_mutex", MeasureOf<Orvane::checked_mutex>{fast}},
        {"fifo_mutex", MeasureOf<Orvane::fifo_mutex>{fast}},
        {"interprocess_mutex", MeasureOf<NamedInterprocessMutex>{slow}},
        {"std::mutex", MeasureOf<std::mutex>{fast}, true},
        {"std::recursive_mutex", MeasureOf<std::recursive_mutex>{fast}},
        {"std::timed_mutex", MeasureOf<std::timed_mutex>{fast}},
        {"CRITICAL_SECTION", MeasureOf<SystemCriticalSection>{fast}, true},
        {"SRWLOCK", MeasureOf<SlimLock>{fast}},
        {"ticket lock", MeasureOf<TicketLock>{fast}, true},
        {"kernel mutex", MeasureOf<NamedKernelMutex>{slow}, true},
    };
}

template <typename Mutex>
struct MeasureUncontended {
    std::size_t turns;
    Figures operator()() const { return Uncontended<Mutex>(turns); }
};

template <std::size_t kThreads>
struct MeasureContended {
    template <typename Mutex>
    struct Of {
        milliseconds time;
        Figures operator()() const { return Contended<Mutex>(time, kThreads); }
    };
};

template <typename Mutex>
struct MeasureHandOver {
    std::size_t count;
    Figures operator()() const { return HandOver<Mutex>(count); }
};

std::vector<Table> Tables(Effort effort) {
    const auto scaled = [effort](std::size_t usual) { return Scaled(effort, usual); };
    const std::size_t wakes = scaled(effort == Effort::kAll ? 2'000 : 200);
    const milliseconds crowded(scaled(100));
    const std::vector<Column> wakeColumns{{kMedian, 1, true}, {kTail, 1, true}};
    const std::vector<Column> turnColumns{{kTurn, 1, true}};
    return {
        {"uncontended", "lock and unlock, one thread", turnColumns,
         EveryMutex<MeasureUncontended>(scaled(500'000), scaled(2'000))},
        {"contended_4", "a turn of 4 threads, with all the others in line", turnColumns,
         EveryMutex<MeasureContended<4>::Of>(crowded, crowded)},
        {"contended_16", "a turn of 16 threads, with all the others in line", turnColumns,
         EveryMutex<MeasureContended<16>::Of>(crowded, crowded)},
        {"hand_over", "unlock to the return of a lock that waited for it", wakeColumns,
         EveryMutex<MeasureHandOver>(wakes, wakes)},
        {"cancel_to_throw",
         "request to the handler in the task that waited",
         wakeColumns,
         {
             {"fifo_mutex", [=] { return CancelToThrow<Orvane::fifo_mutex>(wakes); }},
             {"interprocess_mutex", [=] { return CancelToThrow<Orvane::interprocess_mutex>(wakes); }},
             {"condition_variable", [=] { return NotifyToWake<std::condition_variable, std::mutex>(wakes, kReturn); },
              true},
             {"condition_variable_any",
              [=] { return NotifyToWake<std::condition_variable_any, std::recursive_mutex>(wakes, kReturn); }, true},
             {"condition_variable_any, throw",
              [=] { return NotifyToWake<std::condition_variable_any, std::recursive_mutex>(wakes, kThrow); }, true},
         }},
    };
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "mutex_cost",
        "What do the mutexes cost?",
        {
            "fifo_mutex in a crowd hands over at every turn, to the thread that has waited longest: each turn is a "
            "switch of threads. So does the ticket lock. The others let the thread that runs go on.",
            "cancel_to_throw: the request is Task::Cancel; the times of the mutexes include throwing and catching. The "
            "conditions are notified under their mutex; in the last row their waiter throws and catches, too.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
