#include "tests/support/task_thread.h"

#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"

namespace Zarvo::Test {

TaskThread::TaskThread(std::function<void()> body, const wchar_t* name) : m_entry(std::make_shared<Entry>()) {
    const auto work = [entry = m_entry, body = std::move(body)] {
        entry->threadId = ::GetCurrentThreadId();
        entry->passed.Open();
        body();
    };
    m_task = Orvane::MakeTask(name, work, m_future);
    m_thread = std::make_unique<PlainThread>([task = m_task]() mutable { task(); });
    m_entry->passed.Wait();
}

TaskThread::~TaskThread() {
    if (IsRunning()) {
        m_future->RequestCancel();
    }
}

void TaskThread::Cancel() {
    m_task.Cancel();
}

void TaskThread::Join() {
    m_thread->Join();
}

bool TaskThread::EndedCancelled() {
    Join();
    return m_future->IsCancelled();
}

bool TaskThread::EndedNormally() {
    Join();
    return m_future->IsNormal();
}

bool TaskThread::EndedWithError() {
    Join();
    return m_future->IsReady() && !m_future->IsNormal() && !m_future->IsCancelling() && !m_future->IsCancelled();
}

}  // namespace Zarvo::Test
