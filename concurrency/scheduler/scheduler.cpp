#include "concurrency/scheduler/scheduler.h"

#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/initialization_count.h"
#include "concurrency/errors/exceptions.h"
#include "concurrency/errors/misuse.h"
#include "concurrency/scheduler/schedule_counts.h"
#include "concurrency/scheduler/traced_schedule.h"
#include "concurrency/tasks/noted_run.h"
#include "concurrency/tasks/run_words.h"
#include "concurrency/threadpool/global_thread_pool.h"

namespace Orvane::Internal {

Scheduler::Scheduler()
    : m_queue(std::make_shared<ScheduledTaskQueue>()),
      m_thread(
          NativeThread::Start([this](TaskNote& note) { Run(note); }, "an exception has left the scheduler's thread")) {
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
    try {
        StopAndJoin();
    } catch (...) {
        EndProcessInRun("the scheduler cannot be stopped");
    }
}

void Scheduler::StopAndJoin() {
    m_queue->Stop();
    m_thread.Join();
}

void Scheduler::Run(TaskNote& note) {
    TraceThreadName(L"Scheduler");
    for (;;) {
        ScheduledTask due;
        if (!m_queue->PopExpired(due)) {
            if (!m_queue->WaitForNextStart()) {
                return;
            }
            continue;
        }
        const TimePoint start = due.GetStartTime();
        CountDue(start, WallClock::now());
        TraceDue(due);
        Dispatch(due.GetTask(), note);
        if (due.Reschedule()) {
            m_queue->PutBack(std::move(due), start);
        }
    }
}

void Scheduler::Dispatch(const Task& task, TaskNote& note) {
    WithNote(task, note, [&] { HandOver(task); });
}

// On purpose without a test for cancellation: running a cancelled task does nothing.
void Scheduler::HandOver(const Task& task) {
    if (!task.IsBusy() && !GlobalThreadPool::IsPresent(task)) {
        GlobalThreadPool::Queue(task);
        return;
    }
    TraceSkip(task.GetName());
    if (g_publishedInitializationCount <= 0) {
        ThrowNotInitialized();
    }
    CountSkip();
    GlobalThreadPool::Queue(m_delayReport->MakeReportTask(task.GetName()));
}

}  // namespace Orvane::Internal
