// How long after a cancellation request does a blocked task run again?
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "bench/harness/counter_clock.h"
#include "bench/harness/event.h"
#include "bench/harness/finish_line.h"
#include "bench/harness/question.h"
#include "bench/harness/samples.h"
#include "bench/peers/bare_deque_pool.h"
#include "concurrency/cancellation/cancellable_waits.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/condition_notification_adapter.h"
#include "concurrency/lifetime/concurrency_lifetime.h"
#include "concurrency/sync/fifo_mutex.h"
#include "concurrency/tasks/make_task.h"

namespace Zarvo::Bench {

namespace {

using Orvane::Internal::Task;

constexpr const char* kMedian = "wake p50 us";
constexpr const char* kTail = "wake p99 us";
constexpr const char* kCall = "request p50 us";

// One thread that blocks, and the one that wakes it.
class WakeUps {
  public:
    // On the blocking thread, right before it blocks and as soon as it runs again.
    void BeginsToWait() noexcept { m_waiting.Set(); }
    void IsAwake() noexcept { m_awake->Arrive(); }

    // Blocks a thread with `start()`, wakes it with `request()` and waits for it with `end()`.
    template <typename Start, typename Request, typename End>
    void Measure(Start start, Request request, End end) {
        m_awake.emplace(1);
        start();
        m_waiting.Wait();
        Sleep(1);  // long enough for it to be asleep
        const auto requested = CounterClock::now();
        request();
        const auto returned = CounterClock::now();
        m_wake.Add(Microseconds(m_awake->WaitForLast() - requested));
        m_call.Add(Microseconds(returned - requested));
        end();
    }

    Figures Result() const {
        return {{kMedian, m_wake.Percentile(50)}, {kTail, m_wake.Percentile(99)}, {kCall, m_call.Percentile(50)}};
    }

  private:
    Event m_waiting;
    std::optional<FinishLine> m_awake;
    Samples m_wake;
    Samples m_call;
};

void RunTask(void* argument) {
    Task task = *static_cast<Task*>(argument);
    task();
}

// A task that blocks in `wait()` and is cancelled. It runs on one and the same thread, as the peers do: which of a pool's
// threads would take it, and on which processor that one slept, makes more difference than the wait does.
template <typename Wait>
Figures CancelTasks(std::size_t count, Wait wait) {
    const Orvane::ConcurrencyLifetime lifetime;
    WakeUps wakeUps;
    const auto work = [&wakeUps, &wait] {
        try {
            wakeUps.BeginsToWait();
            wait();
        } catch (const Orvane::CancelRequestedException&) {
            wakeUps.IsAwake();
            throw;
        }
    };
    BareDequePool thread(1);
    for (std::size_t i = 0; i < count; ++i) {
        Task task = Orvane::MakeTask(L"Blocked", work);
        wakeUps.Measure([&] { thread.Submit(&RunTask, &task); }, [&] { task.Cancel(); }, [&] { task.Wait(); });
    }
    return wakeUps.Result();
}

Figures CancelEventWaits(std::size_t count) {
    const Event never;
    return CancelTasks(count, [&never] { Orvane::CancellableWaitForSingleObject(never.Handle(), INFINITE); });
}

Figures CancelConditionWaits(std::size_t count) {
    std::recursive_mutex mutex;
    std::condition_variable_any condition;
    return CancelTasks(count, [&] {
        std::unique_lock lock(mutex);
        for (;;) {
            Orvane::Internal::CancellableConditionWait(mutex, condition, nullptr, [&] { condition.wait(lock); });
        }
    });
}

Figures CancelFifoWaits(std::size_t count) {
    Orvane::fifo_mutex mutex;
    const std::lock_guard owner(mutex);
    return CancelTasks(count, [&mutex] { mutex.lock(); });
}

Figures CancelSleeps(std::size_t count) {
    return CancelTasks(count, [] { Orvane::CancellableSleep(INFINITE); });
}

// Runs `wait()` on a thread of its own and ends it with `request()`, after `prepare()`, again and again.
template <typename Prepare, typename Wait, typename Request>
Figures WakeThread(std::size_t count, Prepare prepare, Wait wait, Request request) {
    struct Round {
        Wait wait;
        WakeUps wakeUps{};
        Event ended{};
    } round{std::move(wait)};
    const auto run = [](void* argument) {
        Round& own = *static_cast<Round*>(argument);
        own.wakeUps.BeginsToWait();
        own.wait();
        own.wakeUps.IsAwake();
        own.ended.Set();
    };
    BareDequePool thread(1);
    const auto start = [&] {
        prepare();
        thread.Submit(run, &round);
    };
    for (std::size_t i = 0; i < count; ++i) {
        round.wakeUps.Measure(start, request, [&round] { round.ended.Wait(); });
    }
    return round.wakeUps.Result();
}

Figures SetEvents(std::size_t count) {
    const Event never;
    Event cancel;
    const auto wait = [&] {
        const HANDLE handles[] = {never.Handle(), cancel.Handle()};
        WaitForMultipleObjects(2, handles, FALSE, INFINITE);
    };
    return WakeThread(count, [] {}, wait, [&] { cancel.Set(); });
}

void ThrowAndCatch() {
    try {
        throw Orvane::CancelRequestedException();
    } catch (const Orvane::CancelRequestedException&) {
        return;
    }
}

// `leave()` is what the waiter does as soon as it runs again.
template <typename Leave>
Figures RequestStops(std::size_t count, Leave leave) {
    std::mutex mutex;
    std::condition_variable_any condition;
    std::stop_source source;
    const auto wait = [&] {
        std::unique_lock lock(mutex);
        condition.wait(lock, source.get_token(), [] { return false; });
        leave();
    };
    return WakeThread(count, [&] { source = std::stop_source(); }, wait, [&] { source.request_stop(); });
}

std::vector<Table> Tables(Effort effort) {
    const std::size_t count = Scaled(effort, effort == Effort::kAll ? 1'000 : 250);
    return {{
        "cancel_to_wake",
        "request to the first instruction after the wait, " + std::to_string(count) + " times a round",
        {{kMedian, 1, true}, {kTail, 1, true}, {kCall, 1}},
        {
            {"event wait", [=] { return CancelEventWaits(count); }},
            {"condition wait", [=] { return CancelConditionWaits(count); }},
            {"fifo_mutex wait", [=] { return CancelFifoWaits(count); }},
            {"sleep", [=] { return CancelSleeps(count); }},
            {"SetEvent", [=] { return SetEvents(count); }, true},
            {"stop_token", [=] { return RequestStops(count, [] {}); }, true},
            {"stop_token, throw", [=] { return RequestStops(count, ThrowAndCatch); }, true},
        },
    }};
}

}  // namespace

}  // namespace Zarvo::Bench

int main(int argc, char** argv) {
    using namespace Zarvo::Bench;
    const Question question{
        "cancel_wakeup",
        "How long after a cancellation request does a blocked task run again?",
        {
            "event wait: CancellableWaitForSingleObject. condition wait: ConditionNotificationAdapter. sleep: "
            "CancellableSleep.",
            "Their times include throwing CancelRequestedException and catching it. Of the peers only 'stop_token, "
            "throw' does that.",
            "SetEvent: to a thread in WaitForMultipleObjects. stop_token: request_stop() to one in "
            "condition_variable_any::wait.",
            "request: how long the requesting thread is in Task::Cancel, SetEvent, request_stop().",
        },
    };
    return Answer(argc, argv, question, Tables);
}
