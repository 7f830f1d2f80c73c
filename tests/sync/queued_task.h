// A task on a thread of its own that waits in the queue of a fifo_mutex.
//
// Threads: as TaskThread.
// Lifetime: as TaskThread: the destructor cancels it and joins.
#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/eventually.h"
#include "tests/support/task_thread.h"
#include "tests/sync/others.h"

namespace Zarvo::Test {

// Tells when the calling thread's next wait has registered its notifier: a notifier that is dead already stands in its
// place until then, and its memory goes when it is replaced.
class NextRegistration {
  public:
    // On the thread that will wait.
    void Await() const {
        Orvane::Internal::GetCancellationObject()->RegisterNotifier(
            std::allocate_shared<Placeholder>(Allocator<Placeholder>{m_hasCome}));
    }

    bool HasCome() const { return *m_hasCome; }

  private:
    using Flag = std::shared_ptr<std::atomic<bool>>;

    struct Placeholder : Orvane::Internal::AbstractCancelNotifier {
        void Notify(std::unique_lock<std::recursive_mutex>&, bool&) override {}
    };

    template <typename T>
    struct Allocator {
        using value_type = T;

        explicit Allocator(Flag flag) : isFreed(std::move(flag)) {}
        template <typename Other>
        explicit(false) Allocator(const Allocator<Other>& other) : isFreed(other.isFreed) {}

        T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
        void deallocate(T* memory, std::size_t count) {
            const Flag flag = isFreed;
            std::allocator<T>().deallocate(memory, count);
            *flag = true;
        }
        bool operator==(const Allocator&) const = default;

        Flag isFreed;
    };

    Flag m_hasCome = std::make_shared<std::atomic<bool>>(false);
};

class QueuedTask {
  public:
    // `body` waits for `mutex`, which another thread owns, before it waits for anything else. When the constructor
    // returns, the task has its place in the queue and sleeps.
    QueuedTask(Orvane::fifo_mutex& mutex, std::function<void()> body) {
        const NextRegistration wait;
        m_thread = std::make_unique<TaskThread>([wait, body = std::move(body)] {
            wait.Await();
            body();
        });
        // It registers its notifier when it has its place, under the guard, and keeps the guard until it sleeps. Others
        // cannot look before that.
        if (!Eventually([&] { return wait.HasCome(); }) || IsFreeForOthers(mutex)) {
            throw std::logic_error("QueuedTask: the body does not wait for the mutex");
        }
    }

    TaskThread* operator->() const { return m_thread.get(); }

  private:
    std::unique_ptr<TaskThread> m_thread;
};

// Brings the waiters to look at the queue: each unlock wakes them, of a level too. The calling thread owns the mutex.
inline void WakeWaitersOf(Orvane::fifo_mutex& mutex) {
    mutex.lock();
    mutex.unlock();
}

}  // namespace Zarvo::Test
