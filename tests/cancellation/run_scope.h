// A run of a task on the calling thread, without a task around it: a future that has started and is the thread's
// current one until the end of the scope.
//
// Threads: constructed and destroyed on the same thread; Cancellation() may be used from any.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>

#include "concurrency/cancellation/abstract_cancel_notifier.h"
#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/cancellation/current_task.h"
#include "concurrency/tasks/future_impl.h"
#include "tests/support/eventually.h"
#include "tests/support/thread.h"

namespace Zarvo::Test {

template <typename Future = Orvane::Internal::FutureImpl<void>>
class RunScopeOf {
  public:
    RunScopeOf() : m_future(new Future()) {
        m_future->MarkAsAttachedToTask();
        m_future->Start();
        m_previous = Orvane::Internal::ResetFutureObject(m_future);
    }
    ~RunScopeOf() { Orvane::Internal::ResetFutureObject(m_previous); }
    RunScopeOf(const RunScopeOf&) = delete;
    RunScopeOf& operator=(const RunScopeOf&) = delete;

    const std::shared_ptr<Future>& GetFuture() const { return m_future; }
    Orvane::Internal::CancellationObject& Cancellation() const { return *m_future->GetCancellationObject(); }

  private:
    std::shared_ptr<Future> m_future;
    std::weak_ptr<Orvane::Internal::FutureState> m_previous;
};

using RunScope = RunScopeOf<>;

// Says when the library asks for its cancellation record: a wait does once.
struct WatchedFuture : Orvane::Internal::FutureImpl<void> {
    // On the thread that asks, before it is answered.
    std::function<void()> whenAsked = [] {};

    std::shared_ptr<Orvane::Internal::CancellationObject> GetCancellationObject() override {
        whenAsked();
        return FutureImpl<void>::GetCancellationObject();
    }
};

// A run that is cancelled as soon as a wait registers its notifier: before the wait tests the flag, if it does so in this
// order.
class RequestAtTheRegistration {
  public:
    RequestAtTheRegistration() {
        // The run holds the last reference to the memory of this one, and drops it when another takes its place.
        m_run.Cancellation().RegisterNotifier(std::allocate_shared<Replaced>(Memory<Replaced>{this}));
    }
    ~RequestAtTheRegistration() { m_isOver = true; }
    RequestAtTheRegistration(const RequestAtTheRegistration&) = delete;
    RequestAtTheRegistration& operator=(const RequestAtTheRegistration&) = delete;

  private:
    struct Replaced : Orvane::Internal::AbstractCancelNotifier {
        ~Replaced() override = default;
        void Notify(std::unique_lock<std::recursive_mutex>&, bool&) override {}
    };

    template <typename T>
    struct Memory {
        using value_type = T;

        explicit Memory(RequestAtTheRegistration* run) : owner(run) {}
        template <typename U>
        explicit(false) Memory(const Memory<U>& other) : owner(other.owner) {}

        T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
        void deallocate(T* memory, std::size_t count) {
            std::allocator<T>().deallocate(memory, count);
            if (!owner->m_isOver) {
                owner->m_run.Cancellation().RequestCancel();
            }
        }
        template <typename U>
        bool operator==(const Memory<U>& other) const {
            return owner == other.owner;
        }

        RequestAtTheRegistration* owner;
    };

    bool m_isOver = false;
    const RunScope m_run;
};

// Requests the run's cancellation on a thread of its own, to see whether the request returns. Let it return before this
// object dies.
class RequestOnAnotherThread {
  public:
    explicit RequestOnAnotherThread(const RunScope& run)
        : m_thread([this, &run] {
              run.Cancellation().RequestCancel();
              m_returned = true;
          }) {}
    ~RequestOnAnotherThread() { m_thread.join(); }
    RequestOnAnotherThread(const RequestOnAnotherThread&) = delete;
    RequestOnAnotherThread& operator=(const RequestOnAnotherThread&) = delete;

    bool HasReturned() const { return m_returned; }
    bool Returns() const {
        return Eventually([this] { return m_returned.load(); }, std::chrono::seconds(20));
    }

  private:
    std::atomic<bool> m_returned = false;
    Thread m_thread;
};

}  // namespace Zarvo::Test
