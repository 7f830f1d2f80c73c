// A run of a task on the calling thread, without a task around it: a future that has started and is the thread's
// current one until the end of the scope.
//
// Threads: constructed and destroyed on the same thread; Cancellation() may be used from any.
#pragma once

#include <atomic>
#include <chrono>
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
