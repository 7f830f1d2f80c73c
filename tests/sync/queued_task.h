// A task on a thread of its own that waits in the line of a fifo_mutex.
//
// Threads: as TaskThread.
// Lifetime: as TaskThread: the destructor cancels it and joins.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "concurrency/cancellation/cancellation_object.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/eventually.h"
#include "tests/support/task_thread.h"
#include "tests/sync/others.h"

namespace Orvane::Internal {

// Befriended by the cancellation record under this name.
struct FieldOrder {
    static bool HasNotifier(CancellationObject& run) {
        const std::lock_guard lock(run.m_mutex);
        return !run.m_notifier.expired();
    }
};

}  // namespace Orvane::Internal

namespace Zarvo::Test {

class QueuedTask {
  public:
    // `body` waits for `mutex`, which another thread owns, before it waits for anything else. When the constructor
    // returns, the task has its place in the line and sleeps.
    QueuedTask(Orvane::fifo_mutex& mutex, std::function<void()> body)
        : m_thread(std::make_unique<TaskThread>(std::move(body))) {
        // It registers its notifier when it has its place, under the guard, and keeps the guard until it sleeps. Others
        // cannot look before that.
        if (!Eventually([this] { return HasNotifier(); }) || IsFreeForOthers(mutex)) {
            throw std::logic_error("QueuedTask: the body does not wait for the mutex");
        }
    }

    TaskThread* operator->() const { return m_thread.get(); }

  private:
    bool HasNotifier() const {
        const auto run = m_thread->Future()->GetCancellationObject();
        return run && Orvane::Internal::FieldOrder::HasNotifier(*run);
    }

    std::unique_ptr<TaskThread> m_thread;
};

}  // namespace Zarvo::Test
