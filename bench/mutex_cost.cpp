// What do the mutexes cost: alone, in a crowd, when they are handed over, and when a waiter is cancelled?
#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <latch>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/sync/checked_mutex.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/sync/interprocess_mutex.h"
#include "concurrency/tasks/make_task.h"

namespace Zarvo::Bench {

namespace {

constexpr const char* kTurn = "ns a turn";
constexpr const char* kMedian = "p50 us";
constexpr const char* kTail = "p99 us";

class SystemCriticalSection {
  public:
    SystemCriticalSection() { InitializeCriticalSection(&m_section); }
    ~SystemCriticalSection() { DeleteCriticalSection(&m_section); }
    SystemCriticalSection(const SystemCriticalSection&) = delete;
    SystemCriticalSection& operator=(const SystemCriticalSection&) = delete;

    void lock() { EnterCriticalSection(&m_section); }
    void unlock() { LeaveCriticalSection(&m_section); }

  private:
    CRITICAL_SECTION m_section;
};

class SlimLock {
  public:
    void lock() { AcquireSRWLockExclusive(&m_lock); }
    void unlock() { ReleaseSRWLockExclusive(&m_lock); }

  private:
    SRWLOCK m_lock = SRWLOCK_INIT;
};

std::wstring NameOf(const wchar_t* what) {
    return L"mutex_cost_" + std::to_wstring(GetCurrentProcessId()) + what;
}

class KernelMutex {
  public:
    KernelMutex() : m_handle(CreateMutexW(nullptr, FALSE, NameOf(L"_kernel").c_str())) {
        if (m_handle == nullptr) {
            throw std::system_error(static_cast<int>(GetLastError()), std::system_category(), "CreateMutexW");
        }
    }
    ~KernelMutex() { CloseHandle(m_handle); }
    KernelMutex(const KernelMutex&) = delete;
    KernelMutex& operator=(const KernelMutex&) = delete;

    void lock() { WaitForSingleObject(m_handle, INFINITE); }
    void unlock() { ReleaseMutex(m_handle); }

  private:
    const HANDLE m_handle;
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

// Several threads that do nothing but take the mutex for a moment, again and again.
template <typename Mutex>
Figures Contended(std::size_t turns, std::size_t threads) {
    Mutex mutex;
    std::size_t counter = 0;
    std::latch gate(1);
    const std::size_t share = std::max<std::size_t>(turns / threads, 1);
    FinishLine finish(threads);
    std::vector<std::jthread> crowd;
    for (std::size_t i = 0; i < threads; ++i) {
        crowd.emplace_back([&] {
            gate.wait();
            for (std::size_t turn = 0; turn < share; ++turn) {
                const std::lock_guard lock(mutex);
                ++counter;
            }
            finish.Arrive();
        });
    }
    const auto start = CounterClock::now();
    gate.count_down();
    const auto end = finish.WaitForLast();
    return {{kTurn, static_cast<double>((end - start).count()) / static_cast<double>(share * threads)}};
}

// `block(isAwake)` runs on a thread of its own, blocks, and calls `isAwake()` as soon as it runs again. Meanwhile the
// calling thread wakes it with `wake()`.
template <typename Prepare, typename Block, typename Wake>
Figures TimeToWake(std::size_t count, Prepare prepare, Block block, Wake wake) {
    Event begin;
    Event begun;
    Event ended;
    std::optional<FinishLine> awake;
    std::jthread blocking([&] {
        for (std::size_t i = 0; i < count; ++i) {
            begin.Wait();
            begun.Set();
            block([&awake] { awake->Arrive(); });
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
    const auto block = [&mutex](auto isAwake) {
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
    const auto block = [&](auto isAwake) {
        task = Orvane::MakeTask(L"Cancelled", [&mutex, isAwake] {
            try {
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
    const auto block = [&](auto isAwake) {
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

// The same measurement of each mutex. Those that ask the system each time, and those that switch threads each time, are
// measured with fewer turns.
template <template <typename> typename MeasureOf>
std::vector<Subject> EveryMutex(std::size_t fast, std::size_t handed, std::size_t slow) {
    return {
        {"checked_mutex", MeasureOf<Orvane::checked_mutex>{fast}},
        {"fifo_mutex", MeasureOf<Orvane::fifo_mutex>{handed}},
        {"interprocess_mutex", MeasureOf<NamedInterprocessMutex>{slow}},
        {"std::mutex", MeasureOf<std::mutex>{fast}, true},
        {"std::recursive_mutex", MeasureOf<std::recursive_mutex>{fast}},
        {"std::timed_mutex", MeasureOf<std::timed_mutex>{fast}},
        {"CRITICAL_SECTION", MeasureOf<SystemCriticalSection>{fast}, true},
        {"SRWLOCK", MeasureOf<SlimLock>{fast}},
        {"kernel mutex", MeasureOf<KernelMutex>{slow}, true},
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
        std::size_t turns;
        Figures operator()() const { return Contended<Mutex>(turns, kThreads); }
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
    const std::vector<Column> wakeColumns{{kMedian, 1, true}, {kTail, 1, true}};
    const std::vector<Column> turnColumns{{kTurn, 1, true}};
    return {
        {"uncontended", "lock and unlock, one thread", turnColumns,
         EveryMutex<MeasureUncontended>(scaled(500'000), scaled(500'000), scaled(2'000))},
        {"contended_4", "lock, count, unlock, 4 threads", turnColumns,
         EveryMutex<MeasureContended<4>::Of>(scaled(200'000), scaled(2'000), scaled(2'000))},
        {"contended_16", "lock, count, unlock, 16 threads", turnColumns,
         EveryMutex<MeasureContended<16>::Of>(scaled(200'000), scaled(800), scaled(800))},
        {"hand_over", "unlock to the return of a lock that waited for it", wakeColumns,
         EveryMutex<MeasureHandOver>(wakes, wakes, wakes)},
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
            "switch of threads. The others let the thread that runs go on.",
            "cancel_to_throw: the request is Task::Cancel; the times of the mutexes include throwing and catching. The "
            "conditions are notified under their mutex; in the last row their waiter throws and catches, too.",
        },
    };
    return Answer(argc, argv, question, Tables);
}
