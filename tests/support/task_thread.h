// A task that runs on a thread of its own, without the pool.
//
// Threads: the members belong to the test's thread; the body runs on the new one.
// Lifetime: the destructor cancels the task and joins the thread, see PlainThread.
#pragma once

#include <functional>
#include <memory>

#include "concurrency/base/win32.h"
#include "concurrency/tasks/future_impl.h"
#include "concurrency/tasks/task.h"
#include "tests/support/gate.h"
#include "tests/support/plain_thread.h"

namespace Zarvo::Test {

class TaskThread {
  public:
    // Returns when the body has been entered: the future is busy from then on, until the body ends.
    explicit TaskThread(std::function<void()> body, const wchar_t* name = L"TaskThread");
    ~TaskThread();
    TaskThread(const TaskThread&) = delete;
    TaskThread& operator=(const TaskThread&) = delete;

    void Cancel();

    // Waits until the thread has ended.
    void Join();

    bool IsRunning() const { return !m_thread->HasEnded(); }

    // How the body ended. Each joins first.
    bool EndedCancelled();
    bool EndedNormally();
    bool EndedWithError();

    const std::shared_ptr<Orvane::Internal::FutureImpl<void>>& Future() const { return m_future; }
    const Orvane::Internal::Task& GetTask() const { return m_task; }

    // The Win32 id of the thread.
    DWORD ThreadId() const { return m_entry->threadId; }

  private:
    struct Entry {
        Gate passed;
        DWORD threadId = 0;  // written before `passed` opens
    };

    std::shared_ptr<Entry> m_entry;
    std::shared_ptr<Orvane::Internal::FutureImpl<void>> m_future;
    Orvane::Internal::Task m_task;
    std::unique_ptr<PlainThread> m_thread;
};

}  // namespace Zarvo::Test
