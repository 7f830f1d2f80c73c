#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <type_traits>
#include <utility>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_exceptions.h"
#include "concurrency/cancellation/wait_protocol.h"

namespace Orvane::Internal {

// Wakes a task out of a wait on a condition of its own, and the cancellable wait made of it.
//
// Threads: creation and waits on the task's thread; Notify() on the thread that cancels.
// Recursion: Notify() locks the mutex on the thread that cancels. It must be recursive only if a thread cancels while it
//     holds it.
// Cancellation: the wait is a cancellation point, before and after it waits.
// Errors: std::bad_alloc, std::system_error.
// Memory: what the mutex orders. A request takes it before it wakes the waiter.
// Lifetime: mutex and condition are the caller's. A request may still use them after the wait has ended: where they may be
//     destroyed by then, pass what keeps them alive.
template <typename Mutex, typename ConditionVariable = std::condition_variable_any>
class ConditionNotificationAdapter : public AbstractCancelNotifier {
  public:
    // Registers with the calling thread's run, if there is one, in place of any other notifier.
    [[nodiscard]] static std::shared_ptr<AbstractCancelNotifier> CreateInstance(
        Mutex& mutex, ConditionVariable& condition, std::shared_ptr<const void> keepAlive = nullptr) {
        return RegisterWithCurrentRun(std::shared_ptr<AbstractCancelNotifier>(
            new ConditionNotificationAdapter(mutex, condition, std::move(keepAlive))));
    }

    // Without a registration: see CreateInstance().
    ConditionNotificationAdapter(Mutex& mutex, ConditionVariable& condition,
                                 std::shared_ptr<const void> keepAlive = nullptr)
        : m_mutex(&mutex), m_condition(&condition), m_keepAlive(std::move(keepAlive)) {}

    ~ConditionNotificationAdapter() override = default;

    // Sets the flag under the mutex and notifies the condition.
    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override {
        lock.unlock();
        const std::lock_guard own(*m_mutex);
        std::atomic_ref(requested).store(true);
        m_condition->notify_all();
    }

  private:
    Mutex* m_mutex;
    ConditionVariable* m_condition;
    std::shared_ptr<const void> m_keepAlive;
};

// Not for callers.
//
// One wait on `condition` with a notifier registered, noted as a wait of `kind` for `object`. The caller owns `mutex`; `block`
// waits with that very lock and returns whether it came back in time.
template <typename Mutex, typename ConditionVariable, typename Block>
[[nodiscard]] WaitResult WaitOnCondition(WaitKind kind, const void* object, Mutex& mutex, ConditionVariable& condition,
                                         std::shared_ptr<const void> keepAlive, Block block) {
    const WaitingRun run = CurrentRun();
    const auto notifier = run.Register(std::make_shared<ConditionNotificationAdapter<Mutex, ConditionVariable>>(
        mutex, condition, std::move(keepAlive)));
    return run.WaitUnlessCancelled(kind, object, std::move(block));
}

// One cancellable wait on `condition`. The caller owns `mutex`; `wait()` waits with that very lock, and what it returns is
// returned. Any wake-up ends it: the caller loops around its own condition of progress.
//
//     std::unique_lock lock(mutex);
//     while (queue.empty()) {
//         CancellableConditionWait(mutex, condition, nullptr, [&] { condition.wait(lock); });
//     }
template <typename Mutex, typename Wait>
auto CancellableConditionWait(Mutex& mutex, std::condition_variable_any& condition,
                              std::shared_ptr<const void> keepAlive, Wait wait) {
    using Result = std::invoke_result_t<Wait&>;
    if constexpr (std::is_void_v<Result>) {
        const auto block = [&] {
            wait();
            return true;
        };
        if (WaitOnCondition(WaitKind::Condition, &condition, mutex, condition, std::move(keepAlive), block) ==
            WaitResult::Cancelled) {
            ThrowCancelRequested();
        }
    } else {
        std::optional<std::decay_t<Result>> result;
        const auto block = [&] {
            result.emplace(wait());
            return true;
        };
        if (WaitOnCondition(WaitKind::Condition, &condition, mutex, condition, std::move(keepAlive), block) ==
            WaitResult::Cancelled) {
            ThrowCancelRequested();
        }
        return std::move(*result);
    }
}

}  // namespace Orvane::Internal
