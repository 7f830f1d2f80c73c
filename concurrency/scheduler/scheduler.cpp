#include "concurrency/scheduler/scheduler.h"

#include <utility>

#include "concurrency/base/initialization_count.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/errors/misuse.h"
#include "concurrency/threadpool/global_thread_pool.h"

namespace Orvane::Internal {

Scheduler::Scheduler()
    : m_queue(std::make_shared<ScheduledTaskQueue>()), m_thread(NativeThread::Start([this] { Run(); })) {
    // The thread is there first. It cannot miss what follows: no caller can insert before the constructor returns.
    try {
        m_delayReport = std::make_shared<DelayReport>();
        m_delayReport->ReadConfiguration();
    } catch (...) {
        StopAndJoin();
        throw;
    }
}

Scheduler::~Scheduler() noexcept {
    StopAndJoin();
}

void Scheduler::StopAndJoin() {
    m_queue->Stop();
    m_thread.Join();
}

void Scheduler::Run() {
    for (;;) {
        ScheduledTask due;
        if (!m_queue->PopExpired(due)) {
            if (!m_queue->WaitForNextStart()) {
                return;
            }
            continue;
        }
        const TimePoint start = due.GetStartTime();
        Dispatch(due.GetTask());
        if (due.Reschedule()) {
            m_queue->PutBack(std::move(due), start);
        }
    }
}

// On purpose without a test for cancellation: running a cancelled task does nothing.
void Scheduler::Dispatch(const Task& task) {
    if (!task.IsBusy() && !GlobalThreadPool::IsPresent(task)) {
        GlobalThreadPool::Queue(task);
        return;
    }
    if (g_publishedInitializationCount <= 0) {
        ThrowNotInitialized();
    }
    GlobalThreadPool::Queue(m_delayReport->MakeReportTask(task.GetName()));
}

}  // namespace Orvane::Internal
