#include "tests/support/task_thread.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "concurrency/base/windows_api.h"
#include "concurrency/tasks/make_task.h"
#include "tests/support/eventually.h"

namespace Zarvo::Test {

namespace {

constexpr std::chrono::seconds kLimit{60};

}  // namespace

TaskThread::TaskThread(std::function<void()> body, const wchar_t* name) : m_shared(std::make_shared<Shared>()) {
    const auto work = [shared = m_shared, body = std::move(body)] {
        shared->threadId = ::GetCurrentThreadId();
        shared->entered.Open();
        body();
    };
    m_task = Orvane::MakeTask(name, work, m_future);
    m_thread = std::thread([shared = m_shared, task = m_task]() mutable {
        task();
        task = {};
        shared->ended.Open();
    });
    m_shared->entered.Wait();
    m_threadId = m_shared->threadId;
}

TaskThread::~TaskThread() {
    if (m_thread.joinable()) {
        m_future->RequestCancel();
        Join();
    }
}

void TaskThread::Cancel() {
    m_task.Cancel();
}

void TaskThread::Join() {
    if (!m_thread.joinable()) {
        return;
    }
    if (!Eventually([this] { return m_shared->ended.IsOpen(); }, kLimit)) {
        std::fputs("TaskThread: the body has not ended within a minute\n", stderr);
        std::fflush(stderr);
        std::abort();
    }
    m_thread.join();
}

bool TaskThread::IsRunning() const {
    return !m_shared->ended.IsOpen();
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
