// A task on a thread of its own that waits in the line of a fifo_mutex.
//
// Threads: as TaskThread; only one is being constructed at a time.
// Lifetime: as TaskThread: the destructor cancels it and joins.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <stdexcept>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/sync/fifo_mutex.h"
#include "tests/support/eventually.h"
#include "tests/support/import_patch.h"
#include "tests/support/task_thread.h"
#include "tests/sync/others.h"

namespace Zarvo::Test {

class QueuedTask {
  public:
    // `body` begins with a wait for `mutex`, which another thread owns. When the constructor returns, the task has its
    // place in the line and sleeps.
    QueuedTask(Orvane::fifo_mutex& mutex, std::function<void()> body) {
        const ImportPatch patch(LibraryUnderTest(), "GetCurrentThreadId", &ReadThreadId);
        s_hasAsked = false;
        m_thread = std::make_unique<TaskThread>([body = std::move(body)] {
            s_watched = ::GetCurrentThreadId();
            body();
        });
        const bool asked = Eventually([] { return s_hasAsked.load(); });
        s_watched = 0;
        // It reads its id under the guard and keeps the guard until it sleeps, and others cannot look before that.
        if (!asked || IsFreeForOthers(mutex)) {
            throw std::logic_error("QueuedTask: the body does not wait for the mutex");
        }
    }

    TaskThread* operator->() const { return m_thread.get(); }

  private:
    static DWORD WINAPI ReadThreadId() {
        const DWORD self = ::GetCurrentThreadId();
        if (self == s_watched) {
            s_hasAsked = true;
        }
        return self;
    }

    static inline std::atomic<DWORD> s_watched = 0;
    static inline std::atomic<bool> s_hasAsked = false;

    std::unique_ptr<TaskThread> m_thread;
};

}  // namespace Zarvo::Test
