// Notifiers of the tests' own, and what a notifier is called with.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {

// Calls a function instead of waking somebody.
class CallbackNotifier : public Orvane::Internal::AbstractCancelNotifier {
  public:
    using Callback = std::function<void(std::unique_lock<std::recursive_mutex>& lock, bool& requested)>;

    explicit CallbackNotifier(Callback callback) : m_callback(std::move(callback)) {}
    ~CallbackNotifier() override = default;

    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool& requested) override { m_callback(lock, requested); }

  private:
    Callback m_callback;
};

// Counts its calls and unlocks, as every notifier should.
class CountingNotifier : public Orvane::Internal::AbstractCancelNotifier {
  public:
    ~CountingNotifier() override = default;

    void Notify(std::unique_lock<std::recursive_mutex>& lock, bool&) override {
        ++m_count;
        lock.unlock();
    }

    int Count() const { return m_count; }

  private:
    int m_count = 0;
};

// Whether a thread other than the caller's could take the mutex now.
template <typename Mutex>
bool IsFree(Mutex& mutex) {
    bool free = false;
    Thread([&] {
        free = mutex.try_lock();
        if (free) {
            mutex.unlock();
        }
    }).join();
    return free;
}

// A cancellation object's mutex and flag, as a request hands them to a notifier.
struct Request {
    std::recursive_mutex mutex;
    std::unique_lock<std::recursive_mutex> lock{mutex};
    bool requested = false;
};

}  // namespace Zarvo::Test
