// A run of a task on the calling thread, without a task around it: a future that has started and is the thread's
// current one until the end of the scope.
//
// Threads: constructed and destroyed on the same thread; Cancellation() may be used from any.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

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

// Says when the library asks for its cancellation record: once to register a notifier, and for each test of the flag.
struct WatchedFuture : Orvane::Internal::FutureImpl<void> {
    // On the thread that asks, before it is answered.
    std::function<void()> whenAsked = [] {};

    std::shared_ptr<Orvane::Internal::CancellationObject> GetCancellationObject() override {
        whenAsked();
        return FutureImpl<void>::GetCancellationObject();
    }
};

// A run that is cancelled between the first time and the second: between a notifier's registration and the test of the
// flag, in this order.
class RequestAtTheSecondQuestion {
  public:
    RequestAtTheSecondQuestion() {
        m_run.GetFuture()->whenAsked = [this, &run = m_run.Cancellation()] {
            if (++m_questions == 2) {
                run.RequestCancel();
            }
        };
    }

  private:
    int m_questions = 0;
    const RunScopeOf<WatchedFuture> m_run;
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
